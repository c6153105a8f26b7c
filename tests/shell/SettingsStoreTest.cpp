#include "shell/SettingsStore.h"

#include "common/TestEnvironment.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct LeadingIntegerCase
{
    const char *text;
    qint64 expected;
};

class LeadingInteger : public ::testing::TestWithParam<LeadingIntegerCase>
{
};

TEST_P(LeadingInteger, ReadsTheLeadingDecimalNumber)
{
    EXPECT_EQ(SettingsStore::leadingInteger(QString::fromUtf8(GetParam().text)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, LeadingInteger,
                         ::testing::Values(LeadingIntegerCase{"12abc", 12}, LeadingIntegerCase{"", 0},
                                           LeadingIntegerCase{"abc", 0}, LeadingIntegerCase{"  42", 42},
                                           LeadingIntegerCase{"-7x", -7}, LeadingIntegerCase{"+5", 5},
                                           LeadingIntegerCase{"5201", 5201},
                                           LeadingIntegerCase{"99999999999999999999999", std::numeric_limits<qint64>::max()}));

class SettingsStoreTest : public ::testing::Test
{
protected:
    QTemporaryDir dir;
    QString iniPath() const { return dir.filePath(QStringLiteral("settings.ini")); }
};

TEST_F(SettingsStoreTest, RegisteredDefaultsApplyOnlyWhileNothingIsStoredAndAreNeverWritten)
{
    {
        SettingsStore store(iniPath());
        store.registerDefaults({{QStringLiteral("serverPort"), 5201}});
        EXPECT_EQ(store.integerForKey(QStringLiteral("serverPort")), 5201);
        store.setObject(QStringLiteral("6000"), QStringLiteral("serverPort"));
        EXPECT_EQ(store.integerForKey(QStringLiteral("serverPort")), 6000);
        store.removeObjectForKey(QStringLiteral("serverPort"));
        EXPECT_EQ(store.integerForKey(QStringLiteral("serverPort")), 5201);
        ASSERT_TRUE(store.synchronize());
    }
    SettingsStore reopened(iniPath());
    EXPECT_FALSE(reopened.objectForKey(QStringLiteral("serverPort")).isValid());
}

TEST_F(SettingsStoreTest, StringReadsTellNoneFromEmpty)
{
    SettingsStore store(iniPath());
    store.setObject(QString(QLatin1String("")), QStringLiteral("empty"));
    store.setObject(7, QStringLiteral("number"));
    EXPECT_TRUE(store.stringForKey(QStringLiteral("missing")).isNull());
    EXPECT_FALSE(store.hasStringForKey(QStringLiteral("missing")));
    EXPECT_FALSE(store.stringForKey(QStringLiteral("empty")).isNull());
    EXPECT_TRUE(store.hasStringForKey(QStringLiteral("empty")));
    EXPECT_EQ(store.stringForKey(QStringLiteral("number")), QStringLiteral("7"));
    EXPECT_EQ(store.integerForKey(QStringLiteral("missing")), 0);
}

TEST_F(SettingsStoreTest, WrittenValuesSurviveAReopen)
{
    {
        SettingsStore store(iniPath());
        store.setObject(QStringLiteral("10.0.0.5"), QStringLiteral("clientToServerIpAddress"));
        ASSERT_TRUE(store.synchronize());
    }
    SettingsStore reopened(iniPath());
    EXPECT_EQ(reopened.stringForKey(QStringLiteral("clientToServerIpAddress")), QStringLiteral("10.0.0.5"));
}

TEST_F(SettingsStoreTest, ShippedDefaultsResourceRegistersEveryKey)
{
    SettingsStore store(iniPath());
    ASSERT_TRUE(store.registerDefaultsFromFile(TestEnvironment::binDir() +
                                               QStringLiteral("/com.norvale.mactidewave-default-values.plist")));
    const struct
    {
        const char *key;
        const char *text;
    } expected[] = {{"serverPort", "5201"},   {"clientToServerIpAddress", ""}, {"clientToServerPort", "5201"},
                    {"testDuration", "10"},   {"statsInterval", "1"},          {"testType", "0"},
                    {"transfer_Direction", "0"}, {"bandwidthformat", "0"},     {"sendBandwidth", "0"},
                    {"graphMaxSpeed", "100"}, {"bufferLength", "128"},         {"audioAlert", "0"}};
    for (const auto &e : expected) {
        SCOPED_TRACE(e.key);
        EXPECT_EQ(store.stringForKey(QString::fromLatin1(e.key)), QString::fromLatin1(e.text));
    }
}

TEST_F(SettingsStoreTest, MissingOrCorruptResourceRegistersNothing)
{
    SettingsStore store(iniPath());
    EXPECT_FALSE(store.registerDefaultsFromFile(dir.filePath(QStringLiteral("absent.plist"))));

    const QString corrupt = dir.filePath(QStringLiteral("corrupt.plist"));
    QFile file(corrupt);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("<plist><dict><key>serverPort</key><integer>5201");
    file.close();
    EXPECT_FALSE(store.registerDefaultsFromFile(corrupt));
    EXPECT_FALSE(store.objectForKey(QStringLiteral("serverPort")).isValid());
}

} // namespace
