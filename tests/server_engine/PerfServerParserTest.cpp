#include "PerfHelper/PerfServer.h"
#include "common/TestEnvironment.h"
#include "server_engine/RecordingDelegate.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// One record as "interval|bytes|bits/s|jitter|lost/total|type|ip".
QStringList describe(const PerfResultList &records)
{
    QStringList out;
    for (const PerfResultPtr &r : records)
        out << QStringList{r->intervals, QString::number(double(r->receivedBytes), 'g', 12),
                           QString::number(double(r->receivedBandwidth), 'g', 12), r->jitter,
                           r->lostTotalDataGrams, r->typeName, r->ip}
                   .join(QLatin1Char('|'));
    return out;
}

const QString kConnection = QStringLiteral("Accepted connection from 10.0.0.5, port 50000\n");
const QString kDashes = QStringLiteral("-----------------------------------------------------------\n");
const QString kReport = QStringLiteral("[  5]   0.00-1.00   sec   119 MBytes  1000000 Kbits/sec                  \n");
const QString kTag = QStringLiteral("RESULT_$#0.00-1.00 sec$#125000000$#1000000000$#receiver\n");
const QString kRecord = QStringLiteral("0.00-1.00 sec|125000000|1000000000|-|-|receiver|10.0.0.5");
const QString kFinal = QStringLiteral("Finished_$#0.00-2.00 sec$#250$#1000$#receiver\n");
const QString kFinalRecord = QStringLiteral("0.00-2.00 sec|250|1000|-|-|receiver|10.0.0.5");
const QString kError = QStringLiteral("iperf3: error - the client has terminated\n");
const QString kPortInUse = QStringLiteral(
    "iperf3: error - unable to start listener for connections: Address already in use\niperf3: exiting\n");
const QString kI = QStringLiteral("reportIntervalNew");
const QString kF = QStringLiteral("testDidFinished");

struct ParserCase
{
    const char *name;
    QStringList chunks;    // fed in order
    QStringList events;    // delegate calls, in order
    QString clientIP;      // afterwards; null with no current test at all
    QStringList intervals; // the current test's interval records
    QStringList finals;    // the current test's final records
};

void PrintTo(const ParserCase &c, std::ostream *os) { *os << c.name; }

class PerfServerParser : public ::testing::TestWithParam<ParserCase>
{
};

TEST_P(PerfServerParser, TurnsChunksIntoRecordsAndCallbacks)
{
    const ParserCase &c = GetParam();
    RecordingDelegate delegate;
    PerfServer server;
    server.setDelegate(&delegate);
    for (const QString &chunk : c.chunks)
        server.didReceivePerfTestRespnose(chunk);

    EXPECT_EQ(delegate.events, c.events);
    EXPECT_EQ(server.clientIP(), c.clientIP);
    ASSERT_EQ(server.currentTest() == nullptr, c.clientIP.isNull());
    if (server.currentTest()) {
        EXPECT_EQ(describe(server.currentTest()->intervalResults), c.intervals);
        EXPECT_EQ(describe(server.currentTest()->finalResults), c.finals);
    }
}

const QString kIp = QStringLiteral("10.0.0.5");

INSTANTIATE_TEST_SUITE_P(
    Chunks, PerfServerParser,
    ::testing::Values(
        ParserCase{"ConnectionOnlyStartsEmptyTest", {kConnection}, {}, kIp, {}, {}},
        ParserCase{"ListeningBlockIsCutAtConnection",
                   {kDashes + QStringLiteral("Server listening on 5201 (test #1)\n") + kDashes + kConnection}, {}, kIp,
                   {}, {}},
        ParserCase{"CutOffConnectionLineKeepsAddress", {kConnection, QStringLiteral("Accepted connection\n")}, {},
                   kIp, {}, {}},
        ParserCase{"TcpLineOfFiveFields", {kConnection, kReport + kTag}, {kI}, kIp, {kRecord}, {}},
        ParserCase{"UdpLineOfSevenFields",
                   {kConnection, QStringLiteral("[  5] x\nRESULT_$#1.00-2.00 sec$#131072$#1048576$#0.012 ms$#0/8 "
                                                "(0%)$#receiver  \n")},
                   {kI}, kIp, {QStringLiteral("1.00-2.00 sec|131072|1048576|0.012 ms|0/8 (0%)|receiver|10.0.0.5")},
                   {}},
        // No line buffering: the second line's fields run into the first.
        ParserCase{"ChunkStartingWithMarkerIsOneLine",
                   {kConnection, QStringLiteral("RESULT_$#0.00-1.00 sec$#100$#800$#receiver\n"
                                                "RESULT_$#1.00-2.00 sec$#200$#1600$#receiver\n")},
                   {kI}, kIp, {QStringLiteral("0.00-1.00 sec|100|800|receiver\nRESULT_|1.00-2.00 sec|200|10.0.0.5")},
                   {}},
        ParserCase{"ShortLineAddsPreviousRecordAgain",
                   {kConnection, kReport + kTag + QStringLiteral("RESULT_$#1.00-2.00 sec$#5\n")}, {kI, kI}, kIp,
                   {kRecord, kRecord}, {}},
        ParserCase{"RecordsBeforeAnyConnectionAreLost", {kReport + kTag, kFinal}, {}, QString(), {}, {}},
        ParserCase{"ErrorLineEndsIntervalLines", {kConnection, kReport + kTag + kError + kTag}, {kI}, kIp, {kRecord},
                   {}},
        ParserCase{"TrailingLinesOfFinalBlockRepeatRecord",
                   {kConnection, kReport + kFinal + kDashes + QStringLiteral("Server listening on 5201 (test #2)\n")},
                   {kF}, kIp, {}, {kFinalRecord, kFinalRecord, kFinalRecord}},
        ParserCase{"ShortFinalLineWithoutEarlierRecordAddsNothing",
                   {kConnection, QStringLiteral("- - -\nFinished_$#0.00\n")}, {kF}, kIp, {}, {}},
        ParserCase{"FinalBlockWithErrorSendsNothing", {kConnection, kReport + kFinal + kError}, {}, kIp, {},
                   {kFinalRecord}},
        ParserCase{"FinalChunkWithErrorIsOneErrorLine", {kConnection, kFinal + kError}, {}, kIp, {}, {}},
        // One chunk goes through the connection, interval and final steps.
        ParserCase{"WholeTestInOneChunk",
                   {kConnection + QStringLiteral("[  5] local 127.0.0.1 port 5201 connected to 10.0.0.5 port 2\n")
                    + kReport + kTag + QStringLiteral("- - - - -\n[ ID] Interval           Transfer\n") + kFinal},
                   {kI, kF}, kIp, {kRecord}, {kFinalRecord}},
        ParserCase{"PortInUseStopsAtTheError", {kPortInUse, kConnection + kReport + kTag + kPortInUse},
                   {QStringLiteral("serverError:") + kPortInUse,
                    QStringLiteral("serverError:") + kConnection + kReport + kTag + kPortInUse},
                   QString(), {}, {}},
        ParserCase{"LenientNumbers", {kConnection, QStringLiteral("x\nRESULT_$#0.00-1.00 sec$#  42abc$#k$#sender\n")},
                   {kI}, kIp, {QStringLiteral("0.00-1.00 sec|42|0|-|-|sender|10.0.0.5")}, {}}),
    [](const ::testing::TestParamInfo<ParserCase> &info) { return std::string(info.param.name); });

// Launcher output captured in server mode (CaptureServerChunks), replayed
// chunk by chunk as it was read: TCP, UDP, TCP reverse from 127.0.0.1. Each
// final block came with the next "Server listening" lines, which append the
// summary record three more times.
TEST(PerfServerParserTest, ReplaysCapturedServerOutput)
{
    QFile file(TestEnvironment::dataDir() + QStringLiteral("/server-three-tests.json"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    RecordingDelegate delegate;
    PerfServer server;
    server.setDelegate(&delegate);
    for (const QJsonValue &chunk : QJsonDocument::fromJson(file.readAll())["chunks"].toArray())
        server.didReceivePerfTestRespnose(chunk.toString());

    ASSERT_EQ(delegate.finished.size(), 3);
    const QList<std::tuple<QString, bool, int>> expected{{QStringLiteral("receiver"), false, 3},
                                                         {QStringLiteral("receiver"), true, 2},
                                                         {QStringLiteral("sender"), false, 2}};
    for (int i = 0; i < 3; ++i) {
        const auto &[role, udp, intervals] = expected.at(i);
        const iPerfServerResultsPtr test = delegate.finished.at(i);
        EXPECT_EQ(test->intervalResults.size(), intervals);
        EXPECT_EQ(test->finalResults.size(), 4);
        for (const PerfResultPtr &r : test->intervalResults + test->finalResults) {
            EXPECT_EQ(r->typeName, role);
            EXPECT_EQ(r->ip, QStringLiteral("127.0.0.1"));
            EXPECT_EQ(r->jitter.endsWith(QLatin1String(" ms")), udp);
        }
    }
    EXPECT_EQ(delegate.count(kI), 7);
}

TEST(PerfServerParserTest, DelegateMissingOrGoneGetsNothing)
{
    // Optional callbacks reach only a delegate that answers to them.
    struct RequiredOnly : PerfServerDelegate
    {
        void reportIntervalNew(const iPerfServerResultsPtr &) override { ++calls; }
        void testDidFinished(const iPerfServerResultsPtr &) override { ++calls; }
        int calls = 0;
    } minimal;
    PerfServer server;
    server.setDelegate(&minimal);
    server.didReceivePerfTestRespnose(kPortInUse);
    server.reportIntervals({});
    server.testFinished({});
    EXPECT_EQ(minimal.calls, 0);

    auto recording = std::make_unique<RecordingDelegate>();
    server.setDelegate(recording.get());
    server.reportIntervals({std::make_shared<PerfResult>()});
    server.testFinished({});
    EXPECT_EQ(recording->events, (QStringList{QStringLiteral("reportInterval:1"),
                                              QStringLiteral("testDidFinishedWithServerLog:0")}));
    // A delegate destroyed before the server is not called.
    recording.reset();
    server.didReceivePerfTestRespnose(kConnection + kReport + kTag + kFinal);
    server.didReceivePerfTestRespnose(kPortInUse);
    EXPECT_EQ(server.currentTest()->intervalResults.size(), 1);
}

} // namespace
