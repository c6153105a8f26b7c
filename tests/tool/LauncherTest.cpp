#include "common/TestEnvironment.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <cmath>

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;
using TestEnvironment::waitUntil;

namespace {

// The launcher started with these arguments in a process group of its own.
// Its standard output is a packet socket, so every write it makes arrives as
// one message, kept with the time it was read.
class Launch
{
public:
    explicit Launch(const QList<QByteArray> &arguments)
    {
        int sockets[2] = {-1, -1};
        socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets);
        m_out = sockets[0];
        QStringList words;
        for (const QByteArray &argument : arguments)
            words << QString::fromLocal8Bit(argument);
        m_process.setStandardInputFile(QProcess::nullDevice());
        m_process.setChildProcessModifier([out = sockets[1]] {
            setpgid(0, 0);
            dup2(out, STDOUT_FILENO);
        });
        m_process.start(TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf"), words);
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
    QByteArray output()
    {
        ended();
        return writes.join();
    }
    QByteArray errors() { return m_errors += m_process.readAllStandardError(); }
    // The exit status; -1 when a signal ended the launcher itself.
    int exitCode() const { return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1; }
    // The launcher's iperf3, its only child.
    TestEnvironment::Process iperf() const
    {
        const QList<TestEnvironment::Process> all = TestEnvironment::liveProcesses();
        const auto child = std::ranges::find(all, qint64(pid), &TestEnvironment::Process::parent);
        return child == all.end() ? TestEnvironment::Process() : *child;
    }

    pid_t pid = 0;
    QList<QByteArray> writes;
    QList<qint64> times; // when each write was read, ms after the start

private:
    QProcess m_process;
    QByteArray m_errors;
    int m_out = -1;
    QElapsedTimer m_clock;
};

// Checks each tagged line against the report line written with it: the
// interval, the rate to the bit, BYTES inside the Transfer column's printed
// precision, jitter and loss as printed, the role.
void expectTaggedReports(const Launch &launch, const QByteArray &role, int fields, int summaryFields,
                         const QList<QByteArray> &summaryRoles)
{
    QList<QByteArray> roles;
    QList<long> halfSeconds; // interval ends; a short tail may repeat the last
    for (const QByteArray &write : launch.writes) {
        const QList<QByteArray> lines = write.split('\n');
        EXPECT_TRUE(lines.last().isEmpty()) << "a write of whole lines: " << write.constData();
        if (lines.size() < 2 || !(lines[1].startsWith("RESULT_") || lines[1].startsWith("Finished_"))) {
            EXPECT_FALSE(write.contains("RESULT_") || write.contains("Finished_")) << write.constData();
            continue;
        }
        ASSERT_EQ(lines.size(), 3) << "a report line and its tagged line: " << write.constData();
        const QList<QByteArray> tag = lines[1].split('$');
        const QList<QByteArray> words = lines[0].mid(lines[0].indexOf(']') + 1).simplified().split(' ');
        const bool summary = lines[1].startsWith("Finished_");
        ASSERT_EQ(tag.size(), summary ? summaryFields : fields) << write.constData();
        EXPECT_EQ(tag[1], "#" + words[0] + " sec");
        const double unit = std::pow(1024.0, QList<QByteArray>{"Bytes", "KBytes", "MBytes", "GBytes"}.indexOf(words[3]));
        const qsizetype dot = words[2].indexOf('.');
        const double halfDigit = 0.5 * std::pow(10.0, dot < 0 ? 0 : dot + 1 - words[2].size()) * unit;
        EXPECT_LE(std::abs(tag[2].mid(1).toDouble() - words[2].toDouble() * unit), halfDigit + 1) << write.constData();
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
    }
    EXPECT_EQ(halfSeconds, (QList<long>{1, 2}));
    EXPECT_EQ(roles, summaryRoles);
}

// The client's options; each side's interval role and field count; the
// field count of every summary line.
struct Direction
{
    const char *name, *options, *clientRole;
    int clientFields;
    const char *serverRole;
    int serverFields, summaryFields;
};

class LauncherPair : public ::testing::TestWithParam<Direction> {};

// A one-second test between two launchers, as client and as server; paced,
// so the test programs running beside it keep their cores.
TEST_P(LauncherPair, BothSidesTagEveryReport)
{
    const Direction &d = GetParam();
    const QByteArray port = QByteArray::number(TestEnvironment::freeTcpPort());
    Launch server({"./iperf3", "-s", "-1", "-p", port, "-i0.5"});
    ASSERT_TRUE(waitUntil([&] { return server.output().contains("Server listening"); }, 5s));
    Launch client(QList<QByteArray>{"./iperf3", "-c", "127.0.0.1", "-p" + port, "-t1", "-i0.5"} + QByteArray(d.options).split(' '));
    ASSERT_TRUE(waitUntil([&] { return client.ended() && server.ended(); }, 10s)) << client.output().constData();
    EXPECT_EQ(client.exitCode() + server.exitCode(), 0);
    EXPECT_EQ(client.errors() + server.errors(), "");
    EXPECT_TRUE(server.output().contains("Accepted connection from 127.0.0.1"));
    expectTaggedReports(client, d.clientRole, d.clientFields, d.summaryFields, {"sender", "receiver"});
    expectTaggedReports(server, d.serverRole, d.serverFields, d.summaryFields, {d.serverRole});

    // The engine takes the connection line for the local address and drops
    // results read together with it: it must come at connect time, half a
    // second before the first report, not flushed along with that.
    const auto firstWith = [&](const char *text) {
        return std::ranges::find_if(client.writes, [&](const QByteArray &w) { return w.contains(text); }) - client.writes.begin();
    };
    const qsizetype connected = firstWith("connected to");
    const qsizetype report = firstWith("RESULT_");
    ASSERT_TRUE(connected < report && report < client.writes.size()) << client.output().constData();
    EXPECT_GT(client.times[report] - client.times[connected], 200);
}

INSTANTIATE_TEST_SUITE_P(Loopback, LauncherPair,
                         ::testing::Values(Direction{"Tcp", "-b100M", "sender", 5, "receiver", 5, 5},
                                           Direction{"TcpReverse", "-b100M -R", "receiver", 5, "sender", 5, 5},
                                           Direction{"Udp", "-u -b10M", "sender", 5, "receiver", 7, 7},
                                           Direction{"UdpReverse", "-u -b10M -R", "receiver", 7, "sender", 5, 7}),
                         [](const auto &info) { return std::string(info.param.name); });

struct End
{
    const char *name;
    QList<QByteArray> arguments; // "PORT" stands for a free port, "TAKEN" for one in use
    int signal;                  // sent once iperf3 listens; 0: none
    int target;                  // 0 the launcher, 1 its process group, 2 its iperf3
    bool freezeIperf;            // iperf3 is stopped first, so it cannot answer
    int exitCode;                // the launcher's; -1: killed itself
    QByteArray line;             // iperf3's last words, on both streams
};

class LauncherEnds : public ::testing::TestWithParam<End> {};

// The launcher ends with iperf3's status and last words (its error line,
// copied to standard output for the engine's parsers and to standard error
// for its end-of-process path); the signals it handles reach iperf3, and
// however it is stopped, its iperf3 does not stay behind.
TEST_P(LauncherEnds, WithIperfsStatusAndLastWords)
{
    const End &e = GetParam();
    QTcpServer occupant; // on every address, so iperf3 cannot bind its port
    ASSERT_TRUE(occupant.listen(QHostAddress::Any));
    const QByteArray port = QByteArray::number(TestEnvironment::freeTcpPort());
    QList<QByteArray> arguments = e.arguments;
    for (QByteArray &argument : arguments)
        argument.replace("TAKEN", QByteArray::number(occupant.serverPort())).replace("PORT", port);
    Launch launch(arguments);
    TestEnvironment::Process iperf;
    if (e.signal != 0) {
        ASSERT_TRUE(waitUntil([&] { return launch.output().contains("Server listening"); }, 5s));
        iperf = launch.iperf();
        // "./iperf3" dropped, the rest in order, then the launcher's own options.
        EXPECT_EQ(iperf.arguments, (QList<QByteArray>{TIDEWAVE_IPERF3_PATH, "-s", "-p", port, "--forceflush", "--format", "k"}));
        ASSERT_GT(iperf.pid, 0);
        ASSERT_TRUE(!e.freezeIperf || ::kill(static_cast<pid_t>(iperf.pid), SIGSTOP) == 0);
        const pid_t targets[] = {launch.pid, -launch.pid, static_cast<pid_t>(iperf.pid)};
        ASSERT_EQ(::kill(targets[e.target], e.signal), 0);
    }
    ASSERT_TRUE(waitUntil([&] { return launch.ended(); }, 8s));
    EXPECT_EQ(launch.exitCode(), e.exitCode);
    ASSERT_TRUE(waitUntil([&] { return !TestEnvironment::processAlive(iperf.pid); }, 5s));
    EXPECT_EQ(launch.writes.contains(e.line), !e.line.isEmpty()) << launch.output().constData();
    EXPECT_TRUE(launch.errors().contains(e.line)) << launch.errors().constData();
    EXPECT_EQ(launch.output().contains("interrupt"), e.line.contains("interrupt"));
}

const QByteArray kInterrupted = "iperf3: interrupt - the server has terminated\n";
const QList<QByteArray> kServer{"./iperf3", "-s", "-p", "PORT"};

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
                      End{"TermToGroup", kServer, SIGTERM, 1, false, 1, kInterrupted},
                      End{"KillLauncher", kServer, SIGKILL, 0, false, -1, ""},
                      End{"KillIperf", kServer, SIGKILL, 2, false, 128 + SIGKILL, ""},
                      // Killed once the grace time is over.
                      End{"IperfDeafToTerm", kServer, SIGTERM, 0, true, 128 + SIGKILL, ""}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
