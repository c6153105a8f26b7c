#include "LineTagger.h"
#include "PerfHelper/PerfTest.h"

#include "common/TestEnvironment.h"
#include "network/NetworkTestSupport.h"
#include "support/TestPath.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QMap>
#include <QProcess>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <iostream>
#include <ostream>

#include <cmath>

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;
using TestEnvironment::waitUntil;

const auto kByName = [](const auto &info) { return std::string(info.param.name); };

namespace {

const std::string kUdpReceiver = "[ ID] Interval           Transfer     Bitrate         Jitter    Lost/Total Datagrams";

struct LineCase
{
    friend void PrintTo(const LineCase &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    std::string line;
    std::string tagged; // without its "\n"; empty: no tagged line
    std::string header = "[ ID] Interval           Transfer     Bitrate"; // the column header seen before
    int streams = 1;
    bool twoWay = false;
};

class LineTaggerLines : public ::testing::TestWithParam<LineCase> {};

TEST_P(LineTaggerLines, TagsReportLinesOnly)
{
    LineTagger tagger(LineTagger::Mode::Server, {.streams = GetParam().streams, .twoWay = GetParam().twoWay, .linkHealth = false, .roundTrip = {}});
    EXPECT_FALSE(tagger.tag(GetParam().header).has_value());
    EXPECT_EQ(tagger.tag(GetParam().line).value_or(""), GetParam().tagged.empty() ? "" : GetParam().tagged + "\n");
}

// UDP receiver intervals whose jitter or loss columns are not iperf3's get five fields.
const std::string kOneK = "[  5]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec  ";
const std::string kFive = "RESULT_$#0.00-1.00 sec$#1019$#8000$#receiver";

INSTANTIATE_TEST_SUITE_P(
    Shapes, LineTaggerLines,
    ::testing::Values(
        LineCase{"UdpReceiverInterval", kOneK + "0.020 ms  76/76 (1e+02%)  ", "RESULT_$#0.00-1.00 sec$#1019$#8000$#0.020 ms$#76/76 (1e+02%)$#receiver", kUdpReceiver},
        LineCase{"JitterNotANumber", kOneK + "x ms  0/8 (0%)", kFive, kUdpReceiver},
        LineCase{"JitterWithoutUnit", kOneK + "0.020 s  0/8 (0%)", kFive, kUdpReceiver},
        LineCase{"LossWithoutSlash", kOneK + "0.020 ms  08 (0%)", kFive, kUdpReceiver},
        LineCase{"LossCountWithWords", kOneK + "0.020 ms  0/8error (0%)", kFive, kUdpReceiver},
        LineCase{"PercentWithoutParenthesis", kOneK + "0.020 ms  0/8 0%)", kFive, kUdpReceiver},
        LineCase{"PercentUnclosed", kOneK + "0.020 ms  0/8 (0%", kFive, kUdpReceiver},
        LineCase{"PercentWithWords", kOneK + "0.020 ms  0/8 (0x%)", kFive, kUdpReceiver},
        LineCase{"StockRateUnits", "[  5]   0.00-1.00   sec  2.10 GBytes  18.0 Gbits/sec", "RESULT_$#0.00-1.00 sec$#2250000000$#18000000000$#receiver"},
        LineCase{"TabsSeparate", "[\t5]\t0.00-1.00\tsec\t640 Bytes\t5.13 Kbits/sec", "RESULT_$#0.00-1.00 sec$#640$#5130$#receiver"},
        // BYTES: rate x printed interval within the Transfer column's window; under 0.5 s, the column.
        LineCase{"RateAboveWindow", "[  5]   2.00-3.01   sec  1.50 GBytes  12822223 Kbits/sec", "RESULT_$#2.00-3.01 sec$#1615981445$#12822223000$#receiver"},
        LineCase{"RateBelowWindow", "[  5]   0.00-1.00   sec  1.50 GBytes  1000 Kbits/sec", "RESULT_$#0.00-1.00 sec$#1605244027$#1000000$#receiver"},
        LineCase{"HalfSecondUsesRate", "[  5]   0.00-0.50   sec  2.41 MBytes  40365 Kbits/sec", "RESULT_$#0.00-0.50 sec$#2522813$#40365000$#receiver"},
        LineCase{"ShortTailUsesTransfer", "[  5]   3.00-3.49   sec  1.25 MBytes  2966269 Kbits/sec", "RESULT_$#3.00-3.49 sec$#1310720$#2966269000$#receiver"},
        LineCase{"WholeBytesAreExact", "[  5]   1.00-2.00   sec   640 Bytes  5.13 Kbits/sec", "RESULT_$#1.00-2.00 sec$#640$#5130$#receiver"},
        // Counts must fit a 64-bit integer.
        LineCase{"RateAtTheLimit", "[  5]   0.00-1.00   sec  1.00 KBytes  9000000000000000 Kbits/sec", ""},
        LineCase{"TransferAtTheLimit", "[  5]   0.00-1.00   sec  9000000000000000000 Bytes  8 Kbits/sec", ""},
        LineCase{"TransferWindowReachesTheLimit", "[  5]   0.00-1.00   sec  8185453 TBytes  8 Kbits/sec", ""},
        // Several streams: their sum only; a two-way test: each direction's lines, this end's role.
        LineCase{"SumOfStreams", "[SUM]   0.00-1.00   sec  1.95 KBytes  16 Kbits/sec    0", "RESULT_$#0.00-1.00 sec$#2000$#16000$#sender", "[ ID] Interval  Transfer  Bitrate  Retr", 2},
        LineCase{"OneOfSeveralStreams", kOneK, "", "[ ID] Interval", 2},
        LineCase{"TwoWayReceiving", "[  7][RX-C]   0.00-1.00   sec  1.95 KBytes  16 Kbits/sec", "RESULT_DOWN$#0.00-1.00 sec$#2000$#16000$#receiver", "[ ID][Role] Interval  Retr", 1, true},
        LineCase{"TwoWaySumSending", "[SUM][TX-C]   0.00-1.00   sec  1.95 KBytes  16 Kbits/sec  0", "RESULT_UP$#0.00-1.00 sec$#2000$#16000$#sender", "[ ID][Role] Interval", 2, true},
        LineCase{"TwoWayServersLine", "[  7][RX-S]   0.00-1.00   sec  1.95 KBytes  16 Kbits/sec", "", "[ ID][Role] Interval", 1, true},
        LineCase{"TwoWayWithoutRole", kOneK, "", "[ ID][Role] Interval", 1, true},
        // Not a per-stream report line.
        LineCase{"Omitted", kOneK + "(omitted)", ""},
        LineCase{"Sum", "[SUM]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"Bidirectional", "[  5][TX-C]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"TwoWordId", "[ 5 6]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"IdOnly", "[  5]", ""},
        LineCase{"Unclosed", "[  5   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"NoSecWord", "[  5]   0.00-1.00   s  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"TooFewColumns", "[  5]   0.00-1.00   sec  1.00 KBytes  8", ""},
        LineCase{"NoIntervalDash", "[  5]   1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"NegativeStart", "[  5]   -1.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"TransferNotANumber", "[  5]   0.00-1.00   sec  1.0x KBytes  8 Kbits/sec", ""},
        LineCase{"RateNotANumber", "[  5]   0.00-1.00   sec  1.00 KBytes  inf Kbits/sec", ""},
        LineCase{"UnknownUnit", "[  5]   0.00-1.00   sec  2.10 Gallons  8 Kbits/sec", ""},
        LineCase{"UnitsSwapped", "[  5]   0.00-1.00   sec  1.00 Kbits/sec  8 KBytes", ""},
        LineCase{"Error", "iperf3: error - unable to connect to server: Connection refused", ""}), kByName);

// A client's result is the receiver's summary, tagged only once iperf3 says the run ended normally; an
// interval iperf3 prints again (it repeats the last one when the server goes away) is tagged once.
TEST(LineTaggerRuns, ClientSummaryAfterANormalEndReceiverFirst)
{
    const std::string interval = "[  5]   2.00-3.00   sec  1.00 KBytes  8 Kbits/sec", header = "[ ID] Interval           Transfer     Bitrate";
    const std::string sender = "[  5]   0.00-3.00   sec  3.00 KBytes  8 Kbits/sec  sender", receiver = "[  5]   0.00-3.01   sec  2.00 KBytes  5 Kbits/sec  receiver";
    const std::string tagged = "RESULT_$#2.00-3.00 sec$#1019$#8000$#receiver\n", finishedReceiver = "Finished_$#0.00-3.01 sec$#2043$#5000$#receiver\n",
                      finishedSender = "Finished_$#0.00-3.00 sec$#3067$#8000$#sender\n";
    const struct
    {
        LineTagger::Mode mode;
        std::vector<std::string> lines;
        std::string out;
    } runs[] = {{LineTagger::Mode::Client, {header, interval, interval, header, sender, receiver, "", "iperf Done."}, tagged + finishedReceiver + finishedSender},
                {LineTagger::Mode::Client, {header, interval, interval, header, sender, receiver, "iperf3: error - the server has terminated"}, tagged},
                {LineTagger::Mode::Client, {header, interval, header, interval, "iperf Done."}, tagged + tagged},
                {LineTagger::Mode::Server, {header, interval, interval, header, sender, receiver}, tagged + finishedSender + finishedReceiver}};
    for (const auto &run : runs) {
        LineTagger tagger(run.mode);
        std::string out;
        for (const std::string &line : run.lines)
            out += tagger.tag(line).value_or("");
        EXPECT_EQ(out, run.out) << run.lines.size();
    }
}

// A client's link figures: each interval's LINK_ line in the write of its report, ahead of its tag;
// the server's output block (with the empty line before it) gives only PEER_ lines (JSON ones: see LinkFigures).
TEST(LineTaggerRuns, ClientLinkFiguresAndTheServersBlock)
{
    const std::vector<std::string> tcp = {"[ ID] Interval           Transfer     Bitrate         Retr  Cwnd", "[  5]   0.00-1.00   sec  1.95 KBytes  16 Kbits/sec    3   64.0 KBytes",
                                          "[  5]   0.00-1.00   sec  1.95 KBytes  16 Kbits/sec    3             sender", "", "Server output:",
                                          "[  5] local 10.0.0.2 port 5201 connected to 10.0.0.1 port 4000", "[ ID] Interval           Transfer     Bitrate         Jitter    Lost/Total Datagrams",
                                          "[  5]   0.00-1.00   sec  1.95 KBytes  16.0 Kbits/sec  0.012 ms  1/9 (11%)", "", "", "iperf Done."};
    LineTagger tagger(LineTagger::Mode::Client, {.streams = 1, .twoWay = false, .linkHealth = true, .roundTrip = [](bool up) { return std::optional<double>(up ? 40.5 : 41); }});
    std::string out; // the writes, joined by "|"
    for (const std::string &line : tcp) {
        for (const std::string &write : tagger.writes(line + "\n"))
            out += (out.empty() ? "" : "|") + write;
    }
    EXPECT_EQ(out + tagger.flush(), tcp[0] + "\n|" + tcp[1] + "\nLINK_UP$#0.00-1.00 sec$#retr=3$#cwnd=65536$#rtt=40.500\nRESULT_$#0.00-1.00 sec$#2000$#16000$#sender\n|" + tcp[2]
                                         + "\n|PEER_UP$#0.00-1.00 sec$#jitter=0.012$#lost=1$#total=9\n|\n|iperf Done.\nLINK_TOTAL_UP$#0.00-1.00 sec$#retr=3\nFinished_$#0.00-1.00 sec$#2000$#16000$#sender\n");
}

class LineTaggerGolden : public ::testing::TestWithParam<std::string> {};

// Captured iperf3 output (after the line naming its command), each report line followed
// by its tagged line, as the launcher writes it.
TEST_P(LineTaggerGolden, MatchesReviewedOutput)
{
    QFile captured(TestEnvironment::dataDir() + QStringLiteral("/tool/iperf3-3.12-%1.txt").arg(QString::fromStdString(GetParam())));
    QFile reviewed(QString(captured.fileName()).replace(QStringLiteral(".txt"), QStringLiteral(".tagged")));
    ASSERT_TRUE(captured.open(QIODevice::ReadOnly) && reviewed.open(QIODevice::ReadOnly)) << captured.fileName().toStdString();
    ASSERT_TRUE(captured.readLine().startsWith("# captured from iperf 3.12"));
    LineTagger tagger(GetParam().starts_with("client") ? LineTagger::Mode::Client : LineTagger::Mode::Server);
    QByteArray out;
    for (QByteArray line; !(line = captured.readLine()).isEmpty();)
        out += line + QByteArray::fromStdString(tagger.tag(line.chopped(1).toStdString()).value_or(""));
    EXPECT_EQ(out, reviewed.readAll());
}

INSTANTIATE_TEST_SUITE_P(Captures, LineTaggerGolden,
                         ::testing::Values("client-tcp", "client-tcp-reverse", "client-udp", "client-udp-reverse", "client-udp-slow",
                                           "client-tcp-parallel-omit", "server"),
                         [](const auto &info) { return QString::fromStdString(info.param).remove('-').toStdString(); });

// The launcher in a process group of its own; its standard output a packet socket, so
// every write it makes arrives as one message, kept with the time it was read.
class Launch
{
public:
    explicit Launch(const QStringList &arguments)
    {
        int sockets[2] = {-1, -1};
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets);
        m_out = sockets[0];
        m_process.setStandardInputFile(QProcess::nullDevice());
        m_process.setChildProcessModifier([out = sockets[1]] {
            setpgid(0, 0);
            dup2(out, STDOUT_FILENO);
        });
        m_process.start(TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf"), arguments);
        close(sockets[1]);
        pid = static_cast<pid_t>(m_process.processId());
        m_clock.start();
    }
    ~Launch()
    {
        if (m_process.state() != QProcess::NotRunning)
            ::kill(-pid, SIGKILL);
        m_process.waitForFinished(5000);
        close(m_out);
    }

    // Reads what has come so far; whether the launcher has exited.
    bool ended()
    {
        const bool exited = m_process.state() == QProcess::NotRunning;
        for (char buffer[1 << 16]; const ssize_t n = recv(m_out, buffer, sizeof buffer, MSG_DONTWAIT);) {
            if (n < 0)
                break;
            writes.append(QByteArray(buffer, n));
            times.append(m_clock.elapsed());
        }
        return exited;
    }
    QByteArray output() { ended(); return writes.join(); }
    QByteArray errors() { return m_errors += m_process.readAllStandardError(); }
    void closeOutput() { close(std::exchange(m_out, -1)); }
    // The exit status; -1 when a signal ended the launcher itself.
    int exitCode() const { return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1; }

    pid_t pid = 0;
    QList<QByteArray> writes;
    QList<qint64> times; // when each write was read, ms after the start

private:
    QProcess m_process;
    QByteArray m_errors;
    int m_out = -1;
    QElapsedTimer m_clock;
};

// Each tagged line against its report line: the interval, the rate to the bit, BYTES within the
// Transfer column's precision, jitter and loss as printed, the role, and seven fields on UDP summaries
// and UDP receiver intervals, five on the others. An interval's tag is in the same write as its line;
// a client's summary tags follow "iperf Done." (the run ended normally), the receiver's first.
void expectTaggedReports(const Launch &launch, const QByteArray &role, bool udp, const QList<QByteArray> &summaryRoles)
{
    QList<QByteArray> roles;
    QList<long> halfSeconds; // interval ends; a short tail may repeat the last
    QMap<QByteArray, QByteArray> held; // a client's untagged summary lines by role
    const auto expectPair = [&](const QByteArray &report, const QByteArray &tagged) {
        const QList<QByteArray> tag = tagged.split('$');
        const QList<QByteArray> words = report.mid(report.indexOf(']') + 1).simplified().split(' ');
        const bool summary = tagged.startsWith("Finished_");
        ASSERT_EQ(tag.size(), udp && (summary || role == "receiver") ? 7 : 5) << tagged.constData();
        EXPECT_EQ(tag[1], "#" + words[0] + " sec");
        const double unit = std::pow(1024.0, QList<QByteArray>{"Bytes", "KBytes", "MBytes", "GBytes"}.indexOf(words[3]));
        const qsizetype dot = words[2].indexOf('.');
        const double halfDigit = 0.5 * std::pow(10.0, dot < 0 ? 0 : dot + 1 - words[2].size()) * unit;
        EXPECT_LE(std::abs(tag[2].mid(1).toDouble() - words[2].toDouble() * unit), halfDigit + 1) << tagged.constData();
        EXPECT_EQ(words[5], "Kbits/sec");
        EXPECT_EQ(tag[3].mid(1).toLongLong(), std::llround(words[4].toDouble() * 1000));
        if (tag.size() == 7) {
            EXPECT_EQ(tag[4] + tag[5], "#" + words[6] + " ms#" + words[8] + " " + words[9]);
        }
        EXPECT_EQ(tag.last(), "#" + (summary ? words.last() : role));
        if (summary)
            roles.append(words.last());
        else if (const long end = std::lround(words[0].mid(words[0].indexOf('-') + 1).toDouble() * 2); !halfSeconds.contains(end))
            halfSeconds.append(end);
    };
    for (QByteArray write : launch.writes) {
        // The link figures' own lines are checked over links that have figures to give.
        QByteArray kept;
        for (const QByteArray &line : write.split('\n'))
            kept += line.startsWith("LINK_") || line.startsWith("PEER_") ? QByteArray() : line + '\n';
        if ((write = kept.chopped(1)).isEmpty())
            continue;
        const QList<QByteArray> lines = write.split('\n');
        EXPECT_TRUE(lines.last().isEmpty()) << "a write of whole lines: " << write.constData();
        if (lines[0] == "iperf Done.") {
            for (const QByteArray &tagged : lines.mid(1, lines.size() - 2))
                expectPair(held.value(tagged.mid(tagged.lastIndexOf('#') + 1)), tagged);
            continue;
        }
        if (lines.size() < 2 || !(lines[1].startsWith("RESULT_") || lines[1].startsWith("Finished_"))) {
            EXPECT_FALSE(write.contains("RESULT_") || write.contains("Finished_")) << write.constData();
            if (lines[0].startsWith("[  ") && (lines[0].endsWith("sender") || lines[0].endsWith("receiver")))
                held[lines[0].mid(lines[0].lastIndexOf(' ') + 1)] = lines[0];
            continue;
        }
        ASSERT_EQ(lines.size(), 3) << "a report line and its tagged line: " << write.constData();
        expectPair(lines[0], lines[1]);
    }
    EXPECT_EQ(halfSeconds, (QList<long>{1, 2}));
    EXPECT_EQ(roles, summaryRoles);
}

struct Direction
{
    friend void PrintTo(const Direction &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name, *options; // the client's
};

class LauncherPair : public ::testing::TestWithParam<Direction> {};

// A one-second test between two launchers, paced to leave the cores to the tests beside it.
TEST_P(LauncherPair, BothSidesTagEveryReport)
{
    const Direction &d = GetParam();
    const QString port = QString::number(TestEnvironment::freeTcpPort());
    Launch server({"./iperf3", "-s", "-1", "-p", port, "-i0.5"});
    ASSERT_TRUE(waitUntil([&] { return server.output().contains("Server listening"); }, 5s));
    Launch client(QStringList{"./iperf3", "-c", "127.0.0.1", "-p" + port, "-t1", "-i0.5"} + QString::fromLatin1(d.options).split(' '));
    ASSERT_TRUE(waitUntil([&] { return client.ended() && server.ended(); }, 10s)) << client.output().constData();
    EXPECT_EQ(client.exitCode() + server.exitCode(), 0);
    EXPECT_EQ(client.errors() + server.errors(), "");
    EXPECT_TRUE(server.output().contains("Accepted connection from 127.0.0.1"));
    const bool udp = QByteArray(d.options).contains("-u"), reverse = QByteArray(d.options).contains("-R");
    const QByteArray serverRole = reverse ? "sender" : "receiver";
    expectTaggedReports(client, reverse ? "receiver" : "sender", udp, {"receiver", "sender"});
    expectTaggedReports(server, serverRole, udp, {serverRole});

    // The engine drops results read together with the connection line: that line must
    // come at connect time, half a second before the first report, not flushed with it.
    const auto firstWith = [&](const char *text) {
        return std::ranges::find_if(client.writes, [&](const QByteArray &w) { return w.contains(text); }) - client.writes.begin();
    };
    const qsizetype connected = firstWith("connected to");
    const qsizetype report = firstWith("RESULT_");
    ASSERT_TRUE(connected < report && report < client.writes.size()) << client.output().constData();
    EXPECT_GT(client.times[report] - client.times[connected], 100);
}

INSTANTIATE_TEST_SUITE_P(Loopback, LauncherPair,
                         ::testing::Values(Direction{"Tcp", "-b100M"}, Direction{"TcpReverse", "-b100M -R"},
                                           Direction{"Udp", "-u -b10M"}, Direction{"UdpReverse", "-u -b10M -R"}), kByName);

struct End
{
    friend void PrintTo(const End &c, std::ostream *out) { *out << c.name; } // test names, not bytes
    const char *name;
    QStringList arguments;       // "PORT" stands for a free port, "TAKEN" for one in use
    int signal;                  // sent once iperf3 listens; 0: none
    int target;                  // 0 the launcher, 1 its process group, 2 its iperf3
    bool freezeIperf;            // iperf3 is stopped first, so it cannot answer
    int exitCode;                // the launcher's; -1: killed itself
    QByteArray line;             // iperf3's last words, on both streams
    bool readerGone = false;     // the reader of standard output went away first
};

class LauncherEnds : public ::testing::TestWithParam<End> {};

// The launcher ends with iperf3's status and last words, on standard output for the
// engine's parsers and on standard error for its end-of-process path; the signals it
// handles reach iperf3, and however it is stopped, iperf3 does not stay behind.
TEST_P(LauncherEnds, WithIperfsStatusAndLastWords)
{
    const End &e = GetParam();
    QTcpServer occupant; // on every address, so iperf3 cannot bind its port
    ASSERT_TRUE(occupant.listen(QHostAddress::Any));
    const QString port = QString::number(TestEnvironment::freeTcpPort());
    Launch launch(QStringList(e.arguments).replaceInStrings("TAKEN", QString::number(occupant.serverPort())).replaceInStrings("PORT", port));
    TestEnvironment::Process iperf;
    if (e.signal != 0) {
        ASSERT_TRUE(waitUntil([&] { return launch.output().contains("Server listening"); }, 5s));
        const QList<TestEnvironment::Process> all = TestEnvironment::liveProcesses(); // iperf3 is the only child
        const auto child = std::ranges::find(all, qint64(launch.pid), &TestEnvironment::Process::parent);
        ASSERT_NE(child, all.end());
        iperf = *child;
        // "./iperf3" dropped, the rest in order, then the launcher's own options.
        EXPECT_EQ(iperf.arguments, (QList<QByteArray>{TIDEWAVE_IPERF3_PATH, "-s", "-p", port.toLatin1(), "--forceflush", "--format", "k"}));
        ASSERT_TRUE(!e.freezeIperf || ::kill(static_cast<pid_t>(iperf.pid), SIGSTOP) == 0);
        if (e.readerGone)
            launch.closeOutput();
        const pid_t targets[] = {launch.pid, -launch.pid, static_cast<pid_t>(iperf.pid)};
        ASSERT_EQ(::kill(targets[e.target], e.signal), 0);
    }
    ASSERT_TRUE(waitUntil([&] { return launch.ended(); }, 8s));
    EXPECT_EQ(launch.exitCode(), e.exitCode);
    ASSERT_TRUE(waitUntil([&] { return !TestEnvironment::processAlive(iperf.pid); }, 5s));
    EXPECT_EQ(launch.writes.contains(e.line), !e.line.isEmpty() && !e.readerGone) << launch.output().constData();
    EXPECT_TRUE(launch.errors().contains(e.line)) << launch.errors().constData();
    EXPECT_EQ(launch.output().contains("interrupt"), e.line.contains("interrupt") && !e.readerGone);
}

const QByteArray kInterrupted = "iperf3: interrupt - the server has terminated\n";
const QStringList kServer{"./iperf3", "-s", "-p", "PORT"};

INSTANTIATE_TEST_SUITE_P(
    Iperf, LauncherEnds,
    ::testing::Values(End{"NoArguments", {}, 0, 0, false, 1, "iperf3: parameter error - must either be a client (-c) or server (-s)\n"},
                      // A first word that does not name iperf3 is an option like any other.
                      End{"ConnectionRefused", {"-c", "127.0.0.1", "-pPORT", "-t1"}, 0, 0, false, 1,
                          "iperf3: error - unable to connect to server: Connection refused\n"},
                      End{"PortInUse", {"/usr/bin/iperf3", "-s", "-p", "TAKEN"}, 0, 0, false, 1,
                          "iperf3: error - unable to start listener for connections: Address already in use\n"},
                      End{"Term", kServer, SIGTERM, 0, false, 1, kInterrupted},
                      End{"Interrupt", kServer, SIGINT, 0, false, 1, kInterrupted},
                      End{"Hangup", kServer, SIGHUP, 0, false, 1, kInterrupted},
                      End{"TermWithTheReaderGone", kServer, SIGTERM, 0, false, 1, kInterrupted, true},
                      End{"TermToGroup", kServer, SIGTERM, 1, false, 1, kInterrupted},
                      End{"KillLauncher", kServer, SIGKILL, 0, false, -1, ""},
                      End{"KillIperf", kServer, SIGKILL, 2, false, 128 + SIGKILL, ""},
                      // Killed once the grace time is over.
                      End{"IperfDeafToTerm", kServer, SIGTERM, 0, true, 128 + SIGKILL, ""}), kByName);

} // namespace

namespace {

// Over a link whose two ends drop 2 % of incoming UDP data datagrams (nftables, counted; iperf3's
// few-byte UDP handshake passes, as a test that never starts measures nothing), a client's final
// record is the receiver's count: UDP loss as the receiver counted it (the server's JSON when this end
// sends, the drop counter when it receives), the datagram total and jitter as the server's (0.1 % of
// the total, 0.01 ms); TCP bytes within 0.5 % of what the server received.
TEST(LossyLink, TheFinalRecordIsWhatTheReceiverCounted)
{
    const TestNamespace near("lossa"), far("lossb");
    if (!near.created || !far.created)
        GTEST_SKIP() << "cannot create network namespaces (needs root)";
    const QString veth = QStringLiteral("twl%1").arg(getpid() % 100000);
    const QString dropUdp = "add table inet loss; add chain inet loss input { type filter hook input priority 0; };"
                            "add rule inet loss input meta l4proto udp udp length > 100 numgen random mod 100 < 2 counter drop";
    ASSERT_TRUE(TestNamespace::run({"ip", "link", "add", veth, "netns", near.name, "type", "veth", "peer", "name", veth + "p", "netns", far.name}));
    ASSERT_EQ(near.ip("addr add 10.211.0.1/24 dev " + veth + ";link set " + veth + " up") + far.ip("addr add 10.211.0.2/24 dev " + veth + "p;link set " + veth + "p up"), "");
    for (const TestNamespace *space : {&near, &far})
        ASSERT_TRUE(TestNamespace::run({"ip", "netns", "exec", space->name, "nft", dropUdp}));
    const QStringList runs[] = {{"-u", "-b50M"}, {"-u", "-b50M", "-R"}, {"-b200M"}};
    std::vector<std::unique_ptr<QProcess>> servers, clients;
    for (int i = 0; i < 3; ++i) {
        const QString port = QString::number(5301 + i);
        servers.emplace_back(std::make_unique<QProcess>())->start("ip", {"netns", "exec", far.name, "iperf3", "-s", "-1", "-J", "-p", port});
        ASSERT_TRUE(waitUntil([&] { QString out; return TestNamespace::run({"ip", "netns", "exec", far.name, "ss", "-Htln", "sport = :" + port}, &out) && !out.isEmpty(); }, 5s));
        clients.emplace_back(std::make_unique<QProcess>())->start("ip", QStringList{"netns", "exec", near.name, TestEnvironment::binDir() + "/mac-native-iperf", "./iperf3",
                                                                                   "-c", "10.211.0.2", "-p" + port, "-t5", "-i1"} + runs[i]);
    }
    for (auto &process : servers)
        ASSERT_TRUE(process->waitForFinished(20000));
    QString counter;
    ASSERT_TRUE(TestNamespace::run({"ip", "netns", "exec", near.name, "nft", "list", "chain", "inet", "loss", "input"}, &counter));
    const QString droppedHere = QRegularExpression("counter packets (\\d+)").match(counter).captured(1);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(clients[i]->waitForFinished(5000));
        const QString out = QString::fromUtf8(clients[i]->readAllStandardOutput());
        const QStringList final = out.mid(out.indexOf("Finished_")).section('\n', 0, 0).split("$#");
        const QJsonObject end = QJsonDocument::fromJson(servers[i]->readAllStandardOutput()).object()["end"].toObject();
        ASSERT_EQ(final.last(), "receiver") << out.toStdString();
        if (i == 2) {
            EXPECT_NEAR(final[2].toDouble() / end["sum_received"].toObject()["bytes"].toDouble(), 1.0, 0.005) << out.toStdString();
            continue;
        }
        // As counted when the results were exchanged: a loaded machine's JSON and drop counter, read a
        // moment later, may differ by the datagrams in flight then (0.1 % of the total covers them; the
        // sender's "0/N" is 2 % off).
        const QJsonObject sum = end["sum"].toObject();
        const double total = sum["packets"].toDouble(), lost = i == 0 ? sum["lost_packets"].toDouble() : droppedHere.toDouble();
        const QString lostTotal = final[5].section(' ', 0, 0);
        EXPECT_NEAR(lostTotal.section('/', 0, 0).toDouble(), lost, total * 0.001) << out.toStdString();
        EXPECT_NEAR(lostTotal.section('/', 1).toDouble(), total, total * 0.001) << out.toStdString();
        EXPECT_GT(lost, total * 0.01);
        if (i == 0) {
            EXPECT_NEAR(final[4].section(' ', 0, 0).toDouble(), sum["jitter_ms"].toDouble(), 0.01) << out.toStdString();
        }
    }
}

} // namespace

namespace {

// The records the engine's parser makes of a launcher's output, fed line by line.
struct Records : PerfTestDelegate
{
    void reportInterval(const PerfResultPtr &result) override { all << result; }
    PerfResultList all;
};

// Over a path delaying every packet 20 ms each way and dropping 1 % of TCP data segments and 2 % of UDP
// data datagrams (10 s tests side by side), the interval records' figures add up to iperf3's own totals:
// a TCP sender's retransmits (this computer's summary when it sends; the server's JSON when that sends),
// a UDP receiver's lost datagrams (the server's JSON when it receives; this computer's summary when it
// does); every interval's round-trip time is within 15 % of 40 ms when this computer sends, 25 % when
// it receives.
TEST(LinkFigures, AddUpToIperfsTotalsOverADelayedLossyPath)
{
    const TestPath path("lf", 20, 0, 0, 1, 2);
    if (!path.ready)
        GTEST_SKIP() << "cannot build the delayed path (needs root)";
    const struct
    {
        QStringList options;
        double rtt; // tolerance of the round-trip times; 0: none expected
    } runs[] = {{{"-C", "cubic"}, 0.15}, {{"-C", "cubic", "-R"}, 0.25}, {{"-u", "-b20M"}, 0}, {{"-u", "-b20M", "-R"}, 0}};
    std::vector<std::unique_ptr<QProcess>> servers, clients;
    for (const auto &run : runs) {
        const QString port = QString::number(5301 + servers.size());
        servers.emplace_back(std::make_unique<QProcess>())->start("ip", {"netns", "exec", path.far.name, "iperf3", "-s", "-1", "-J", "-p", port});
        ASSERT_TRUE(waitUntil([&] { QString out; return TestNamespace::run({"ip", "netns", "exec", path.far.name, "ss", "-Htln", "sport = :" + port}, &out) && !out.isEmpty(); }, 5s));
        clients.emplace_back(std::make_unique<QProcess>())->start("ip", QStringList{"netns", "exec", path.near.name, TestEnvironment::binDir() + "/mac-native-iperf", "./iperf3",
                                                                                   "-c", "10.213.2.1", "-p" + port, "-t10", "-i1"} + run.options);
    }
    for (std::size_t i = 0; i < std::size(runs); ++i) {
        ASSERT_TRUE(clients[i]->waitForFinished(25000) && servers[i]->waitForFinished(5000));
        const QByteArray out = clients[i]->readAllStandardOutput();
        const QJsonObject end = QJsonDocument::fromJson(servers[i]->readAllStandardOutput()).object()["end"].toObject();
        Records records;
        PerfTest parser;
        parser.testType = i >= 2, parser.reverse = i % 2, parser.duration = 10;
        parser.setDelegate(&records);
        QList<double> rtts; // sorted
        qint64 sum = 0;
        QList<QByteArray> summary; // this computer's summary line, the sender's for TCP, the receiver's for UDP
        for (const QByteArray &line : out.split('\n')) {
            parser.didReceivePerfTestRespnose(QString::fromUtf8(line + '\n'));
            summary = line.startsWith('[') && line.trimmed().endsWith(i < 2 ? "sender" : "receiver") ? line.simplified().split(' ') : summary;
        }
        ASSERT_EQ(records.all.size(), 11) << out.constData(); // ten intervals and the final record
        for (const PerfResultPtr &r : records.all.first(10)) {
            sum += i < 2 ? r->retransmits : r->udpLostDatagrams;
            if (runs[i].rtt > 0) {
                rtts.insert(std::ranges::upper_bound(rtts, r->roundTripMs), r->roundTripMs);
                EXPECT_NEAR(r->roundTripMs, 40, 40 * runs[i].rtt) << r->startTime.toStdString();
            }
        }
        const double expected[] = {summary.value(summary.size() - 2).toDouble(), end["sum_sent"].toObject()["retransmits"].toDouble(),
                                   end["sum"].toObject()["lost_packets"].toDouble(), summary.value(summary.size() - 3).split('/').first().toDouble()};
        std::cout << runs[i].options.join(' ').toStdString() << ": intervals' sum " << sum << ", iperf3's total " << expected[i] << ", round-trip times "
                  << rtts.value(0) << "-" << rtts.value(rtts.size() - 1) << " ms\n"; // the figures, for the record
        EXPECT_EQ(sum, expected[i]) << out.constData();
        EXPECT_GT(expected[i], 0) << out.constData();
    }
}

} // namespace
