#include "common/TestEnvironment.h"
#include "support/TestPath.h"

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfTest.h"
#include "PerfHelper/TidewaveUtils.h"
#include "shell/SettingsStore.h"

#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <iostream>
#include <ostream>

#include <optional>

using namespace std::chrono_literals;
using TestEnvironment::waitUntil;

namespace {

const auto kByName = [](const auto &info) { return std::string(info.param.name); };

// The delegate calls of a run or a coordinator as text: "ip <address>", "fail <text>",
// "interval|finished <start>-<end> <bytes> <bits/s>[ <jitter>|<loss>][ fmt=<n>][ if=<interface>]".
class CallRecorder : public PerfTestDelegate, public PerfHelperDelegate
{
public:
    void reportInterval(const PerfResultPtr &result) override { note("interval ", result); }
    void testDidFinished(const PerfResultPtr &result) override { note("finished ", result); }
    void testDidFail(const QString &message) override { add(QStringLiteral("fail ") + message); }
    void didResolvedLocalIP(const QString &address) override { add(QStringLiteral("ip ") + address); }
    void reportIntervalResults(const PerfResultPtr &result) override { note("interval ", result, QStringLiteral(" if=")); }
    void testFinished(const PerfResultPtr &result) override { note("finished ", result, QStringLiteral(" if=")); }
    void testFail(const QString &message) override { add(QStringLiteral("fail ") + message); }

    QStringList calls;
    QList<PerfResultPtr> records; // of every call that has one
    std::function<void()> onCall; // runs after every call
    bool link = false;            // records show " d=<direction> r=<retransmits> t=<round trip> l=<lost>/<total>"

private:
    static QString orNil(const QString &text) { return text.isNull() ? QStringLiteral("nil") : text; }
    void note(const char *kind, const PerfResultPtr &r, const QString &stamp = {})
    {
        records << r;
        QString text = QLatin1String(kind)
            + QStringLiteral("%1-%2 %3 %4").arg(orNil(r->startTime), orNil(r->endTime)).arg(r->sentBytes, 0, 'g', 7).arg(r->sentBandwidth, 0, 'g', 7);
        if (!r->jitter.isNull() || !r->lostTotalDataGrams.isNull())
            text += QLatin1Char(' ') + orNil(r->jitter) + QLatin1Char('|') + orNil(r->lostTotalDataGrams);
        if (r->bandwidthformat != 0)
            text += QStringLiteral(" fmt=%1").arg(r->bandwidthformat);
        if (link)
            text += QStringLiteral(" d=%1 r=%2 t=%3 l=%4/%5").arg(r->direction).arg(r->retransmits).arg(r->roundTripMs).arg(r->udpLostDatagrams).arg(r->udpTotalDatagrams);
        add(stamp.isEmpty() ? text : text + stamp + orNil(r->interfaceName));
    }
    void add(const QString &call)
    {
        calls << call;
        if (onCall)
            onCall();
    }
};

// The run settings the parser reads.
struct Settings
{
    qint64 testType = 0, reverse = 0, format = 0, duration = 10, twoWay = 0;
    bool link = false; // show the records' link figures
};

struct ParserCase
{
    friend void PrintTo(const ParserCase &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    Settings settings;
    QStringList chunks; // of standard output, fed one after the other
    QStringList calls;
    bool decided; // afterwards
    // What was left unread on standard output and error when the shell ended.
    std::optional<std::pair<QByteArray, QByteArray>> rest = {};
    bool stoppedFirst = false; // before the chunks
};

class Parser : public ::testing::TestWithParam<ParserCase> {};

TEST_P(Parser, DelegateCallsInOrder)
{
    const ParserCase &c = GetParam();
    CallRecorder recorder;
    PerfTest test;
    test.testType = c.settings.testType;
    test.reverse = c.settings.reverse;
    test.bandwidthformat = c.settings.format;
    test.duration = c.settings.duration;
    test.twoWay = c.settings.twoWay;
    recorder.link = c.settings.link;
    test.setDelegate(&recorder);
    if (c.stoppedFirst)
        test.stop();
    for (const QString &chunk : c.chunks)
        test.didReceivePerfTestRespnose(chunk);
    if (c.rest)
        test.processDidEnd(c.rest->first, c.rest->second);
    EXPECT_EQ(recorder.calls.join(u'\n').toStdString(), c.calls.join(u'\n').toStdString());
    EXPECT_EQ(test.hasTestFinished(), c.decided);
}

using Rest = std::pair<QByteArray, QByteArray>;
const Settings kTcp{};
const Settings kTcp3s{.duration = 3};
const QString kUdpLine = QStringLiteral("x\nRESULT_$#0.00-1.00 sec$#524288$#4194304$#0.012 ms$#0/8 (0%)\n");
const QString kConnection = QStringLiteral("Connecting to host 127.0.0.1, port 5201\n"
                                           "[  5] local 127.0.0.1 port 40000 connected to 127.0.0.1 port 5201\n");
const QString kTcpFinal3s = QStringLiteral("- - - - - - - - - - - - -\n[  5]   0.00-3.00   sec  1.00 KBytes  8 Kbits/sec    0    sender\n"
                                           "Finished_$#0.00-3.00 sec$#1000$#8000$#sender\n[  5]   0.00-3.00   sec  0.99 KBytes  7.9 Kbits/sec  receiver\n"
                                           "Finished_$#0.00-3.00 sec$#990$#7900$#receiver\n\niperf Done.\n");
const QString kOne = QStringLiteral("RESULT_$#0.00-1.00 sec$#1$#8$#sender\n");
const QString kFinal3s = QStringLiteral("Finished_$#0.00-3.00 sec$#1$#8$#sender\n");
const QStringList kFinal3sCalls{"interval 0.00-3.00 1 8", "finished 0.00-3.00 1 8"};

INSTANTIATE_TEST_SUITE_P(
    PerfTest, Parser,
    ::testing::Values(
        ParserCase{"IntervalLinesUnitWordsDroppedFormatCopied", {.format = 1},
                   {"RESULT_$#0.00-1.00 sec$#524288$#4194304$#sender\n", "x\nRESULT_$#1.00-2.00 sec$#512 KBytes$#4096 Kbits/sec\n"},
                   {"interval 0.00-1.00 524288 4194304 fmt=1", "interval 1.00-2.00 512 4096 fmt=1"}, false},
        ParserCase{"UdpIntervalWithoutReverseHasNoJitter", {.testType = 1}, {kUdpLine}, {"interval 0.00-1.00 524288 4194304"}, false},
        ParserCase{"UdpReverseIntervalHasJitterAndLoss", {.testType = 1, .reverse = 1}, {kUdpLine},
                   {"interval 0.00-1.00 524288 4194304 0.012 ms|0/8 (0%)"}, false},
        ParserCase{"ChunkStartingWithTagIsOneLine", kTcp, {"RESULT_$#0.00-1.00 sec$#100$#800$#sender\nRESULT_$#1.00-2.00 sec$#200$#1600$#sender\n"},
                   {"interval 0.00-1.00 100 800"}, false},
        ParserCase{"TextBeforeFirstTagIsDropped", kTcp,
                   {"[  5] 0.00-1.00 sec\nRESULT_$#0.00-1.00 sec$#100$#800$#sender\n[  5] 1.00-2.00 sec\nRESULT_$#1.00-2.00 sec$#200$#1600$#sender\n"},
                   {"interval 0.00-1.00 100 800", "interval 1.00-2.00 200 1600"}, false},
        ParserCase{"IntervalWithoutDashIsSkipped", kTcp, {"x\nRESULT_$#1.00 sec$#100$#800$#sender\nRESULT_$#1.00-2.00 sec$#200$#1600$#sender\n"},
                   {"interval 1.00-2.00 200 1600"}, false},
        ParserCase{"LenientNumbers", kTcp,
                   {"x\nRESULT_$#0.00-1.00 sec$# +.5E1x$#1e9$#sender\nRESULT_$#1.00-2.00 sec$#7e+$#-2.5e-1 $#s\nRESULT_$#2.00-3.00 sec$#-x$#9.$#s\n"},
                   {"interval 0.00-1.00 5 1e+09", "interval 1.00-2.00 7 -0.25", "interval 2.00-3.00 0 9"}, false},
        ParserCase{"TooFewFieldsReportNothing", kTcp, {"RESULT_$#0.00-1.00 sec$#100\n"}, {}, false},
        ParserCase{"LineCutInTheRate", kTcp, {"RESULT_$#0.00-1.00 sec$#524288$#41", "94304$#sender\n"}, {"interval 0.00-1.00 524288 41"}, false},
        ParserCase{"ConnectionChunkReportsOnlyTheAddress", kTcp, {kConnection + "[ ID] Interval\n" + kOne}, {"ip 127.0.0.1"}, false},
        ParserCase{"ResultsAfterTheConnectionChunk", kTcp, {kConnection, kOne, "local 10.0.0.7 port 1 connected to 10.0.0.1\n"},
                   {"ip 127.0.0.1", "interval 0.00-1.00 1 8", "ip 10.0.0.7"}, false},
        ParserCase{"ConnectionLinesNamingNoAddress", kTcp,
                   {"[  5] connected to 10.0.0.1 port 5201\n" + kOne, "port 1: local 10.0.0.7 connected to 10.0.0.1\nRESULT_$#1.00-2.00 sec$#2$#16$#sender\n"},
                   {"interval 0.00-1.00 1 8", "interval 1.00-2.00 2 16"}, false},
        ParserCase{"FinalBlockReportsFirstFinalLineTwice", kTcp3s, {kTcpFinal3s},
                   {"interval 0.00-3.00 1000 8000", "finished 0.00-3.00 1000 8000"}, true},
        ParserCase{"FinalEndShortOfDurationGoesOn", kTcp,
                   {"- - -\nFinished_$#0.00-9.99 sec$#1$#8$#sender\nFinished_$#0.00-10.00 sec$#2$#16\n"},
                   {"interval 0.00-9.99 1 8", "interval 0.00-10.00 2 16", "finished 0.00-10.00 2 16"}, true},
        ParserCase{"ShortFinalLineStillCompletesTheChunk", kTcp, {"- - -\nFinished_$#0.00-9.99 sec$#1$#8$#sender\n", kOne},
                   {"interval 0.00-9.99 1 8", "finished 0.00-9.99 1 8"}, true},
        ParserCase{"ZeroDurationStopsAtTheFirstFinalLine", {.duration = 0},
                   {"- - -\nFinished_$#short\nFinished_$#0.00-1.00 sec$#1$#8$#sender\n"}, {"finished nil-nil 0 0"}, true},
        ParserCase{"UdpFinalLinesCarryJitterWithoutReverse", {.testType = 1, .duration = 3},
                   {"- - -\nFinished_$#0.00-3.00 sec$#393375$#1049000$#0.000 ms$#0/12 (0%)\n"},
                   {"interval 0.00-3.00 393375 1049000 0.000 ms|0/12 (0%)", "finished 0.00-3.00 393375 1049000 0.000 ms|0/12 (0%)"}, true},
        ParserCase{"AResultLineEndsTheFinalLines", kTcp,
                   {"x\nFinished_$#0.00-1.00 sec$#5$#40$#sender\nRESULT_$#1.00-2.00 sec$#6$#48$#sender\nFinished_$#0.00-2.00 sec$#7$#56$#receiver\n"},
                   {"interval 1.00-2.00 6 48", "interval 0.00-1.00 5 40", "finished 0.00-1.00 5 40"}, true},
        // Link figures: this computer's ahead of their record, the server's into the records they fall in
        // at the end (a short tail into the last), and a final record with its direction's totals.
        ParserCase{"LinkFiguresJoinTheirRecords", {.reverse = 1, .duration = 2, .link = true},
                   {"[  5]\nLINK_DOWN$#0.00-1.00 sec$#rtt=41.5\nRESULT_$#0.00-1.00 sec$#1$#8$#receiver\n",
                    "[  5]\nLINK_DOWN$#1.00-2.00 sec$#rtt=42.5\nRESULT_$#1.00-2.00 sec$#2$#16$#receiver\nPEER_DOWN$#0.00-1.00 sec$#retr=3$#cwnd=9000\nPEER_DOWN$#1.00-2.00 sec$#retr=4\n",
                    "PEER_DOWN$#2.00-2.04 sec$#retr=1\n", "\niperf Done.\nFinished_$#0.00-2.00 sec$#3$#12$#receiver\n"},
                   {"interval 0.00-1.00 1 8 d=1 r=-1 t=41.5 l=-1/-1", "interval 1.00-2.00 2 16 d=1 r=-1 t=42.5 l=-1/-1", "interval 0.00-2.00 3 12 d=1 r=8 t=42 l=-1/-1",
                    "finished 0.00-2.00 3 12 d=1 r=8 t=42 l=-1/-1"}, true},
        // A two-way test: records of both directions, jitter text on the received ones; done after both receivers.
        ParserCase{"TwoWayUdpBothDirections", {.testType = 1, .duration = 2, .twoWay = 1, .link = true},
                   {"x\nRESULT_UP$#0.00-2.00 sec$#1$#8$#sender\nLINK_DOWN$#0.00-2.00 sec$#jitter=0.5$#lost=1$#total=9\nRESULT_DOWN$#0.00-2.00 sec$#2$#16$#0.500 ms$#1/9 (11%)$#receiver\n",
                    "PEER_UP$#0.00-2.00 sec$#jitter=0.25$#lost=2$#total=8\n",
                    "\niperf Done.\nFinished_UP$#0.00-2.04 sec$#1$#8$#0.250 ms$#2/8 (25%)$#receiver\nFinished_DOWN$#0.00-2.04 sec$#2$#16$#0.500 ms$#1/9 (11%)$#receiver\n"
                    "Finished_UP$#0.00-2.00 sec$#1$#8$#0.000 ms$#0/8 (0%)$#sender\n"},
                   {"interval 0.00-2.00 1 8 d=0 r=-1 t=-1 l=-1/-1", "interval 0.00-2.00 2 16 0.500 ms|1/9 (11%) d=1 r=-1 t=-1 l=1/9",
                    "interval 0.00-2.04 1 8 0.250 ms|2/8 (25%) d=0 r=-1 t=-1 l=2/8", "interval 0.00-2.04 2 16 0.500 ms|1/9 (11%) d=1 r=-1 t=-1 l=1/9",
                    "finished 0.00-2.04 2 16 0.500 ms|1/9 (11%) d=1 r=-1 t=-1 l=1/9"}, true},
        ParserCase{"DecidedTestIgnoresLaterChunks", kTcp3s, {kTcpFinal3s, kOne, "iperf3: error - late\n"},
                   {"interval 0.00-3.00 1000 8000", "finished 0.00-3.00 1000 8000"}, true},
        ParserCase{"ErrorFailsWithTheWholeChunk", kTcp, {"iperf3: error - unable to connect to server: Connection refused\n"},
                   {"fail iperf3: error - unable to connect to server: Connection refused\n"}, false},
        ParserCase{"ErrorLineEndsIntervalHandling", kTcp, {"x\n" + kOne + "iperf3: error - control socket has closed\n" + kOne},
                   {"interval 0.00-1.00 1 8", "fail x\n" + kOne + "iperf3: error - control socket has closed\n" + kOne}, false},
        ParserCase{"FailureDoesNotDecideTheTest", kTcp, {"iperf3: error - x\n", kOne}, {"fail iperf3: error - x\n", "interval 0.00-1.00 1 8"}, false},
        ParserCase{"ErrorAfterALastFinalLineFailsAndDecides", kTcp, {"x\nFinished_$#0.00-10.00 sec$#1$#8$#sender\niperf3: error - y\n", kOne},
                   {"interval 0.00-10.00 1 8", "fail x\nFinished_$#0.00-10.00 sec$#1$#8$#sender\niperf3: error - y\n"}, true},
        ParserCase{"PlainTextReportsNothing", kTcp, {QString(), "", "iperf Done.\n", "Connecting to host 127.0.0.1, port 5201\n", "- - - -\n"}, {}, false},
        ParserCase{"FinalLinesLeftAreParsed", kTcp3s, {}, kFinal3sCalls, true, Rest{"x\n" + kFinal3s.toUtf8(), ""}},
        ParserCase{"DoneWithErrorGoesToTheParser", kTcp3s, {}, {"fail iperf3: error - x\niperf Done.\n"}, false,
                   Rest{"iperf3: error - x\niperf Done.\n", "boom\n"}},
        ParserCase{"ErrorUsesStandardError", kTcp3s, {}, {"fail iperf3: error - x on stderr\n"}, true,
                   Rest{"iperf3: error - x\n", "iperf3: error - x on stderr\n"}},
        ParserCase{"ErrorWithoutStandardErrorUsesTheOutput", kTcp3s, {}, {"fail iperf3: error - x\n"}, true, Rest{"iperf3: error - x\n", ""}},
        ParserCase{"PlainRestReportsNothing", kTcp3s, {}, {}, false, Rest{"Connecting to host\n", "sh: 1: not found\n"}},
        ParserCase{"NothingAfterAStop", kTcp3s, {kOne}, {}, false, Rest{"iperf3: error - x\n", "boom\n"}, true},
        ParserCase{"NothingAfterADecision", kTcp3s, {kFinal3s}, kFinal3sCalls, true, Rest{"iperf3: error - x\n", "boom\n"}},
        ParserCase{"UndecodableRestReportsNothing", kTcp3s, {}, {}, false, Rest{"\xff iperf3: error - x\n", "boom\n"}}), kByName);

// A callback may stop or destroy the test: the rest of the chunk reports nothing. A destroyed
// delegate is never called; without one, the connection line does not end the chunk.
TEST(PerfTestParser, CallbacksMayStopOrDestroyTheTestAndDelegatesMayGo)
{
    const QString chunk = "x\n" + kOne + kOne + QStringLiteral("Finished_$#0.00-10.00 sec$#1$#8$#sender\n");
    CallRecorder stopper;
    PerfTest test;
    test.setDelegate(&stopper);
    stopper.onCall = [&test] { test.stop(); };
    test.didReceivePerfTestRespnose(chunk);
    EXPECT_EQ(stopper.calls, QStringList{"interval 0.00-1.00 1 8"});

    CallRecorder destroyer;
    auto *doomed = new PerfTest;
    doomed->setDelegate(&destroyer);
    destroyer.onCall = [&doomed] { delete std::exchange(doomed, nullptr); };
    doomed->didReceivePerfTestRespnose(chunk);
    EXPECT_EQ(destroyer.calls, QStringList{"interval 0.00-1.00 1 8"});

    PerfTest orphan;
    orphan.setDelegate(std::make_unique<CallRecorder>().get());
    EXPECT_EQ(orphan.delegate(), nullptr);
    orphan.didReceivePerfTestRespnose(kConnection + kOne);
    EXPECT_EQ(orphan.result()->endTime, QStringLiteral("1.00"));
    orphan.didReceivePerfTestRespnose(chunk);
    EXPECT_TRUE(orphan.hasTestFinished());
}

// A settings store of the test's own, so the interface list is under control.
class Coordinator : public ::testing::Test
{
protected:
    QTemporaryDir m_dir;
    SettingsStore m_store{m_dir.filePath(QStringLiteral("settings.ini"))};
};

struct InterfaceCase
{
    friend void PrintTo(const InterfaceCase &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    QString stored; // the "IPAddresss" text; null: nothing stored
    QString address;
    QString expected; // null: still unknown
};

class InterfaceName : public Coordinator, public ::testing::WithParamInterface<InterfaceCase> {};

TEST_P(InterfaceName, FromTheStoredInterfaceList)
{
    if (!GetParam().stored.isNull())
        m_store.setObject(GetParam().stored, QStringLiteral("IPAddresss"));
    PerfHelper helper(m_store);
    helper.didResolvedLocalIP(GetParam().address);
    EXPECT_EQ(helper.localIP, GetParam().address);
    EXPECT_EQ(helper.usedInterfaceName().isNull(), GetParam().expected.isNull());
    EXPECT_EQ(helper.usedInterfaceName(), GetParam().expected);
}

const QString kTwo = QStringLiteral("Wi-Fi (Primary): 192.168.1.5, Ethernet: 10.0.0.2");

INSTANTIATE_TEST_SUITE_P(
    PerfHelper, InterfaceName,
    ::testing::Values(InterfaceCase{"LaterEntryKeepsItsLeadingBlank", kTwo, "10.0.0.2", " Ethernet"},
                      InterfaceCase{"AirPortIsWiFi", "AirPort (Primary): 192.168.1.5, Ethernet: 10.0.0.2", "192.168.1.5", "WiFi"},
                      InterfaceCase{"LowerAirPortIsWiFi", "airPort: 10.0.0.2", "10.0.0.2", "WiFi"},
                      InterfaceCase{"IEEE80211IsWiFi", "IEEE80211: 10.0.0.2", "10.0.0.2", "WiFi"},
                      InterfaceCase{"LeadingBlankSpoilsAWiFiSpelling", "Ethernet: 10.0.0.2, AirPort: 192.168.1.5", "192.168.1.5", " AirPort"},
                      InterfaceCase{"NothingStoredIsWiFi", {}, "10.0.0.2", "WiFi"},
                      InterfaceCase{"AddressNotListedIsWiFi", kTwo, "172.16.0.9", "WiFi"},
                      InterfaceCase{"EmptyAddressIsWiFi", kTwo, "", "WiFi"},
                      InterfaceCase{"SuffixMatch", "Ethernet: 192.168.1.5", "1.5", "Ethernet"},
                      InterfaceCase{"ListedButNoEntryEndsWithIt", "Ethernet: 10.0.0.25", "10.0.0.2", {}},
                      InterfaceCase{"LastMatchWins", "IEEE80211: 10.0.0.2, Ethernet: 10.0.0.2", "10.0.0.2", " Ethernet"},
                      InterfaceCase{"EntryWithoutNameNamesNothing", "10.0.0.2", "10.0.0.2", {}},
                      InterfaceCase{"Ipv6EntryNamedBeforeFirstColon", "Ethernet: fe80::1", "fe80::1", "Ethernet"}), kByName);

TEST_F(Coordinator, RecordsAreStampedOnceTheInterfaceIsKnown)
{
    m_store.setObject(QStringLiteral("Loopback: 127.0.0.1"), QStringLiteral("IPAddresss"));
    auto recorder = std::make_unique<CallRecorder>();
    PerfHelper helper(m_store);
    helper.setDelegate(recorder.get());
    const PerfResultPtr records[] = {std::make_shared<PerfResult>(), std::make_shared<PerfResult>(), std::make_shared<PerfResult>()};
    helper.reportInterval(records[0]);
    helper.didResolvedLocalIP(QStringLiteral("127.0.0.1"));
    helper.reportInterval(records[1]);
    helper.testDidFinished(records[2]);
    helper.testDidFail(QStringLiteral("iperf3: error - x\n"));
    EXPECT_EQ(recorder->calls, (QStringList{"interval nil-nil 0 0 if=nil", "interval nil-nil 0 0 if=Loopback",
                                            "finished nil-nil 0 0 if=Loopback", "fail iperf3: error - x\n"}));
    EXPECT_EQ(recorder->records, QList<PerfResultPtr>(std::begin(records), std::end(records))); // not copies
    // A destroyed delegate is forgotten, not called.
    recorder.reset();
    helper.reportInterval(records[0]);
    helper.testDidFinished(records[2]);
    helper.testDidFail(QStringLiteral("x"));
}

// The real launcher against stock one-off iperf3 servers on loopback.
class EndToEnd : public Coordinator
{
protected:
    void SetUp() override
    {
        TidewaveUtils::copyiPerfExecutableToAppSupportDir(); // as at start-up
        m_store.setObject(QStringLiteral("Wi-Fi (Primary): 192.168.1.5, Loopback: 127.0.0.1"), QStringLiteral("IPAddresss"));
    }

    quint16 stockServer()
    {
        const quint16 port = TestEnvironment::freeTcpPort();
        QProcess &server = *m_servers.emplace_back(std::make_unique<QProcess>());
        server.start(QStringLiteral("iperf3"), QStringLiteral("-s -1 -B 127.0.0.1 -p %1").arg(port).split(QLatin1Char(' ')));
        EXPECT_TRUE(waitUntil([port] { return TestEnvironment::tcpPortListening(port); }, 5s));
        return port;
    }

    // A coordinator's test: TCP at a rate in Mbit/s, or reverse UDP in Kbit/s.
    PerfHelperPtr start(CallRecorder &recorder, quint16 port, bool udp, qint64 rate, qint64 length, qint64 duration)
    {
        auto helper = std::make_shared<PerfHelper>(m_store);
        helper->setDelegate(&recorder);
        helper->serverIP = QStringLiteral("127.0.0.1");
        helper->serverPort = port;
        helper->duration = duration;
        helper->stats_interval = 1;
        helper->testType = helper->reverse = helper->bandwidthformat = udp;
        helper->bufferLength = length;
        helper->sendBandwidth = rate;
        helper->invalidTestDuration = 9;
        helper->runTest();
        // Until the tool names the connection's address: the interface list's last.
        EXPECT_EQ(helper->localIP, TidewaveUtils::getIPAddress());
        EXPECT_EQ(helper->test().invalidTestDuration, 9);
        m_groups << helper->test().processId(); // the shell's, with the launcher and iperf3
        return helper;
    }

    std::vector<std::unique_ptr<QProcess>> m_servers; // killed with their QProcess
    QList<qint64> m_groups;
};

// Intervals ending at 1 and 2 s, then the final record as an interval and as the result.
void expectComplete(const CallRecorder &recorder, double bitsPerSecond, bool udp)
{
    ASSERT_EQ(recorder.records.size(), 4) << recorder.calls.join('\n').toStdString();
    EXPECT_TRUE(recorder.calls.last().startsWith(QLatin1String("finished 0.00-2.")));
    EXPECT_EQ(recorder.records[2], recorder.records[3]);
    for (int i = 0; i < 4; ++i) {
        const PerfResult &r = *recorder.records[i];
        EXPECT_EQ(SettingsStore::leadingInteger(r.endTime), i == 0 ? 1 : 2) << recorder.calls[i].toStdString();
        EXPECT_EQ(r.interfaceName, QStringLiteral(" Loopback"));
        EXPECT_NEAR(r.sentBandwidth / bitsPerSecond, 1.0, 0.25) << recorder.calls[i].toStdString();
        const double seconds = r.endTime.toDouble() - r.startTime.toDouble();
        EXPECT_NEAR(r.sentBytes * 8 / (r.sentBandwidth * seconds), 1.0, 0.02) << recorder.calls[i].toStdString();
        EXPECT_EQ(r.jitter.endsWith(QLatin1String(" ms")) && r.lostTotalDataGrams.contains(QLatin1Char('/')) && r.bandwidthformat == 1, udp);
    }
}

// Runs side by side: TCP and reverse UDP tests complete, a refused connection fails with iperf3's
// text, a server that never answers ends in the no-response time-out (which answered runs never
// get), and runs stopped or dropped mid-test end their processes and report nothing more.
TEST_F(EndToEnd, RunsEndAsTheirServersAnswerOrTheUserStops)
{
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    CallRecorder tcp, udp, refused, unanswered, stopped, dropped, cut;
    PerfHelperPtr gone = start(dropped, stockServer(), false, 100, 128, 10);
    const PerfHelperPtr cutShort = start(cut, stockServer(), false, 100, 128, 10);
    QProcess &cutServer = *m_servers.back();
    const QList<PerfHelperPtr> helpers{start(tcp, stockServer(), false, 100, 128, 2), start(udp, stockServer(), true, 1000, 4, 2),
                                       start(refused, TestEnvironment::freeTcpPort(), true, 0, 8, 2),
                                       start(unanswered, silent.serverPort(), false, 0, 128, 2), start(stopped, stockServer(), false, 100, 128, 10)};
    // The tool's own datagram and buffer lengths (8 and 128 KB) are not passed.
    const auto options = [&](int i) { return helpers[i]->test().iperfOptions().join(QLatin1Char('|')).section(QLatin1Char('|'), 4); };
    EXPECT_EQ(options(0), QStringLiteral("-b100M|-t2|-i1"));
    EXPECT_EQ(options(1), QStringLiteral("-R|-u|-l4KB|-b1000K|-t2|-i1"));
    EXPECT_EQ(options(2), QStringLiteral("-R|-u|-t2|-i1"));
    ASSERT_TRUE(waitUntil([&] { return !stopped.calls.isEmpty() && !dropped.calls.isEmpty() && cut.calls.size() >= 2; }, 5s));
    ::kill(pid_t(cutServer.processId()), SIGTERM); // iperf3 repeats its last interval, then gives its reason
    const QStringList atStop = stopped.calls + dropped.calls;
    helpers[4]->stopTest();
    gone.reset();
    ASSERT_TRUE(waitUntil([&] { return !unanswered.calls.isEmpty(); }, 7s));
    ASSERT_TRUE(waitUntil([&] { return std::ranges::all_of(m_groups, [](qint64 g) { return TestEnvironment::groupMembers(g).isEmpty(); }); }, 5s));

    expectComplete(tcp, 100e6, false);
    expectComplete(udp, 1e6, true);
    EXPECT_EQ(helpers[0]->localIP, QStringLiteral("127.0.0.1"));
    EXPECT_EQ(helpers[0]->usedInterfaceName(), QStringLiteral(" Loopback"));
    EXPECT_EQ(refused.calls, QStringList{"fail iperf3: error - unable to connect to server: Connection refused\n"});
    EXPECT_EQ(unanswered.calls, QStringList{"fail Connection timedout, no Response received from server."});
    EXPECT_TRUE(silent.hasPendingConnections()) << "the tool did connect";
    EXPECT_EQ(stopped.calls + dropped.calls, atStop);
    // A test cut short fails in iperf3's words, with each whole interval that ran reported once.
    ASSERT_TRUE(waitUntil([&] { return cut.calls.last().startsWith(QLatin1String("fail")); }, 5s)) << cut.calls.join('\n').toStdString();
    EXPECT_TRUE(cut.calls.last().contains(QLatin1String("iperf3: error - the server has terminated")) && !cut.calls.last().contains(QLatin1String("$#")))
        << cut.calls.last().toStdString();
    for (qsizetype i = 0; i + 1 < cut.calls.size(); ++i)
        EXPECT_TRUE(cut.calls[i].startsWith(QStringLiteral("interval %1.00-%2.00 ").arg(i).arg(i + 1))) << cut.calls.join('\n').toStdString();
    // Stopped before it runs, a test starts nothing.
    PerfHelper never(m_store);
    never.stopTest();
    never.runTest();
    EXPECT_EQ(never.test().processId(), 0);
}

} // namespace

namespace {

// Real tests through the engine over rate-limited paths side by side: four streams over 100 Mbit/s
// give one record per interval, their sum, within 10 % of the rate's payload; a two-way test over 50 Mbit/s
// up and 20 Mbit/s down gives records of both directions, each averaging within 10 % of its; every interval
// record has its round-trip time and, once the test has ended, its sender's retransmits.
TEST_F(EndToEnd, ParallelStreamsAndTwoWayTests)
{
    const TestPath wide("ps", 0, 100, 100), uneven("tw", 0, 50, 20);
    if (!wide.ready || !uneven.ready)
        GTEST_SKIP() << "cannot build the paths (needs root)";
    CallRecorder streams, twoWay;
    std::vector<std::unique_ptr<QProcess>> servers;
    QList<PerfHelperPtr> helpers;
    for (const auto &[path, recorder] : {std::pair{&wide, &streams}, {&uneven, &twoWay}}) {
        servers.emplace_back(std::make_unique<QProcess>())->start("ip", {"netns", "exec", path->far.name, "iperf3", "-s", "-1", "-p", "5201"});
        ASSERT_TRUE(waitUntil([&] { QString out; return TestNamespace::run({"ip", "netns", "exec", path->far.name, "ss", "-Htln", "sport = :5201"}, &out) && !out.isEmpty(); }, 5s));
        auto helper = helpers.emplace_back(std::make_shared<PerfHelper>(m_store));
        helper->setDelegate(recorder);
        helper->serverIP = QStringLiteral("10.213.2.1");
        helper->serverPort = 5201;
        helper->duration = 5;
        helper->stats_interval = 1;
        helper->bufferLength = 128;
        helper->reverse = 1; // a two-way test goes both ways all the same
        (path == &wide ? helper->parallelStreams : helper->twoWay) = path == &wide ? 4 : 1;
        path->fromNear([&] { helper->runTest(); });
    }
    EXPECT_EQ(helpers[0]->test().iperfOptions().mid(4), (QStringList{"-R", "-P4", "-t5", "-i1"}));
    EXPECT_EQ(helpers[1]->test().iperfOptions().mid(4), (QStringList{"--bidir", "-t5", "-i1"}));
    ASSERT_TRUE(waitUntil([&] { return !streams.calls.isEmpty() && streams.calls.last().startsWith("fin") && twoWay.calls.last().startsWith("fin"); }, 20s))
        << streams.calls.join('\n').toStdString() << twoWay.calls.join('\n').toStdString();
    const auto average = [](const CallRecorder &recorder, qint64 direction, double rate) {
        double sum = 0;
        int count = 0;
        for (const PerfResultPtr &r : recorder.records) {
            if (r->direction == direction && r->endTime.toDouble() - r->startTime.toDouble() < 1.5) { // the final records apart
                sum += r->sentBandwidth, ++count;
                EXPECT_TRUE(r->retransmits >= 0 && r->roundTripMs > 0) << r->retransmits << " " << r->roundTripMs << recorder.calls.join('\n').toStdString();
            }
        }
        EXPECT_EQ(count, 5) << recorder.calls.join('\n').toStdString();
        std::cout << "direction " << direction << ": " << sum / count / 1e6 << " Mbit/s over " << rate / 1e6 << "\n"; // the figures, for the record
        // The rate counts whole frames: of each 1514 bytes, 1448 are TCP payload.
        EXPECT_NEAR(sum / count / (rate * 1448 / 1514), 1.0, 0.1) << recorder.calls.join('\n').toStdString();
    };
    average(streams, 1, 100e6);
    average(twoWay, 0, 50e6);
    average(twoWay, 1, 20e6);
}

} // namespace
