#include "PerfHelper/ShellTask.h"

#include "common/TestEnvironment.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <signal.h>

using namespace std::chrono_literals;

namespace {

struct ShellCase
{
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
                      ShellCase{"LongOutputWhole", "head -c 100000 /dev/zero | tr '\\0' x", kLong, kLong}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(ShellTask, SynchronousCallEndsAtEndOfFileWhileTheCommandRunsOn)
{
    QElapsedTimer timer;
    timer.start();
    const std::optional<QString> output =
        ShellTask::executeShellCommandSynchronously(QStringLiteral("echo $$; exec >&- 2>&-; sleep 30"));
    EXPECT_LT(timer.elapsed(), 10000);
    const qint64 pid = output.value_or(QString()).trimmed().toLongLong();
    EXPECT_TRUE(TestEnvironment::processAlive(pid));
    ASSERT_TRUE(ShellTask::signalProcessGroup(pid, SIGKILL));
    // The shell is reaped in the background.
    ASSERT_TRUE(TestEnvironment::waitUntil([pid] { return !QFile::exists(QStringLiteral("/proc/%1").arg(pid)); }, 5s));
    // Nor is there ever one at 0 (our own) or below.
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

} // namespace
