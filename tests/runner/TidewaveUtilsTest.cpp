#include "PerfHelper/ShellTask.h"
#include "PerfHelper/TidewaveUtils.h"

#include "common/TestEnvironment.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

namespace {

// The log texts written while it is a sink of the logger.
struct LogCapture : LogSink
{
    void write(const LogMessage &message) override { messages << message.message; }
    QStringList messages;
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<none>");
}

const QString kPathLog = QStringLiteral("TDWBaseModel: iPerf Executable Path is %1/t/mac-native-iperf");
const QString kFailureLog = QStringLiteral("TDWBaseModel: can't copy iPerf executable file at above path..");

struct PlacementCase
{
    const char *name;
    const char *before; // shell commands run in the folder first
    bool resource;      // whether the resource exists
    QStringList logs;   // the start of each log text; "%1" is the folder
};

class Placement : public ::testing::TestWithParam<PlacementCase> {};

// The tool path "t/mac-native-iperf" gets a fresh copy of the executable
// resource "r", whatever was there, never writing through a link; without
// the resource the old tool is gone all the same.
TEST_P(Placement, ToolPathHoldsAFreshCopyOfTheResource)
{
    QTemporaryDir dir;
    ASSERT_TRUE(ShellTask::executeShellCommandSynchronously(
        QStringLiteral("cd '%1' && printf '#!/bin/sh\\n' > r && chmod 750 r && echo untouched > victim && %2").arg(dir.path(), GetParam().before)));
    const QString tool = dir.filePath(QStringLiteral("t/mac-native-iperf"));
    const QString resource = GetParam().resource ? dir.filePath(QStringLiteral("r")) : QString();
    const auto logs = std::make_shared<LogCapture>();
    Logger::shared().addSink(logs);
    TidewaveUtils::copyiPerfExecutableToAppSupportDir(resource, tool);
    Logger::shared().removeSink(logs);

    ASSERT_EQ(logs->messages.size(), GetParam().logs.size()) << logs->messages.join('\n').toStdString();
    for (qsizetype i = 0; i < GetParam().logs.size(); ++i)
        EXPECT_TRUE(logs->messages[i].startsWith(GetParam().logs[i].arg(dir.path()))) << logs->messages[i].toStdString();
    const bool placed = GetParam().logs.size() == 1;
    EXPECT_EQ(contents(tool), placed ? contents(resource) : "<none>");
    EXPECT_EQ(QFileInfo(tool).permissions(), placed ? QFileInfo(resource).permissions() : QFileDevice::Permissions());
    EXPECT_EQ(contents(dir.filePath(QStringLiteral("victim"))), "untouched\n");
}

INSTANTIATE_TEST_SUITE_P(
    Table, Placement,
    ::testing::Values(
        PlacementCase{"FolderCreatedWhenMissing", "true", true, {kPathLog}},
        PlacementCase{"StaleFileReplaced", "mkdir t && echo stale > t/mac-native-iperf && chmod 400 t/*", true, {kPathLog}},
        PlacementCase{"FolderAtToolPathReplaced", "mkdir -p t/mac-native-iperf/inner && touch t/mac-native-iperf/inner/f", true, {kPathLog}},
        PlacementCase{"LinkAtToolPathReplaced", "mkdir t && ln -s ../victim t/mac-native-iperf", true, {kPathLog}},
        PlacementCase{"MissingResource", "mkdir t && echo stale > t/mac-native-iperf", false,
                      {kPathLog, kFailureLog + QStringLiteral("the tool resource \"mac-native-iperf\" was not found")}},
        PlacementCase{"FolderThatCannotBeCreated", "ln -s missing/deeper t", true,
                      {QStringLiteral("Application Support //macTidewave folder not created :cannot create \"%1/t\": "), kPathLog,
                       kFailureLog + QStringLiteral("cannot copy \"%1/r\" to \"%1/t/mac-native-iperf\": ")}}),
    [](const auto &info) { return std::string(info.param.name); });

// At start-up the launcher built beside this program goes to the data home's
// Tidewave folder.
TEST(TidewaveUtils, StartUpPlacesTheShippedLauncher)
{
    const QString folder = TestEnvironment::privateRoot() + QStringLiteral("/data/Tidewave");
    const QString launcher = TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf");
    EXPECT_EQ(TidewaveUtils::getiPerfExecutablePath(), folder + QStringLiteral("/mac-native-iperf"));
    EXPECT_EQ(TidewaveUtils::resourcePath(QStringLiteral("mac-native-iperf")), launcher);
    EXPECT_TRUE(TidewaveUtils::resourcePath(QStringLiteral("no-such-resource")).isNull());
    TidewaveUtils::copyiPerfExecutableToAppSupportDir();
    EXPECT_EQ(contents(TidewaveUtils::getiPerfExecutablePath()), contents(launcher));
    EXPECT_TRUE(QFileInfo(TidewaveUtils::getiPerfExecutablePath()).isExecutable());
}

// Written to the settings file at once, not when the event loop gets to it.
TEST(TidewaveUtils, UserSettingIsOnDiskAtOnce)
{
    TidewaveUtils::setUserSetting(QStringLiteral("5201"), QStringLiteral("runnerTestPort"));
    EXPECT_TRUE(contents(TestEnvironment::privateRoot() + QStringLiteral("/config/norvale/Tidewave.conf")).contains("runnerTestPort=5201"));
    EXPECT_EQ(SettingsStore::standard().stringForKey(QStringLiteral("runnerTestPort")), QStringLiteral("5201"));
}

// The last IPv4 address of the interface list, as iproute2 lists it too.
TEST(TidewaveUtils, IPAddressIsTheLastIPv4Entry)
{
    const auto listed = ShellTask::executeShellCommandSynchronously(QStringLiteral("ip -o -4 addr show | tail -n 1 | awk '{print $4}'"));
    ASSERT_TRUE(listed && listed->contains(QLatin1Char('/'))) << listed.value_or(QString()).toStdString();
    EXPECT_EQ(TidewaveUtils::getIPAddress(), listed->section(QLatin1Char('/'), 0, 0));
}

} // namespace
