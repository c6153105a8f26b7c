#include "client_engine/CallRecorder.h"
#include "common/TestEnvironment.h"

#include "PerfHelper/PerfTest.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

using namespace CallText;

struct Settings
{
    qint64 testType = 0;
    qint64 reverse = 0;
    qint64 duration = 10;
    qint64 bandwidthformat = 0;
};

void apply(PerfTest &test, const Settings &settings)
{
    test.testType = settings.testType;
    test.reverse = settings.reverse;
    test.duration = settings.duration;
    test.bandwidthformat = settings.bandwidthformat;
}

struct ParserCase
{
    std::string name;
    Settings settings;
    QStringList chunks; // fed one after the other
    QStringList expected;
};

void PrintTo(const ParserCase &c, std::ostream *os)
{
    *os << c.name;
}

const Settings kTcp{};
const Settings kTcp3s{0, 0, 3, 0};
const Settings kUdp{1, 0, 10, 0};
const Settings kUdpReverse{1, 1, 10, 0};

const QString kUdpLine = QStringLiteral("RESULT_$#0.00-1.00 sec$#524288$#4194304$#0.012 ms$#0/8 (0%)$#receiver\n");
const QString kConnection
    = QStringLiteral("Connecting to host 127.0.0.1, port 5201\n"
                     "[  5] local 127.0.0.1 port 40000 connected to 127.0.0.1 port 5201\n");
const QString kTcpFinal3s
    = QStringLiteral("- - - - - - - - - - - - - - - - - - - - - - - - -\n"
                     "[ ID] Interval           Transfer     Bitrate         Retr\n"
                     "[  5]   0.00-3.00   sec  1.00 KBytes  8 Kbits/sec    0             sender\n"
                     "Finished_$#0.00-3.00 sec$#1000$#8000$#sender\n"
                     "[  5]   0.00-3.00   sec  0.99 KBytes  7.9 Kbits/sec                  receiver\n"
                     "Finished_$#0.00-3.00 sec$#990$#7900$#receiver\n"
                     "\niperf Done.\n");

class Parser : public ::testing::TestWithParam<ParserCase>
{
};

TEST_P(Parser, DelegateCallsInOrder)
{
    PerfTestRecorder recorder;
    PerfTest test;
    apply(test, GetParam().settings);
    test.setDelegate(&recorder);
    for (const QString &chunk : GetParam().chunks)
        test.didReceivePerfTestRespnose(chunk);
    EXPECT_EQ(recorder.calls, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    PerfTest, Parser,
    ::testing::Values(
        // Intervals
        ParserCase{"tcp_interval_line", kTcp, {"RESULT_$#0.00-1.00 sec$#524288$#4194304$#sender\n"},
                   {interval(record("0.00", "1.00", 524288, 4194304))}},
        ParserCase{"unit_words_are_dropped", kTcp, {"RESULT_$#0.00-1.00 sec$#512 KBytes$#4096 Kbits/sec$#sender\n"},
                   {interval(record("0.00", "1.00", 512, 4096))}},
        ParserCase{"kilo_format_is_copied", {0, 0, 10, 1}, {"RESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {interval(record("0.00", "1.00", 1, 8, {}, {}, 1))}},
        ParserCase{"udp_interval_without_reverse_has_no_jitter", kUdp, {kUdpLine},
                   {interval(record("0.00", "1.00", 524288, 4194304))}},
        ParserCase{"udp_reverse_interval_has_jitter_and_loss", kUdpReverse, {kUdpLine},
                   {interval(record("0.00", "1.00", 524288, 4194304, "0.012 ms", "0/8 (0%)"))}},
        ParserCase{"chunk_starting_with_tag_is_one_line", kTcp,
                   {"RESULT_$#0.00-1.00 sec$#100$#800$#sender\nRESULT_$#1.00-2.00 sec$#200$#1600$#sender\n"},
                   {interval(record("0.00", "1.00", 100, 800))}},
        ParserCase{"text_before_first_tag_is_dropped", kTcp,
                   {"[  5]   0.00-1.00   sec   100 Bytes  0.80 Kbits/sec    0   1.37 MBytes       \n"
                    "RESULT_$#0.00-1.00 sec$#100$#800$#sender\n"
                    "[  5]   1.00-2.00   sec   200 Bytes  1.60 Kbits/sec    0   1.37 MBytes       \n"
                    "RESULT_$#1.00-2.00 sec$#200$#1600$#sender\n"},
                   {interval(record("0.00", "1.00", 100, 800)), interval(record("1.00", "2.00", 200, 1600))}},
        ParserCase{"interval_without_dash_is_skipped", kTcp,
                   {"x\nRESULT_$#1.00 sec$#100$#800$#sender\nRESULT_$#1.00-2.00 sec$#200$#1600$#sender\n"},
                   {interval(record("1.00", "2.00", 200, 1600))}},
        ParserCase{"too_few_fields_report_nothing", kTcp, {"RESULT_$#0.00-1.00 sec$#100\n"}, {}},
        ParserCase{"line_cut_in_the_rate", kTcp, {"RESULT_$#0.00-1.00 sec$#524288$#41", "94304$#sender\n"},
                   {interval(record("0.00", "1.00", 524288, 41))}},
        ParserCase{"connection_chunk_reports_only_the_address", kTcp,
                   {kConnection + "[ ID] Interval\n[  5] ...\nRESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {ip("127.0.0.1")}},
        ParserCase{"results_after_the_connection_chunk", kTcp,
                   {kConnection, "RESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {ip("127.0.0.1"), interval(record("0.00", "1.00", 1, 8))}},
        ParserCase{"connection_line_without_local", kTcp,
                   {"[  5] connected to 10.0.0.1 port 5201\nRESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {interval(record("0.00", "1.00", 1, 8))}},
        ParserCase{"connection_line_without_port_after_local", kTcp,
                   {"port 1: local 10.0.0.7 connected to 10.0.0.1\nRESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {interval(record("0.00", "1.00", 1, 8))}},
        // Final lines
        ParserCase{"final_block_reports_first_final_line_twice", kTcp3s, {kTcpFinal3s},
                   {interval(record("0.00", "3.00", 1000, 8000)), finished(record("0.00", "3.00", 1000, 8000))}},
        ParserCase{"final_end_short_of_duration_goes_on", kTcp,
                   {"- - -\nFinished_$#0.00-9.99 sec$#1$#8$#sender\nFinished_$#0.00-10.00 sec$#2$#16$#receiver\n"},
                   {interval(record("0.00", "9.99", 1, 8)), interval(record("0.00", "10.00", 2, 16)),
                    finished(record("0.00", "10.00", 2, 16))}},
        ParserCase{"short_final_line_still_completes_the_chunk", kTcp,
                   {"- - -\nFinished_$#0.00-9.99 sec$#1$#8$#sender\n", "RESULT_$#9.00-10.00 sec$#1$#8$#sender\n"},
                   {interval(record("0.00", "9.99", 1, 8)), finished(record("0.00", "9.99", 1, 8))}},
        ParserCase{"zero_duration_stops_at_the_first_final_line", {0, 0, 0, 0},
                   {"- - -\nFinished_$#short\nFinished_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {finished(record({}, {}, 0, 0))}},
        ParserCase{"udp_final_lines_carry_jitter_without_reverse", {1, 0, 3, 0},
                   {"- - -\nFinished_$#0.00-3.00 sec$#393375$#1049000$#0.000 ms$#0/12 (0%)$#sender\n"},
                   {interval(record("0.00", "3.00", 393375, 1049000, "0.000 ms", "0/12 (0%)")),
                    finished(record("0.00", "3.00", 393375, 1049000, "0.000 ms", "0/12 (0%)"))}},
        ParserCase{"chunk_starting_with_final_tag_is_one_line", kTcp3s,
                   {"Finished_$#0.00-3.00 sec$#1$#8$#sender\nFinished_$#0.00-3.00 sec$#2$#16$#receiver\n"},
                   {interval(record("0.00", "3.00", 1, 8)), finished(record("0.00", "3.00", 1, 8))}},
        ParserCase{"intervals_before_final_lines_and_a_result_line_ends_them", kTcp,
                   {"x\nFinished_$#0.00-1.00 sec$#5$#40$#sender\nRESULT_$#1.00-2.00 sec$#6$#48$#sender\n"
                    "Finished_$#0.00-2.00 sec$#7$#56$#receiver\n"},
                   {interval(record("1.00", "2.00", 6, 48)), interval(record("0.00", "1.00", 5, 40)),
                    finished(record("0.00", "1.00", 5, 40))}},
        ParserCase{"decided_test_ignores_later_chunks", kTcp3s,
                   {kTcpFinal3s, "RESULT_$#3.00-4.00 sec$#1$#8$#sender\n", "iperf3: error - late\n"},
                   {interval(record("0.00", "3.00", 1000, 8000)), finished(record("0.00", "3.00", 1000, 8000))}},
        // Errors
        ParserCase{"error_fails_with_the_whole_chunk", kTcp,
                   {"iperf3: error - unable to connect to server: Connection refused\n"},
                   {fail("iperf3: error - unable to connect to server: Connection refused\n")}},
        ParserCase{"error_line_ends_interval_handling", kTcp,
                   {"x\nRESULT_$#0.00-1.00 sec$#1$#8$#sender\niperf3: error - control socket has closed unexpectedly\n"
                    "RESULT_$#1.00-2.00 sec$#2$#16$#sender\n"},
                   {interval(record("0.00", "1.00", 1, 8)),
                    fail("x\nRESULT_$#0.00-1.00 sec$#1$#8$#sender\niperf3: error - control socket has closed "
                         "unexpectedly\nRESULT_$#1.00-2.00 sec$#2$#16$#sender\n")}},
        ParserCase{"failure_does_not_decide_the_test", kTcp,
                   {"iperf3: error - x\n", "RESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {fail("iperf3: error - x\n"), interval(record("0.00", "1.00", 1, 8))}},
        ParserCase{"error_after_a_last_final_line_fails_and_decides", kTcp,
                   {"x\nFinished_$#0.00-10.00 sec$#1$#8$#sender\niperf3: error - y\n",
                    "RESULT_$#0.00-1.00 sec$#1$#8$#sender\n"},
                   {interval(record("0.00", "10.00", 1, 8)),
                    fail("x\nFinished_$#0.00-10.00 sec$#1$#8$#sender\niperf3: error - y\n")}},
        // Nothing to report
        ParserCase{"plain_text_reports_nothing", kTcp,
                   {QString(), QStringLiteral(""), "iperf Done.\n", "Connecting to host 127.0.0.1, port 5201\n",
                    "- - - - - - - - - - - - - - - - - - - - - - - - -\n"},
                   {}}),
    [](const ::testing::TestParamInfo<ParserCase> &info) { return info.param.name; });

// Streams captured from the launcher over stock iperf3 3.12, chunk by chunk.
struct FixtureCase
{
    std::string name;
    QString file;
    Settings settings;
    QStringList expected;
};

void PrintTo(const FixtureCase &c, std::ostream *os)
{
    *os << c.name;
}

class CapturedStream : public ::testing::TestWithParam<FixtureCase>
{
};

TEST_P(CapturedStream, DelegateCallsInOrder)
{
    const QByteArrayList chunks = readChunkFixture(TestEnvironment::dataDir() + QLatin1Char('/') + GetParam().file);
    ASSERT_FALSE(chunks.isEmpty());
    PerfTestRecorder recorder;
    PerfTest test;
    apply(test, GetParam().settings);
    test.setDelegate(&recorder);
    for (const QByteArray &chunk : chunks)
        test.didReceivePerfTestRespnose(QString::fromUtf8(chunk));
    EXPECT_EQ(recorder.calls, GetParam().expected);
    EXPECT_TRUE(test.hasTestFinished());
    // The final record goes out twice: as an interval and as the result.
    ASSERT_GE(recorder.records.size(), 2);
    EXPECT_EQ(recorder.records.at(recorder.records.size() - 1), recorder.records.at(recorder.records.size() - 2));
}

// The launcher's first report comes in one chunk with the connection line,
// so that interval is not reported (only the address is).
INSTANTIATE_TEST_SUITE_P(
    PerfTest, CapturedStream,
    ::testing::Values(
        FixtureCase{"tcp",
                    "client-tcp-3s.txt",
                    kTcp3s,
                    {ip("127.0.0.1"), interval(record("1.00", "2.00", 535298048, 4274374000.0)),
                     interval(record("2.00", "3.01", 594018304, 4728680000.0)),
                     interval(record("0.00", "3.01", 1710368914, 4545831000.0)),
                     finished(record("0.00", "3.01", 1710368914, 4545831000.0))}},
        FixtureCase{"udp",
                    "client-udp-3s.txt",
                    {1, 0, 3, 0},
                    {ip("127.0.0.1"), interval(record("1.00", "2.00", 131125, 1049000)),
                     interval(record("2.00", "3.00", 131125, 1049000)),
                     interval(record("0.00", "3.00", 393375, 1049000, "0.000 ms", "0/12 (0%)")),
                     finished(record("0.00", "3.00", 393375, 1049000, "0.000 ms", "0/12 (0%)"))}},
        FixtureCase{"udp_reverse",
                    "client-udp-reverse-3s.txt",
                    {1, 1, 3, 0},
                    {ip("127.0.0.1"), interval(record("1.00", "2.00", 131125, 1049000, "0.052 ms", "0/4 (0%)")),
                     interval(record("2.00", "3.00", 131125, 1049000, "0.046 ms", "0/4 (0%)")),
                     interval(record("0.00", "3.00", 425625, 1135000, "0.000 ms", "0/13 (0%)")),
                     finished(record("0.00", "3.00", 425625, 1135000, "0.000 ms", "0/13 (0%)"))}}),
    [](const ::testing::TestParamInfo<FixtureCase> &info) { return info.param.name; });

// A delegate may stop or destroy the test from inside a callback; the rest of
// the chunk then reports nothing.
struct ReentrantDelegate : PerfTestRecorder
{
    std::function<void()> onInterval;
    void reportInterval(const PerfResultPtr &result) override
    {
        PerfTestRecorder::reportInterval(result);
        onInterval();
    }
};

const QString kThreeLines = QStringLiteral("x\nRESULT_$#0.00-1.00 sec$#1$#8$#sender\nRESULT_$#1.00-2.00 sec$#1$#8$#sender\n"
                                           "Finished_$#0.00-10.00 sec$#1$#8$#sender\n");

TEST(ParserReentry, StopInsideACallbackEndsReporting)
{
    ReentrantDelegate delegate;
    PerfTest test;
    test.setDelegate(&delegate);
    delegate.onInterval = [&test] { test.stop(); };
    test.didReceivePerfTestRespnose(kThreeLines);
    EXPECT_EQ(delegate.calls.size(), 1);
    EXPECT_TRUE(test.hasCancelled());
}

TEST(ParserReentry, DestroyingTheTestInsideACallbackIsSafe)
{
    ReentrantDelegate delegate;
    auto *test = new PerfTest;
    test->setDelegate(&delegate);
    delegate.onInterval = [&test] {
        delete test;
        test = nullptr;
    };
    test->didReceivePerfTestRespnose(kThreeLines);
    EXPECT_EQ(test, nullptr);
    EXPECT_EQ(delegate.calls.size(), 1);
}

TEST(ParserDelegate, GoneDelegateIsNeverCalled)
{
    PerfTest test;
    {
        PerfTestRecorder recorder;
        test.setDelegate(&recorder);
        EXPECT_EQ(test.delegate(), &recorder);
    }
    EXPECT_EQ(test.delegate(), nullptr);
    // Without a delegate the connection line does not end the chunk.
    test.didReceivePerfTestRespnose(kConnection + QStringLiteral("RESULT_$#0.00-1.00 sec$#1$#8$#sender\n"));
    ASSERT_TRUE(test.result());
    EXPECT_EQ(test.result()->endTime, QStringLiteral("1.00"));
    test.didReceivePerfTestRespnose(QStringLiteral("x\nFinished_$#0.00-10.00 sec$#1$#8$#sender\n"));
    EXPECT_TRUE(test.hasTestFinished());
}

} // namespace
