#include "PerfHelper/PerfServer.h"
#include "common/TestEnvironment.h"
#include "server_engine/RecordingDelegate.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSet>

#include <memory>

namespace {

// One record as "interval|bytes|bits/s|jitter|lost/total|type|ip".
QString describe(const PerfResultPtr &record)
{
    return QStringList{record->intervals,
                       QString::number(double(record->receivedBytes), 'g', 12),
                       QString::number(double(record->receivedBandwidth), 'g', 12),
                       record->jitter,
                       record->lostTotalDataGrams,
                       record->typeName,
                       record->ip}
        .join(QLatin1Char('|'));
}

QStringList describe(const PerfResultList &records)
{
    QStringList out;
    for (const PerfResultPtr &record : records)
        out << describe(record);
    return out;
}

const QString kConnection = QStringLiteral("Accepted connection from 10.0.0.5, port 50000\n");
const QString kDashes = QStringLiteral("-----------------------------------------------------------\n");
const QString kTcpReport = QStringLiteral("[  5]   0.00-1.00   sec   119 MBytes  1000000 Kbits/sec                  \n");
const QString kTcpTag = QStringLiteral("RESULT_$#0.00-1.00 sec$#125000000$#1000000000$#receiver\n");
const QString kTcpRecord = QStringLiteral("0.00-1.00 sec|125000000|1000000000|-|-|receiver|10.0.0.5");
const QString kFinalTag = QStringLiteral("Finished_$#0.00-2.00 sec$#250$#1000$#receiver\n");
const QString kFinalRecord = QStringLiteral("0.00-2.00 sec|250|1000|-|-|receiver|10.0.0.5");
const QString kPortInUse = QStringLiteral(
    "iperf3: error - unable to start listener for connections: Address already in use\niperf3: exiting\n");

struct ParserCase
{
    const char *name;
    QStringList chunks;     // fed in order
    QStringList events;     // delegate calls, in order
    bool hasTest;           // whether a current test exists afterwards
    QString clientIP;       // clientIP afterwards
    QStringList intervals;  // the current test's interval records
    QStringList finals;     // the current test's final records
};

void PrintTo(const ParserCase &c, std::ostream *os)
{
    *os << c.name;
}

class PerfServerParser : public ::testing::TestWithParam<ParserCase>
{
};

TEST_P(PerfServerParser, TurnsChunksIntoRecordsAndCallbacks)
{
    const ParserCase &c = GetParam();
    RecordingDelegate delegate;
    PerfServer server;
    server.setPort(5201);
    server.setDelegate(&delegate);
    for (const QString &chunk : c.chunks)
        server.didReceivePerfTestRespnose(chunk);

    EXPECT_EQ(delegate.events, c.events);
    EXPECT_EQ(server.clientIP(), c.clientIP);
    ASSERT_EQ(bool(server.currentTest()), c.hasTest);
    if (c.hasTest) {
        EXPECT_EQ(describe(server.currentTest()->intervalResults), c.intervals);
        EXPECT_EQ(describe(server.currentTest()->finalResults), c.finals);
    }
}

const QString kInterval = QStringLiteral("reportIntervalNew");
const QString kFinishedEvent = QStringLiteral("testDidFinished");

INSTANTIATE_TEST_SUITE_P(
    Chunks, PerfServerParser,
    ::testing::Values(
        ParserCase{"ConnectionOnlyStartsEmptyTest", {kConnection}, {}, true, QStringLiteral("10.0.0.5"), {}, {}},
        ParserCase{"ListeningBlockIsCutAtConnection",
                   {kDashes + QStringLiteral("Server listening on 5201 (test #1)\n") + kDashes + kConnection},
                   {}, true, QStringLiteral("10.0.0.5"), {}, {}},
        ParserCase{"ConnectionChunkWithLocalLineTakenWhole",
                   {QStringLiteral("Accepted connection from 192.168.1.20, port 53012\n"
                                   "[  5] local 192.168.1.10 port 5201 connected to 192.168.1.20 port 53014\n")},
                   {}, true, QStringLiteral("192.168.1.20"), {}, {}},
        ParserCase{"ShortConnectionLineKeepsPreviousAddress",
                   {kConnection, kTcpReport + kTcpTag, QStringLiteral("Accepted connection\n")},
                   {kInterval}, true, QStringLiteral("10.0.0.5"), {}, {}},
        ParserCase{"TcpLineOfFiveFields", {kConnection, kTcpReport + kTcpTag}, {kInterval}, true,
                   QStringLiteral("10.0.0.5"), {kTcpRecord}, {}},
        ParserCase{"UdpLineOfSevenFields",
                   {kConnection,
                    QStringLiteral("[  5]   1.00-2.00   sec   128 KBytes  1048 Kbits/sec  0.012 ms  0/8 (0%)  \n"
                                   "RESULT_$#1.00-2.00 sec$#131072$#1048576$#0.012 ms$#0/8 (0%)$#receiver  \n")},
                   {kInterval}, true, QStringLiteral("10.0.0.5"),
                   {QStringLiteral("1.00-2.00 sec|131072|1048576|0.012 ms|0/8 (0%)|receiver|10.0.0.5")}, {}},
        ParserCase{"ChunkStartingWithMarkerIsOneLine",
                   {kConnection, QStringLiteral("RESULT_$#0.00-1.00 sec$#100$#800$#receiver\n"
                                                "RESULT_$#1.00-2.00 sec$#200$#1600$#receiver\n")},
                   {kInterval}, true, QStringLiteral("10.0.0.5"),
                   {QStringLiteral("0.00-1.00 sec|100|800|receiver\nRESULT_|1.00-2.00 sec|200|10.0.0.5")}, {}},
        ParserCase{"ShortResultLineAddsPreviousRecordAgain",
                   {kConnection, kTcpReport + kTcpTag + QStringLiteral("RESULT_$#1.00-2.00 sec$#5\n")},
                   {kInterval, kInterval}, true, QStringLiteral("10.0.0.5"), {kTcpRecord, kTcpRecord}, {}},
        ParserCase{"ResultsBeforeAnyConnectionAreLost", {kTcpReport + kTcpTag, kFinalTag}, {}, false, QString(), {},
                   {}},
        ParserCase{"ErrorLineEndsIntervalLines",
                   {kConnection, kTcpReport + kTcpTag
                                     + QStringLiteral("iperf3: error - control socket has closed unexpectedly\n")
                                     + QStringLiteral("RESULT_$#1.00-2.00 sec$#100$#800$#receiver\n")},
                   {kInterval}, true, QStringLiteral("10.0.0.5"), {kTcpRecord}, {}},
        ParserCase{"TrailingLinesOfFinalBlockRepeatRecord",
                   {kConnection, QStringLiteral("[  5]   0.00-2.00   sec   250 Bytes  1.00 Kbits/sec  receiver\n")
                                     + kFinalTag + kDashes + QStringLiteral("Server listening on 5201 (test #2)\n")},
                   {kFinishedEvent}, true, QStringLiteral("10.0.0.5"), {}, {kFinalRecord, kFinalRecord, kFinalRecord}},
        ParserCase{"UdpFinalLineOfSevenFields",
                   {kConnection,
                    QStringLiteral("Finished_$#0.00-2.00 sec$#262144$#1048576$#0.015 ms$#0/16 (0%)$#receiver\n")},
                   {kFinishedEvent}, true, QStringLiteral("10.0.0.5"), {},
                   {QStringLiteral("0.00-2.00 sec|262144|1048576|0.015 ms|0/16 (0%)|receiver|10.0.0.5")}},
        ParserCase{"ShortFinalLineWithoutEarlierRecordAddsNothing",
                   {kConnection, QStringLiteral("- - -\nFinished_$#0.00\n")}, {kFinishedEvent}, true,
                   QStringLiteral("10.0.0.5"), {}, {}},
        ParserCase{"FinalBlockWithErrorSendsNothing",
                   {kConnection, kTcpReport + kFinalTag + QStringLiteral("iperf3: error - the client has terminated\n")},
                   {}, true, QStringLiteral("10.0.0.5"), {}, {kFinalRecord}},
        ParserCase{"ChunkStartingWithFinalMarkerAndErrorIsOneErrorLine",
                   {kConnection, kFinalTag + QStringLiteral("iperf3: error - the client has terminated\n")}, {}, true,
                   QStringLiteral("10.0.0.5"), {}, {}},
        ParserCase{"WholeTestInOneChunkGoesThroughEveryStep",
                   {QStringLiteral("Accepted connection from 10.0.0.7, port 40000\n"
                                   "[  5] local 127.0.0.1 port 5201 connected to 10.0.0.7 port 40002\n")
                    + kTcpReport + QStringLiteral("RESULT_$#0.00-1.00 sec$#100$#800$#receiver\n")
                    + QStringLiteral("- - - - - - - - -\n[ ID] Interval           Transfer     Bitrate\n")
                    + QStringLiteral("Finished_$#0.00-1.00 sec$#100$#800$#receiver\n")},
                   {kInterval, kFinishedEvent}, true, QStringLiteral("10.0.0.7"),
                   {QStringLiteral("0.00-1.00 sec|100|800|-|-|receiver|10.0.0.7")},
                   {QStringLiteral("0.00-1.00 sec|100|800|-|-|receiver|10.0.0.7")}},
        ParserCase{"NewConnectionStartsFreshTest",
                   {kConnection, kTcpReport + kTcpTag, QStringLiteral("Accepted connection from 10.0.0.9, port 1\n")},
                   {kInterval}, true, QStringLiteral("10.0.0.9"), {}, {}},
        ParserCase{"PortInUseReportsChunkAndNothingElse",
                   {kPortInUse, kConnection.trimmed() + QStringLiteral(" ") + kPortInUse},
                   {QStringLiteral("serverError:") + kPortInUse,
                    QStringLiteral("serverError:") + kConnection.trimmed() + QStringLiteral(" ") + kPortInUse},
                   false, QString(), {}, {}},
        ParserCase{"LenientNumbers",
                   {kConnection, QStringLiteral("x\nRESULT_$# 0.00-1.00 sec$#  42abc$#kbits$#receiver\n")},
                   {kInterval}, true, QStringLiteral("10.0.0.5"),
                   {QStringLiteral(" 0.00-1.00 sec|42|0|-|-|receiver|10.0.0.5")}, {}}),
    [](const ::testing::TestParamInfo<ParserCase> &info) { return std::string(info.param.name); });

TEST(PerfServerParserTest, SameTestObjectKeepsFillingAfterCallback)
{
    RecordingDelegate delegate;
    PerfServer server;
    server.setDelegate(&delegate);
    server.didReceivePerfTestRespnose(kConnection);
    server.didReceivePerfTestRespnose(kTcpReport + kTcpTag);
    server.didReceivePerfTestRespnose(kTcpReport + kTcpTag);
    server.didReceivePerfTestRespnose(kFinalTag);
    ASSERT_EQ(delegate.tests.size(), 2);
    ASSERT_EQ(delegate.finished.size(), 1);
    EXPECT_EQ(delegate.tests.first(), delegate.finished.first());
    EXPECT_EQ(delegate.finished.first()->intervalResults.size(), 2);
    EXPECT_EQ(delegate.finished.first()->finalResults.size(), 1);
    // Records are fresh objects, each stamped with the date it was parsed.
    EXPECT_NE(delegate.finished.first()->intervalResults.at(0), delegate.finished.first()->intervalResults.at(1));
    EXPECT_EQ(delegate.finished.first()->intervalResults.at(0)->currentDate.size(), 19);
}

// Answers only what it must; the optional callbacks are simply missed.
class RequiredOnlyDelegate : public PerfServerDelegate
{
public:
    void reportIntervalNew(const iPerfServerResultsPtr &) override { ++calls; }
    void testDidFinished(const iPerfServerResultsPtr &) override { ++calls; }
    int calls = 0;
};

TEST(PerfServerParserTest, OptionalCallbacksReachOnlyDelegatesThatAnswer)
{
    RequiredOnlyDelegate minimal;
    PerfServer server;
    server.setDelegate(&minimal);
    server.didReceivePerfTestRespnose(kPortInUse);
    server.reportIntervals({});
    server.testFinished({});
    EXPECT_EQ(minimal.calls, 0);

    RecordingDelegate recording;
    server.setDelegate(&recording);
    server.reportIntervals({std::make_shared<PerfResult>()});
    server.testFinished({std::make_shared<PerfResult>(), std::make_shared<PerfResult>()});
    EXPECT_EQ(recording.events,
              (QStringList{QStringLiteral("reportInterval:1"), QStringLiteral("testDidFinishedWithServerLog:2")}));
}

TEST(PerfServerParserTest, DestroyedDelegateGetsNothing)
{
    int calls = 0;
    PerfServer server;
    {
        RecordingDelegate delegate;
        delegate.onEvent = [&calls] { ++calls; };
        server.setDelegate(&delegate);
        server.didReceivePerfTestRespnose(kConnection);
        server.didReceivePerfTestRespnose(kTcpReport + kTcpTag);
        EXPECT_EQ(calls, 1);
    }
    server.didReceivePerfTestRespnose(kTcpReport + kTcpTag);
    server.didReceivePerfTestRespnose(kFinalTag);
    server.didReceivePerfTestRespnose(kPortInUse);
    EXPECT_EQ(calls, 1);
    // The parser still keeps its own state.
    EXPECT_EQ(server.currentTest()->intervalResults.size(), 2);
}

TEST(PerfServerParserTest, ServerDeletedByCallbackEndsTheChunk)
{
    RecordingDelegate delegate;
    QPointer<PerfServer> server = new PerfServer;
    server->setDelegate(&delegate);
    delegate.onEvent = [&server] { delete server.data(); };
    server->didReceivePerfTestRespnose(kConnection);
    server->didReceivePerfTestRespnose(kTcpReport + kTcpTag + kTcpReport + kTcpTag + kFinalTag);
    EXPECT_TRUE(server.isNull());
    EXPECT_EQ(delegate.events, QStringList{kInterval});
}

// Output captured from the launcher in server mode (see CaptureServerChunks),
// replayed chunk by chunk as it was read.
struct FixtureCase
{
    const char *name;
    const char *file;        // in tests/data
    QStringList tests;       // per finished test: "role udp? intervals finals"
    int serverErrors;
};

void PrintTo(const FixtureCase &c, std::ostream *os)
{
    *os << c.name;
}

class PerfServerFixture : public ::testing::TestWithParam<FixtureCase>
{
};

// "receiver udp 2/4": role of every record, whether every record carries
// jitter and loss, interval and final record counts.
QString summarise(const iPerfServerResultsPtr &test)
{
    QSet<QString> roles;
    bool allUdp = true;
    bool noneUdp = true;
    for (const PerfResultList &records : {test->intervalResults, test->finalResults}) {
        for (const PerfResultPtr &record : records) {
            roles.insert(record->typeName);
            const bool udp = record->jitter.endsWith(QLatin1String(" ms")) && record->lostTotalDataGrams.contains('/');
            allUdp = allUdp && udp;
            noneUdp = noneUdp && !udp && record->jitter == QLatin1String("-");
        }
    }
    const QString kind = allUdp ? QStringLiteral("udp") : noneUdp ? QStringLiteral("tcp") : QStringLiteral("mixed");
    return QStringLiteral("%1 %2 %3/%4")
        .arg(QStringList(roles.values()).join(QLatin1Char(',')), kind)
        .arg(test->intervalResults.size())
        .arg(test->finalResults.size());
}

TEST_P(PerfServerFixture, ReplaysCapturedOutput)
{
    const FixtureCase &c = GetParam();
    QFile file(TestEnvironment::dataDir() + QLatin1Char('/') + QLatin1String(c.file));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonArray chunks = QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("chunks")).toArray();
    ASSERT_FALSE(chunks.isEmpty());

    RecordingDelegate delegate;
    PerfServer server;
    server.setPort(5201);
    server.setDelegate(&delegate);
    for (const QJsonValue &chunk : chunks)
        server.didReceivePerfTestRespnose(chunk.toString());

    QStringList tests;
    for (const iPerfServerResultsPtr &test : delegate.finished) {
        tests << summarise(test);
        for (const PerfResultList &records : {test->intervalResults, test->finalResults}) {
            for (const PerfResultPtr &record : records)
                EXPECT_EQ(record->ip, QStringLiteral("127.0.0.1"));
        }
    }
    EXPECT_EQ(tests, c.tests);
    EXPECT_EQ(delegate.count(QStringLiteral("serverError:")), c.serverErrors);
    // Interval callbacks: one per interval record of the finished tests.
    qsizetype intervals = 0;
    for (const iPerfServerResultsPtr &test : delegate.finished)
        intervals += test->intervalResults.size();
    EXPECT_EQ(delegate.count(QStringLiteral("reportIntervalNew")), intervals);
}

INSTANTIATE_TEST_SUITE_P(
    Captured, PerfServerFixture,
    ::testing::Values(
        // The final block comes with the "Server listening" lines of the next
        // test, which append the summary record three more times.
        FixtureCase{"TcpUdpReverseInARow", "server-three-tests.json",
                    {QStringLiteral("receiver tcp 3/4"), QStringLiteral("receiver udp 2/4"),
                     QStringLiteral("sender tcp 2/4")},
                    0},
        FixtureCase{"PortInUse", "server-port-in-use.json", {}, 1}),
    [](const ::testing::TestParamInfo<FixtureCase> &info) { return std::string(info.param.name); });

} // namespace
