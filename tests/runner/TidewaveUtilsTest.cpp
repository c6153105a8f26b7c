#include "PerfHelper/TidewaveUtils.h"

#include "common/TestEnvironment.h"
#include "shell/Logger.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <atomic>
#include <functional>

#include <unistd.h>

using namespace std::chrono_literals;

namespace {

// Collects the log texts written while it lives.
class LogCapture : public LogSink
{
public:
    static std::shared_ptr<LogCapture> install()
    {
        auto capture = std::make_shared<LogCapture>();
        Logger::shared().addSink(capture);
        return capture;
    }
    ~LogCapture() override = default;
    void write(const LogMessage &message) override { messages << message.message; }
    QStringList messages;
};

struct CaptureScope
{
    std::shared_ptr<LogCapture> capture = LogCapture::install();
    ~CaptureScope() { Logger::shared().removeSink(capture); }
    const QStringList &messages() const { return capture->messages; }
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes, QFileDevice::Permissions permissions)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    file.close();
    ASSERT_TRUE(file.setPermissions(permissions));
}

constexpr QFileDevice::Permissions kExecutable = QFileDevice::ReadOwner | QFileDevice::WriteOwner
    | QFileDevice::ExeOwner | QFileDevice::ReadGroup | QFileDevice::ExeGroup;

struct PlacementCase
{
    const char *name;
    std::function<void(const QString &folder, const QString &tool)> before; // what the folder holds first
};

void PrintTo(const PlacementCase &c, std::ostream *os)
{
    *os << c.name;
}

class PlacementTest : public ::testing::TestWithParam<PlacementCase>
{};

TEST_P(PlacementTest, ToolPathHoldsAFreshExecutableCopyOfTheResource)
{
    QTemporaryDir dir;
    const QString resource = dir.filePath(QStringLiteral("resource/mac-native-iperf"));
    QDir(dir.path()).mkpath(QStringLiteral("resource"));
    writeFile(resource, "#!/bin/sh\necho launcher\n", kExecutable);
    const QString folder = dir.filePath(QStringLiteral("support/Tidewave"));
    const QString tool = folder + QStringLiteral("/mac-native-iperf");
    const QString victim = dir.filePath(QStringLiteral("victim"));
    writeFile(victim, "untouched", QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    GetParam().before(folder, tool);

    CaptureScope logs;
    TidewaveUtils::copyiPerfExecutableToAppSupportDir(resource, tool);

    EXPECT_EQ(logs.messages(), QStringList{QStringLiteral("TDWBaseModel: iPerf Executable Path is %1").arg(tool)});
    const QFileInfo placed(tool);
    ASSERT_TRUE(placed.isFile());
    EXPECT_FALSE(placed.isSymLink());
    EXPECT_EQ(contents(tool), contents(resource));
    EXPECT_EQ(placed.permissions(), QFileInfo(resource).permissions());
    EXPECT_EQ(contents(victim), QByteArray("untouched"))
        << "the copy must not write through a link at the tool path";
}

INSTANTIATE_TEST_SUITE_P(
    Table, PlacementTest,
    ::testing::Values(
        PlacementCase{"FolderCreatedWhenMissing", [](const QString &, const QString &) {}},
        PlacementCase{"FolderAlreadyThere", [](const QString &folder, const QString &) { QDir().mkpath(folder); }},
        PlacementCase{"StaleFileReplaced",
                      [](const QString &folder, const QString &tool) {
                          QDir().mkpath(folder);
                          writeFile(tool, "stale and read-only", QFileDevice::ReadOwner);
                      }},
        PlacementCase{"FolderAtToolPathReplaced",
                      [](const QString &, const QString &tool) {
                          QDir().mkpath(tool + QStringLiteral("/inner"));
                          writeFile(tool + QStringLiteral("/inner/file"), "x", QFileDevice::ReadOwner);
                      }},
        PlacementCase{"LinkAtToolPathReplaced", [](const QString &folder, const QString &tool) {
                          QDir().mkpath(folder);
                          QFile::link(folder + QStringLiteral("/../../victim"), tool);
                      }}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(TidewaveUtilsTest, MissingResourceIsLoggedAndTheStaleToolStillRemoved)
{
    QTemporaryDir dir;
    const QString tool = dir.filePath(QStringLiteral("mac-native-iperf"));
    writeFile(tool, "stale", kExecutable);

    CaptureScope logs;
    TidewaveUtils::copyiPerfExecutableToAppSupportDir(QString(), tool);

    ASSERT_EQ(logs.messages().size(), 2);
    EXPECT_EQ(logs.messages()[0], QStringLiteral("TDWBaseModel: iPerf Executable Path is %1").arg(tool));
    EXPECT_TRUE(logs.messages()[1].startsWith(QStringLiteral("TDWBaseModel: can't copy iPerf executable file at above path..")));
    EXPECT_TRUE(logs.messages()[1].contains(QStringLiteral("\"mac-native-iperf\" was not found")));
    EXPECT_TRUE(logs.messages()[1].endsWith(QLatin1Char('.')));
    EXPECT_FALSE(QFileInfo::exists(tool));
}

TEST(TidewaveUtilsTest, FolderThatCannotBeCreatedIsLoggedAndPlacementGoesOn)
{
    QTemporaryDir dir;
    const QString resource = dir.filePath(QStringLiteral("resource"));
    writeFile(resource, "tool", kExecutable);
    writeFile(dir.filePath(QStringLiteral("plain")), "a file, not a folder", QFileDevice::ReadOwner);
    const QString tool = dir.filePath(QStringLiteral("plain/Tidewave/mac-native-iperf"));

    CaptureScope logs;
    TidewaveUtils::copyiPerfExecutableToAppSupportDir(resource, tool);

    ASSERT_EQ(logs.messages().size(), 3) << logs.messages().join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(logs.messages()[0].startsWith(QStringLiteral("Application Support //macTidewave folder not created :")));
    EXPECT_TRUE(logs.messages()[0].endsWith(QLatin1Char(' ')));
    EXPECT_EQ(logs.messages()[1], QStringLiteral("TDWBaseModel: iPerf Executable Path is %1").arg(tool));
    EXPECT_TRUE(logs.messages()[2].startsWith(QStringLiteral("TDWBaseModel: can't copy iPerf executable file at above path..")));
}

TEST(TidewaveUtilsTest, StartUpPlacementUsesTheShippedResourceAndTheToolPath)
{
    CaptureScope logs;
    TidewaveUtils::copyiPerfExecutableToAppSupportDir();
    const QString tool = TidewaveUtils::getiPerfExecutablePath();
    EXPECT_EQ(tool, TidewaveUtils::getAppSupportDirPath() + QStringLiteral("/mac-native-iperf"));
    ASSERT_FALSE(logs.messages().isEmpty());
    EXPECT_EQ(logs.messages()[0], QStringLiteral("TDWBaseModel: iPerf Executable Path is %1").arg(tool));
    // The launcher may or may not be built beside this test; both outcomes are defined.
    const QString resource = TidewaveUtils::resourcePath(QStringLiteral("mac-native-iperf"));
    if (resource.isNull()) {
        ASSERT_EQ(logs.messages().size(), 2);
        EXPECT_FALSE(QFileInfo::exists(tool));
    } else {
        EXPECT_EQ(logs.messages().size(), 1);
        EXPECT_EQ(contents(tool), contents(resource));
        EXPECT_TRUE(QFileInfo(tool).isExecutable());
    }
}

TEST(TidewaveUtilsTest, AppSupportPathIsComputedOnceFromTheDataHome)
{
    const QByteArray saved = qgetenv("XDG_DATA_HOME");
    const QString first = TidewaveUtils::getAppSupportDirPath();
    EXPECT_EQ(first, QDir(QString::fromLocal8Bit(saved)).filePath(QStringLiteral("Tidewave")));
    qputenv("XDG_DATA_HOME", "/somewhere/else");
    const QString second = TidewaveUtils::getAppSupportDirPath();
    qputenv("XDG_DATA_HOME", saved);
    EXPECT_EQ(second, first);
}

// A network namespace of the test's own, deleted on destruction.
class NetworkNamespace
{
public:
    NetworkNamespace()
    {
        static std::atomic<int> counter{0};
        m_name = QStringLiteral("tw-ip-%1-%2").arg(::getpid()).arg(counter++);
        m_created = QProcess::execute(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("add"), m_name}) == 0;
    }
    ~NetworkNamespace()
    {
        if (m_created)
            QProcess::execute(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("delete"), m_name});
    }
    NetworkNamespace(const NetworkNamespace &) = delete;
    NetworkNamespace &operator=(const NetworkNamespace &) = delete;

    bool isCreated() const { return m_created; }

    // Runs "ip -n <namespace> <arguments>"; answers whether it succeeded.
    bool ip(const QString &arguments) const
    {
        QStringList args{QStringLiteral("-n"), m_name};
        args += arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        return QProcess::execute(QStringLiteral("ip"), args) == 0;
    }

    // Runs a program inside the namespace and returns its standard output.
    QString run(const QString &program) const
    {
        QProcess process;
        process.start(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("exec"), m_name, program});
        if (!process.waitForFinished(10000)) {
            process.kill();
            process.waitForFinished(5000);
            return QStringLiteral("<timed out>");
        }
        return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    }

private:
    QString m_name;
    bool m_created = false;
};

struct AddressCase
{
    const char *name;
    QStringList setup; // ip commands inside the namespace, in order
    const char *expected;
};

void PrintTo(const AddressCase &c, std::ostream *os)
{
    *os << c.name;
}

class IPAddressTest : public ::testing::TestWithParam<AddressCase>
{};

TEST_P(IPAddressTest, LastIPv4EntryOfTheInterfaceListWins)
{
    NetworkNamespace ns;
    if (!ns.isCreated())
        GTEST_SKIP() << "this machine cannot create a network namespace (ip netns add failed)";
    for (const QString &command : GetParam().setup)
        ASSERT_TRUE(ns.ip(command)) << command.toStdString();
    EXPECT_EQ(ns.run(TestEnvironment::binDir() + QStringLiteral("/tw_ip_address_probe")),
              QString::fromLatin1(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Namespaces, IPAddressTest,
    ::testing::Values(
        AddressCase{"NoIPv4GivesError", {QStringLiteral("addr flush dev lo")}, "error"},
        AddressCase{"OnlyLoopback", {QStringLiteral("link set lo up")}, "127.0.0.1"},
        AddressCase{"LaterInterfaceWins",
                    {QStringLiteral("link set lo up"), QStringLiteral("link add twa type veth peer name twb"),
                     QStringLiteral("addr add 10.200.0.1/24 dev twa")},
                    "10.200.0.1"},
        // The interface is down and the last address is a loopback one: neither is filtered.
        AddressCase{"ListEndingWithLoopbackEntry",
                    {QStringLiteral("link set lo up"), QStringLiteral("link add twa type veth peer name twb"),
                     QStringLiteral("addr add 10.200.0.1/24 dev twa"),
                     QStringLiteral("addr add 127.0.0.9/8 dev twa scope global")},
                    "127.0.0.9"}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
