#include "PerfHelper/ShellTask.h"
#include "PerfHelper/TidewaveUtils.h"

#include "common/TestEnvironment.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <gtest/gtest.h>

#include <ostream>

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <signal.h>

using namespace std::chrono_literals;

namespace {

const auto kByName = [](const auto &info) { return std::string(info.param.name); };

struct ShellCase
{
    friend void PrintTo(const ShellCase &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    const char *command;
    std::optional<QString> synchronous; // both streams, decoded
    QString task;                       // the task's standard output
};

class Shell : public ::testing::TestWithParam<ShellCase> {};

// A command text is one script of "/bin/sh -c", however it is run.
TEST_P(Shell, RunsTheTextAsOneScript)
{
    const QString command = QString::fromLatin1(GetParam().command);
    EXPECT_EQ(ShellTask::executeShellCommandSynchronously(command), GetParam().synchronous);
    const auto task = ShellTask::taskForShellCommand(command);
    EXPECT_EQ(task->arguments(), (QStringList{QStringLiteral("-c"), command}));
    task->start();
    ASSERT_TRUE(task->waitForFinished(10000));
    EXPECT_EQ(QString::fromUtf8(task->readAllStandardOutput()), GetParam().task);
}

const QString kLong(100000, QLatin1Char('x'));

INSTANTIATE_TEST_SUITE_P(
    Table, Shell,
    ::testing::Values(ShellCase{"BlanksStayInOneArgument", "printf '[%s]' \"a b\"   c", QStringLiteral("[a b][c]"), "[a b][c]"},
                      // pid and process group id (field 5 of its stat) are one.
                      ShellCase{"OwnProcessGroup", "[ $$ = $(cut -d' ' -f5 /proc/$$/stat) ] && echo own", QStringLiteral("own\n"), "own\n"},
                      ShellCase{"InputIsTheNullDevice", "readlink /proc/$$/fd/0", QStringLiteral("/dev/null\n"), "/dev/null\n"},
                      ShellCase{"StreamsInterleaved", "echo one; echo two >&2; echo three", QStringLiteral("one\ntwo\nthree\n"), "one\nthree\n"},
                      ShellCase{"ValidUtf8", "printf 'h\\303\\251'", QStringLiteral("hé"), QStringLiteral("hé")},
                      ShellCase{"InvalidUtf8GivesNone", "printf 'ok\\377'", std::nullopt, QString::fromUtf8("ok\xff")},
                      ShellCase{"NoOutputIsEmptyNotNone", "true", QStringLiteral(""), ""},
                      ShellCase{"ExitStatusIgnored", "echo x; exit 3", QStringLiteral("x\n"), "x\n"},
                      ShellCase{"LongOutputWhole", "head -c 100000 /dev/zero | tr '\\0' x", kLong, kLong}), kByName);

TEST(ShellTask, SynchronousCallEndsAtEndOfFileWhileTheCommandRunsOn)
{
    QElapsedTimer timer;
    timer.start();
    const std::optional<QString> output =
        ShellTask::executeShellCommandSynchronously(QStringLiteral("echo $$; exec >&- 2>&-; sleep 30"));
    EXPECT_LT(timer.elapsed(), 10000);
    const qint64 pid = output.value_or(QString()).trimmed().toLongLong();
    ASSERT_TRUE(ShellTask::signalProcessGroup(pid, SIGKILL)); // still running, in a group of its own
    // The shell is reaped in the background.
    ASSERT_TRUE(TestEnvironment::waitUntil([pid] { return !QFile::exists(QStringLiteral("/proc/%1").arg(pid)); }, 5s));
    // There is never a group to signal at 0 (our own) or below.
    EXPECT_FALSE(ShellTask::signalProcessGroup(0, 0));
    EXPECT_FALSE(ShellTask::signalProcessGroup(-1, 0));
}

TEST(ShellTask, AsynchronousCommandRunsOnItsOwn)
{
    QTemporaryDir dir;
    ShellTask::executeShellCommandAsynchronously(QStringLiteral("echo spoken > '%1/m'; mv '%1/m' '%1/marker'").arg(dir.path()));
    QFile file(dir.filePath(QStringLiteral("marker")));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return file.exists(); }, 5s));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "spoken\n");
}

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
    friend void PrintTo(const PlacementCase &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    const char *before; // shell commands run in the folder first
    bool resource;      // whether the resource exists
    QStringList logs;   // the start of each log text; "%1" is the folder
};

class Placement : public ::testing::TestWithParam<PlacementCase> {};

// The tool path "t/mac-native-iperf" gets a fresh copy of the resource "r", whatever was
// there, never written through a link; without the resource the old tool goes all the same.
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
        PlacementCase{"LinkAtToolPathReplaced", "mkdir t && ln -s ../victim t/mac-native-iperf", true, {kPathLog}},
        PlacementCase{"MissingResource", "mkdir t && echo stale > t/mac-native-iperf", false,
                      {kPathLog, kFailureLog + QStringLiteral("the tool resource \"mac-native-iperf\" was not found")}},
        PlacementCase{"FolderThatCannotBeCreated", "ln -s missing/deeper t", true,
                      {QStringLiteral("Application Support //macTidewave folder not created :cannot create \"%1/t\": "), kPathLog,
                       kFailureLog + QStringLiteral("cannot copy \"%1/r\" to \"%1/t/mac-native-iperf\": ")}}), kByName);

// At start-up the launcher built beside this program goes to the data home's Tidewave folder.
TEST(TidewaveUtils, StartUpPlacesTheShippedLauncherAndSettingsAreWritten)
{
    const QString folder = TestEnvironment::privateRoot() + QStringLiteral("/data/Tidewave");
    const QString launcher = TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf");
    EXPECT_EQ(TidewaveUtils::getiPerfExecutablePath(), folder + QStringLiteral("/mac-native-iperf"));
    EXPECT_EQ(TidewaveUtils::resourcePath(QStringLiteral("mac-native-iperf")), launcher);
    EXPECT_TRUE(TidewaveUtils::resourcePath(QStringLiteral("no-such-resource")).isNull());
    TidewaveUtils::copyiPerfExecutableToAppSupportDir();
    EXPECT_EQ(contents(TidewaveUtils::getiPerfExecutablePath()), contents(launcher));
    EXPECT_TRUE(QFileInfo(TidewaveUtils::getiPerfExecutablePath()).isExecutable());
    // A user setting is in the settings file at once, not when the event loop gets to it.
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
