#include "client_engine/CallRecorder.h"
#include "common/TestEnvironment.h"

#include "PerfHelper/PerfTest.h"
#include "PerfHelper/TidewaveUtils.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>

using namespace std::chrono_literals;

namespace {

using namespace CallText;

const QString kTimeoutText = QStringLiteral("Connection timedout, no Response received from server.");

// Puts a stand-in for the measurement tool at the tool path (or removes it).
void placeTool(const QByteArray &script, bool executable = true)
{
    const QString path = TidewaveUtils::getiPerfExecutablePath();
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    if (script.isNull())
        return;
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(script);
    file.close();
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        permissions |= QFile::ExeOwner;
    ASSERT_TRUE(file.setPermissions(permissions));
}

class FakeToolTest : public ::testing::Test
{
protected:
    void TearDown() override { placeTool(QByteArray()); }
};

struct NoResponseCase
{
    std::string name;
    QByteArray script; // null: no tool at all
    bool executable;
};

void PrintTo(const NoResponseCase &c, std::ostream *os)
{
    *os << c.name;
}

class NoResponse : public FakeToolTest, public ::testing::WithParamInterface<NoResponseCase>
{
};

// The shell reports the problem on standard error only, so the time-out is
// what ends the test.
TEST_P(NoResponse, EndsInTheTimeoutFailure)
{
    placeTool(GetParam().script, GetParam().executable);
    PerfTestRecorder recorder;
    PerfTest test;
    test.setDelegate(&recorder);
    QElapsedTimer clock;
    clock.start();
    test.run();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !recorder.calls.isEmpty(); }, 7s));
    EXPECT_GE(clock.elapsed(), 4900);
    EXPECT_EQ(recorder.calls, QStringList{fail(kTimeoutText)});
    EXPECT_TRUE(test.hasCancelled());
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !test.isRunning(); }, 5s));
    EXPECT_EQ(recorder.calls.size(), 1);
}

INSTANTIATE_TEST_SUITE_P(PerfTest, NoResponse,
                         ::testing::Values(NoResponseCase{"missing_tool", QByteArray(), true},
                                           NoResponseCase{"tool_not_executable", "#!/bin/sh\necho hi\n", false}),
                         [](const ::testing::TestParamInfo<NoResponseCase> &info) { return info.param.name; });

TEST_F(FakeToolTest, OutputBeforeFiveSecondsPreventsTheTimeout)
{
    placeTool("#!/bin/sh\nsleep 3\necho 'Connecting to host 127.0.0.1, port 5201'\nsleep 1\n");
    PerfTestRecorder recorder;
    PerfTest test;
    test.setDelegate(&recorder);
    test.run();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return test.hasReceivediPerfResponse(); }, 6s));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !test.isRunning(); }, 5s));
    EXPECT_TRUE(recorder.calls.isEmpty());
    EXPECT_FALSE(test.hasCancelled());
}

struct StreamCase
{
    std::string name;
    QByteArray script;
    QStringList expected;
};

void PrintTo(const StreamCase &c, std::ostream *os)
{
    *os << c.name;
}

class Stream : public FakeToolTest, public ::testing::WithParamInterface<StreamCase>
{
};

TEST_P(Stream, ChunksReachTheParserAsWritten)
{
    placeTool(GetParam().script);
    PerfTestRecorder recorder;
    PerfTest test;
    test.setDelegate(&recorder);
    test.run();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return test.processId() > 0 && !test.isRunning(); }, 5s));
    EXPECT_EQ(recorder.calls, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    PerfTest, Stream,
    ::testing::Values(
        StreamCase{"in_arrival_order",
                   "#!/bin/sh\n"
                   "echo '[  5] local 127.0.0.1 port 40000 connected to 127.0.0.1 port 5201'\nsleep 0.2\n"
                   "printf 'RESULT_$#0.00-1.00 sec$#1$#8$#sender\\n'\nsleep 0.2\n"
                   "printf 'RESULT_$#1.00-2.00 sec$#2$#16$#sender\\n'\nsleep 0.2\n"
                   "printf 'x\\nFinished_$#0.00-2.00 sec$#3$#24$#sender\\n'\n",
                   {ip("127.0.0.1"), interval(record("0.00", "1.00", 1, 8)), interval(record("1.00", "2.00", 2, 16)),
                    interval(record("0.00", "2.00", 3, 24)), finished(record("0.00", "2.00", 3, 24))}},
        StreamCase{"invalid_utf8_chunk_is_ignored",
                   "#!/bin/sh\nprintf '\\377RESULT_$#0.00-1.00 sec$#1$#8$#sender\\n'\nsleep 0.3\n"
                   "printf 'RESULT_$#1.00-2.00 sec$#2$#16$#sender\\n'\n",
                   {interval(record("1.00", "2.00", 2, 16))}},
        StreamCase{"standard_error_is_not_parsed",
                   "#!/bin/sh\necho 'iperf3: error - on standard error' >&2\nsleep 0.3\n"
                   "printf 'RESULT_$#0.00-1.00 sec$#1$#8$#sender\\n'\n",
                   {interval(record("0.00", "1.00", 1, 8))}}),
    [](const ::testing::TestParamInfo<StreamCase> &info) { return info.param.name; });

// What is left unread on the two pipes when the shell ends.
struct EndCase
{
    std::string name;
    bool cancelled;
    bool decided;
    QByteArray outputRest;
    QByteArray errorRest;
    QStringList expected;
    bool decidedAfter;
};

void PrintTo(const EndCase &c, std::ostream *os)
{
    *os << c.name;
}

class EndOfProcess : public ::testing::TestWithParam<EndCase>
{
};

TEST_P(EndOfProcess, Rules)
{
    PerfTestRecorder recorder;
    PerfTest test;
    test.duration = 3;
    test.setDelegate(&recorder);
    if (GetParam().cancelled)
        test.stop();
    if (GetParam().decided)
        test.didReceivePerfTestRespnose(QStringLiteral("Finished_$#0.00-3.00 sec$#1$#8$#sender\n"));
    recorder.calls.clear();
    test.processDidEnd(GetParam().outputRest, GetParam().errorRest);
    EXPECT_EQ(recorder.calls, GetParam().expected);
    EXPECT_EQ(test.hasTestFinished(), GetParam().decidedAfter);
}

INSTANTIATE_TEST_SUITE_P(
    PerfTest, EndOfProcess,
    ::testing::Values(
        EndCase{"final_lines_are_parsed", false, false, "x\nFinished_$#0.00-3.00 sec$#1$#8$#sender\n", "",
                {interval(record("0.00", "3.00", 1, 8)), finished(record("0.00", "3.00", 1, 8))}, true},
        EndCase{"done_with_error_goes_to_the_parser", false, false, "iperf3: error - x\niperf Done.\n", "boom\n",
                {fail("iperf3: error - x\niperf Done.\n")}, false},
        EndCase{"error_uses_standard_error", false, false, "iperf3: error - x\n", "iperf3: error - x on stderr\n",
                {fail("iperf3: error - x on stderr\n")}, true},
        EndCase{"error_without_standard_error_uses_the_output", false, false, "iperf3: error - x\n", "",
                {fail("iperf3: error - x\n")}, true},
        EndCase{"plain_rest_reports_nothing", false, false, "Connecting to host\n", "sh: 1: not found\n", {}, false},
        EndCase{"nothing_after_a_stop", true, false, "iperf3: error - x\n", "boom\n", {}, false},
        EndCase{"nothing_after_a_decision", false, true, "iperf3: error - x\n", "boom\n", {}, true},
        EndCase{"undecodable_rest_reports_nothing", false, false, "\xff iperf3: error - x\n", "boom\n", {}, false}),
    [](const ::testing::TestParamInfo<EndCase> &info) { return info.param.name; });

} // namespace
