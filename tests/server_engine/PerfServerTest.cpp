#include "PerfHelper/PerfServer.h"
#include "PerfHelper/TidewaveUtils.h"
#include "common/TestEnvironment.h"

#include <gtest/gtest.h>

#include <ostream>

#include <QDateTime>
#include <QElapsedTimer>
#include <QProcess>

using namespace std::chrono_literals;
using TestEnvironment::waitUntil;

namespace {

const auto kByName = [](const auto &info) { return std::string(info.param.name); };

// Every callback: "interval", "finished", "error:<text>", "log:<n>", "serverLog:<n>".
struct Recorder : PerfServerDelegate
{
    void reportIntervalNew(const iPerfServerResultsPtr &) override { note(QStringLiteral("interval")); }
    void testDidFinished(const iPerfServerResultsPtr &) override { note(QStringLiteral("finished")); }
    void serverError(const QString &message) override { note(QStringLiteral("error:") + message); }
    void reportInterval(const PerfResultList &r) override { note(QStringLiteral("log:%1").arg(r.size())); }
    void testDidFinishedWithServerLog(const PerfResultList &r) override { note(QStringLiteral("serverLog:%1").arg(r.size())); }
    void note(const QString &event)
    {
        events << event;
        if (onEvent)
            onEvent();
    }
    QStringList events;
    std::function<void()> onEvent; // runs after every callback
};

// Each record as "interval|bytes|bits/s|jitter|lost/total|type|ip".
QStringList describe(const PerfResultList &records)
{
    QStringList out;
    for (const PerfResultPtr &r : records)
        out << QStringList{r->intervals, QString::number(r->receivedBytes, 'g', 12), QString::number(r->receivedBandwidth, 'g', 12),
                           r->jitter, r->lostTotalDataGrams, r->typeName, r->ip}.join(QLatin1Char('|'));
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
const QString kPortInUse = QStringLiteral("iperf3: error - unable to start listener for connections: Address already in use\niperf3: exiting\n");
const QString kIp = QStringLiteral("10.0.0.5");

struct ParserCase
{
    friend void PrintTo(const ParserCase &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    QStringList chunks;    // fed in order
    QStringList events;    // delegate calls, in order
    QString clientIP;      // afterwards; null with no current test at all
    QStringList records;   // the current test's interval records, "/", its final records
};

class PerfServerParser : public ::testing::TestWithParam<ParserCase> {};

TEST_P(PerfServerParser, TurnsChunksIntoRecordsAndCallbacks)
{
    const ParserCase &c = GetParam();
    Recorder delegate;
    PerfServer server;
    server.setDelegate(&delegate);
    for (const QString &chunk : c.chunks)
        server.didReceivePerfTestRespnose(chunk);
    EXPECT_EQ(delegate.events, c.events);
    EXPECT_EQ(server.clientIP(), c.clientIP);
    ASSERT_EQ(server.currentTest() == nullptr, c.clientIP.isNull());
    const iPerfServerResultsPtr test = server.currentTest() ? server.currentTest() : std::make_shared<iPerfServerResults>();
    EXPECT_EQ(describe(test->intervalResults) + QStringList{"/"} + describe(test->finalResults), c.records);
}

INSTANTIATE_TEST_SUITE_P(
    Chunks, PerfServerParser,
    ::testing::Values(
        ParserCase{"ListeningBlockIsCutAtConnection",
                   {kDashes + QStringLiteral("Server listening on 5201 (test #1)\n") + kDashes + kConnection}, {}, kIp, {"/"}},
        ParserCase{"CutOffConnectionLineKeepsAddress", {kConnection, QStringLiteral("x\nAccepted connection from 10.0.0.9\nAccepted connection\n")},
                   {}, QStringLiteral("10.0.0.9"), {"/"}},
        ParserCase{"TcpLineOfFiveFields", {kConnection, kReport + kTag}, {"interval"}, kIp, {kRecord, "/"}},
        ParserCase{"UdpLineOfSevenFields",
                   {kConnection, QStringLiteral("[  5] x\nRESULT_$#1.00-2.00 sec$#131072$#1048576$#0.012 ms$#0/8 (0%)$#receiver  \n")},
                   {"interval"}, kIp, {QStringLiteral("1.00-2.00 sec|131072|1048576|0.012 ms|0/8 (0%)|receiver|10.0.0.5"), "/"}},
        // No line buffering: the second line's fields run into the first.
        ParserCase{"ChunkStartingWithMarkerIsOneLine",
                   {kConnection, QStringLiteral("RESULT_$#0.00-1.00 sec$#100$#800$#receiver\nRESULT_$#1.00-2.00 sec$#200$#1600$#receiver\n")},
                   {"interval"}, kIp, {QStringLiteral("0.00-1.00 sec|100|800|receiver\nRESULT_|1.00-2.00 sec|200|10.0.0.5"), "/"}},
        ParserCase{"ShortLineAddsPreviousRecordAgain", {kConnection, kReport + kTag + QStringLiteral("RESULT_$#1.00-2.00 sec$#5\n")},
                   {"interval", "interval"}, kIp, {kRecord, kRecord, "/"}},
        ParserCase{"RecordsBeforeAnyConnectionAreLost", {kReport + kTag, kFinal}, {}, QString(), {"/"}},
        ParserCase{"ErrorLineEndsIntervalLines", {kConnection, kReport + kTag + kError + kTag}, {"interval"}, kIp, {kRecord, "/"}},
        ParserCase{"TrailingLinesOfFinalBlockRepeatRecord",
                   {kConnection, kReport + kFinal + kDashes + QStringLiteral("Server listening on 5201 (test #2)\n")}, {"finished"}, kIp,
                   {"/", kFinalRecord, kFinalRecord, kFinalRecord}},
        ParserCase{"ShortFinalLineWithoutEarlierRecordAddsNothing", {kConnection, QStringLiteral("- - -\nFinished_$#0.00\n")},
                   {"finished"}, kIp, {"/"}},
        ParserCase{"FinalBlockWithErrorSendsNothing", {kConnection, kReport + kFinal + kError}, {}, kIp, {"/", kFinalRecord}},
        ParserCase{"FinalChunkWithErrorIsOneErrorLine", {kConnection, kFinal + kError}, {}, kIp, {"/"}},
        // One chunk goes through the connection, interval and final steps.
        ParserCase{"WholeTestInOneChunk",
                   {kConnection + QStringLiteral("[  5] local 127.0.0.1 port 5201 connected to 10.0.0.5 port 2\n") + kReport + kTag
                    + QStringLiteral("- - - - -\n[ ID] Interval           Transfer\n") + kFinal},
                   {"interval", "finished"}, kIp, {kRecord, "/", kFinalRecord}},
        ParserCase{"PortInUseStopsAtTheError", {kPortInUse, kConnection + kReport + kTag + kPortInUse},
                   {"error:" + kPortInUse, "error:" + kConnection + kReport + kTag + kPortInUse}, QString(), {"/"}},
        ParserCase{"LenientNumbers", {kConnection, QStringLiteral("RESULT_$#0.00-1.00 sec$# \t\n\r42abc$#+8.5$#sender\n"), QStringLiteral("x\nRESULT_$#1$#x$#k$#s\n")},
                   {"interval", "interval"}, kIp, {QStringLiteral("0.00-1.00 sec|42|8.5|-|-|sender|10.0.0.5"), QStringLiteral("1|0|0|-|-|s|10.0.0.5"), "/"}}), kByName);

// The relays reach a live delegate; one destroyed before the server is never called.
TEST(PerfServerDelegate, OnlyALiveDelegateIsCalled)
{
    PerfServer server;
    auto delegate = std::make_unique<Recorder>();
    server.setDelegate(delegate.get());
    server.reportIntervals({std::make_shared<PerfResult>()});
    server.testFinished({});
    EXPECT_EQ(delegate->events, (QStringList{"log:1", "serverLog:0"}));
    delegate.reset();
    for (const QString &chunk : {kConnection + kReport + kTag + kFinal, kPortInUse})
        server.didReceivePerfTestRespnose(chunk);
    server.reportIntervals({});
    EXPECT_EQ(server.currentTest()->intervalResults.size(), 1);
    // A callback may delete the server: nothing more is reported.
    auto *doomed = new PerfServer;
    Recorder destroyer;
    doomed->setDelegate(&destroyer);
    destroyer.onEvent = [&doomed] { delete std::exchange(doomed, nullptr); };
    doomed->didReceivePerfTestRespnose(kConnection + kTag + kTag + kFinal);
    EXPECT_EQ(destroyer.events, QStringList{"interval"});
}

// The real launcher for stock iperf3 clients on loopback; no tool outlives its PerfServer.
class PerfServerRun : public ::testing::Test
{
protected:
    // The launcher goes where the engine runs it from, as at start-up.
    void SetUp() override { TidewaveUtils::copyiPerfExecutableToAppSupportDir(); }
    void TearDown() override
    {
        QElapsedTimer clock;
        clock.start();
        m_servers.clear();
        EXPECT_EQ(toolGroups(), QSet<qint64>{});
        EXPECT_LT(clock.elapsed(), 1000) << "a tool ending at once is not waited for longer";
    }

    // The process groups of the tools running from the tool path.
    static QSet<qint64> toolGroups()
    {
        QSet<qint64> groups;
        for (const TestEnvironment::Process &process : TestEnvironment::liveProcesses()) {
            if (process.commandLine.contains(TidewaveUtils::getiPerfExecutablePath()))
                groups.insert(process.group);
        }
        return groups;
    }

    PerfServer &server(PerfServerDelegate &delegate)
    {
        PerfServer &server = *m_servers.emplace_back(std::make_unique<PerfServer>());
        server.setDelegate(&delegate);
        server.setPort(m_port);
        server.run();
        return server;
    }

    quint16 m_port = TestEnvironment::freeTcpPort();
    std::vector<std::unique_ptr<PerfServer>> m_servers;
};

TEST_F(PerfServerRun, ServesTestsInARowUntilStoppedMidTest)
{
    Recorder delegate;
    PerfServer &perfServer = server(delegate);
    ASSERT_TRUE(waitUntil([&] { return TestEnvironment::tcpPortListening(m_port); }, 5s));
    const qint64 pid = perfServer.processId();
    const QString command = QStringLiteral("\"%1\" ./iperf3  -s -p %2").arg(TidewaveUtils::getiPerfExecutablePath()).arg(m_port);
    EXPECT_TRUE(std::ranges::any_of(TestEnvironment::liveProcesses(), [&](const auto &p) {
        return p.pid == pid && p.arguments == QList<QByteArray>{"/bin/sh", "-c", command.toUtf8()};
    }));

    QProcess client;
    const QList<std::tuple<QString, QString, bool>> runs{
        {"-t 1", "receiver", false}, {"-u -t 1", "receiver", true}, {"-R -t 1", "sender", false}, {"-t 10", "", false}};
    for (int i = 0; i < runs.size(); ++i) {
        const auto &[options, role, udp] = runs[i];
        client.start(QStringLiteral("iperf3"), QStringLiteral("-c 127.0.0.1 -p %1 %2").arg(m_port).arg(options).split(' '));
        if (role.isEmpty())
            break; // the last test runs on
        ASSERT_TRUE(client.waitForFinished(15000));
        ASSERT_EQ(client.exitCode(), 0) << client.readAll().toStdString();
        ASSERT_TRUE(waitUntil([&] { return delegate.events.count(QStringLiteral("finished")) > i; }, 5s)) << options.toStdString();
        const iPerfServerResultsPtr test = perfServer.currentTest(); // until the next connection
        ASSERT_FALSE(test->intervalResults.isEmpty());
        EXPECT_TRUE(test->finalResults.value(0) && test->finalResults[0]->intervals.startsWith(QLatin1String("0.00-")));
        for (const PerfResultPtr &r : test->intervalResults + test->finalResults) {
            EXPECT_EQ(r->ip + r->typeName, QStringLiteral("127.0.0.1") + role) << options.toStdString();
            EXPECT_TRUE(r->receivedBandwidth > 0 && r->receivedBytes > 0) << r->intervals.toStdString();
            EXPECT_EQ(r->jitter.endsWith(QLatin1String(" ms")), udp);
            EXPECT_TRUE(QDateTime::fromString(r->currentDate, QStringLiteral("dd/MM/yyyy HH:mm:ss")).isValid()) << r->currentDate.toStdString();
        }
    }
    EXPECT_EQ(delegate.events.count(QStringLiteral("finished")), 3);
    EXPECT_EQ(perfServer.processId(), pid); // one tool served them all

    const qsizetype intervals = delegate.events.count(QStringLiteral("interval"));
    ASSERT_TRUE(waitUntil([&] { return delegate.events.count(QStringLiteral("interval")) > intervals; }, 5s));
    EXPECT_GE(TestEnvironment::groupMembers(pid).size(), 3); // shell, launcher, iperf3
    perfServer.stop();
    const QStringList eventsAtStop = delegate.events;
    perfServer.didReceivePerfTestRespnose(QStringLiteral("Finished_$#0.00-1.00 sec$#1$#8$#receiver\n"));
    ASSERT_TRUE(waitUntil([&] { return TestEnvironment::groupMembers(pid).isEmpty(); }, 5s));
    EXPECT_FALSE(waitUntil([&] { return delegate.events != eventsAtStop || !toolGroups().isEmpty(); }, 1s));
    client.waitForFinished(5000);
}

// A second server on a served port reports the error and is relaunched a few times a
// second until stopped; stopped inside the error callback (as the server tab does), at once.
TEST_F(PerfServerRun, PortInUseRelaunchesUntilStopped)
{
    Recorder owner, failing, stopping;
    const qint64 ownerGroup = server(owner).processId();
    ASSERT_TRUE(waitUntil([&] { return TestEnvironment::tcpPortListening(m_port); }, 5s));
    QList<qint64> errorTimes;
    QElapsedTimer clock;
    clock.start();
    failing.onEvent = [&] { errorTimes << clock.elapsed(); };
    PerfServer &relaunching = server(failing);
    PerfServer &intruder = server(stopping);
    stopping.onEvent = [&] { intruder.stop(); };
    ASSERT_TRUE(waitUntil([&] { return errorTimes.size() >= 4 && !stopping.events.isEmpty(); }, 8s));
    EXPECT_TRUE(failing.events.first().startsWith(QStringLiteral("error:iperf3: error - unable to start listener for connections: Address already in use\n")));
    for (int i = 1; i < errorTimes.size(); ++i)
        EXPECT_GE(errorTimes[i] - errorTimes[i - 1], 150) << "relaunch " << i;

    // Stopped while the next relaunch is pending.
    ASSERT_TRUE(waitUntil([&] { return relaunching.processId() == 0; }, 5s));
    relaunching.stop();
    const qsizetype errors = failing.events.size();
    EXPECT_FALSE(waitUntil([&] { return failing.events.size() > errors || stopping.events.size() > 1 || toolGroups() != QSet<qint64>{ownerGroup}; }, 1s));
    EXPECT_TRUE(owner.events.isEmpty());
}

} // namespace
