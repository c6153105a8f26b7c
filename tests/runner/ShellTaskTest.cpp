#include "PerfHelper/ShellTask.h"

#include "common/TestEnvironment.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <optional>

#include <signal.h>

using namespace std::chrono_literals;

namespace {

struct TaskCase
{
    const char *name;
    const char *command;
    std::function<QString(qint64 pid)> expected; // from the shell's pid
};

void PrintTo(const TaskCase &c, std::ostream *os)
{
    *os << c.name;
}

class TaskForShellCommandTest : public ::testing::TestWithParam<TaskCase>
{};

TEST_P(TaskForShellCommandTest, RunsTheCommandTextAsTheShellsOneScript)
{
    const QString command = QString::fromLatin1(GetParam().command);
    const auto process = ShellTask::taskForShellCommand(command);
    EXPECT_EQ(process->program(), QStringLiteral("/bin/sh"));
    EXPECT_EQ(process->arguments(), (QStringList{QStringLiteral("-c"), command}));
    process->start();
    ASSERT_TRUE(process->waitForStarted(10000));
    const qint64 pid = process->processId();
    ASSERT_TRUE(process->waitForFinished(10000));
    EXPECT_EQ(QString::fromUtf8(process->readAllStandardOutput()), GetParam().expected(pid));
}

INSTANTIATE_TEST_SUITE_P(
    Table, TaskForShellCommandTest,
    ::testing::Values(
        // Split into words, the quotes would reach printf as separate arguments.
        TaskCase{"BlanksStayInOneArgument", "printf '[%s]' \"a b\"   c", [](qint64) { return QStringLiteral("[a b][c]"); }},
        TaskCase{"OwnProcessGroup", "echo $$ $(cut -d' ' -f5 /proc/$$/stat)",
                 [](qint64 pid) { return QStringLiteral("%1 %1\n").arg(pid); }},
        TaskCase{"InputIsTheNullDevice", "readlink /proc/$$/fd/0", [](qint64) { return QStringLiteral("/dev/null\n"); }}),
    [](const auto &info) { return std::string(info.param.name); });

struct SyncCase
{
    const char *name;
    const char *command;
    std::optional<QString> expected;
};

void PrintTo(const SyncCase &c, std::ostream *os)
{
    *os << c.name;
}

class SynchronousTest : public ::testing::TestWithParam<SyncCase>
{};

TEST_P(SynchronousTest, ReturnsBothStreamsAsOneUtf8Text)
{
    EXPECT_EQ(ShellTask::executeShellCommandSynchronously(QString::fromLatin1(GetParam().command)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SynchronousTest,
    ::testing::Values(SyncCase{"StreamsInterleaved", "echo one; echo two >&2; echo three", QStringLiteral("one\ntwo\nthree\n")},
                      SyncCase{"ValidUtf8", "printf 'h\\303\\251'", QStringLiteral("hé")},
                      SyncCase{"InvalidUtf8GivesNone", "printf 'ok\\377'", std::nullopt},
                      SyncCase{"NoOutputIsEmptyNotNone", "true", QStringLiteral("")},
                      SyncCase{"ExitStatusIgnored", "echo x; exit 3", QStringLiteral("x\n")}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(ShellTaskTest, SynchronousCallEndsAtEndOfFileWhileTheCommandRunsOn)
{
    QElapsedTimer timer;
    timer.start();
    const std::optional<QString> output =
        ShellTask::executeShellCommandSynchronously(QStringLiteral("echo $$; exec >&- 2>&-; sleep 30"));
    EXPECT_LT(timer.elapsed(), 10000);
    ASSERT_TRUE(output.has_value());
    bool ok = false;
    const qint64 pid = output->trimmed().toLongLong(&ok);
    ASSERT_TRUE(ok) << output->toStdString();
    EXPECT_TRUE(TestEnvironment::processAlive(pid));
    ASSERT_TRUE(ShellTask::signalProcessGroup(pid, SIGKILL));
    ASSERT_TRUE(TestEnvironment::waitUntil([pid] { return !TestEnvironment::processAlive(pid); }, 5s));
}

TEST(ShellTaskTest, AsynchronousCommandRunsOnItsOwn)
{
    QTemporaryDir dir;
    const QString marker = dir.filePath(QStringLiteral("marker"));
    ShellTask::executeShellCommandAsynchronously(QStringLiteral("echo spoken > '%1'").arg(marker));
    ASSERT_TRUE(TestEnvironment::waitUntil(
        [&] {
            QFile file(marker);
            return file.open(QIODevice::ReadOnly) && file.readAll() == "spoken\n";
        },
        5s));
}

} // namespace
