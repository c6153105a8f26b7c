#include "ToolProcess.h"

#include "common/TestEnvironment.h"

#include <QDeadlineTimer>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const QString kIperf = QStringLiteral(TIDEWAVE_IPERF3_PATH);
constexpr int kDuration = 3;

QString launcherPath()
{
    return TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf");
}

// The command line the engine builds: quoted tool path, "./iperf3", options.
QString launcherCommand(const QString &options)
{
    return QStringLiteral("\"%1\" ./iperf3  %2").arg(launcherPath(), options);
}

struct TaggedLine
{
    QByteArray reportLine; // the iperf3 line just before the tagged line
    QList<QByteArray> fields;
    bool summary = false;
    double start = 0;
    double end = 0;
    qint64 bytes = 0;
    qint64 bitsPerSecond = 0;
    QByteArray role;
};

std::vector<TaggedLine> taggedLines(const QByteArray &output)
{
    std::vector<TaggedLine> out;
    const QList<QByteArray> lines = output.split('\n');
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray &line = lines[i];
        if (!line.startsWith("RESULT_") && !line.startsWith("Finished_"))
            continue;
        TaggedLine t;
        t.reportLine = lines[i - 1];
        t.fields = line.split('$');
        // Fields are separated by "$#": drop the "#" that starts each later piece.
        for (qsizetype f = 1; f < t.fields.size(); ++f)
            t.fields[f] = t.fields[f].mid(1);
        t.summary = line.startsWith("Finished_");
        if (t.fields.size() >= 5) {
            const QByteArray interval = t.fields[1].chopped(4); // " sec"
            t.start = interval.split('-').value(0).toDouble();
            t.end = interval.split('-').value(1).toDouble();
            t.bytes = t.fields[2].toLongLong();
            t.bitsPerSecond = t.fields[3].toLongLong();
            t.role = t.fields.last();
        }
        out.push_back(t);
    }
    return out;
}

// The tagged figures agree with the report line they follow: the rate to the
// bit, the byte count within the Transfer column's printed precision.
void expectAgreesWithReport(const TaggedLine &t)
{
    const QList<QByteArray> words = t.reportLine.mid(t.reportLine.indexOf(']') + 1).simplified().split(' ');
    ASSERT_GE(words.size(), 6) << t.reportLine.constData();
    EXPECT_EQ(t.fields[1], words[0] + " sec");
    EXPECT_EQ(words[5], "Kbits/sec");
    EXPECT_EQ(t.bitsPerSecond, std::llround(words[4].toDouble() * 1000));
    const QList<QByteArray> units = {"Bytes", "KBytes", "MBytes", "GBytes", "TBytes"};
    ASSERT_TRUE(units.contains(words[3]));
    const double unit = std::pow(1024.0, static_cast<double>(units.indexOf(words[3])));
    const qsizetype dot = words[2].indexOf('.');
    const double halfDigit = 0.5 * std::pow(10.0, dot < 0 ? 0.0 : -static_cast<double>(words[2].size() - dot - 1)) * unit;
    // The window's edges are whole bytes; a byte of slack absorbs float error.
    EXPECT_LE(std::abs(static_cast<double>(t.bytes) - words[2].toDouble() * unit), halfDigit + 1)
        << t.reportLine.constData();
}

// Chunks are what a reader of the launcher gets from one read: whole lines,
// and never a tagged line cut off from the report line it belongs to.
void expectWholeLineChunks(const QList<QByteArray> &chunks)
{
    for (const QByteArray &chunk : chunks) {
        EXPECT_TRUE(chunk.endsWith('\n')) << chunk.constData();
        EXPECT_FALSE(chunk.startsWith("RESULT_") || chunk.startsWith("Finished_")) << chunk.constData();
    }
}

struct Direction
{
    const char *name;
    QString options;        // options of the client
    QByteArray clientRole;  // role of the client's interval lines
    int clientFields;       // field count of the client's interval lines
    QByteArray serverRole;  // role of the server's interval lines
    int serverFields;       // field count of the server's interval lines
    int summaryFields;      // field count of every summary line
};

// TCP is paced too, so that the tests leave the machine's cores to the
// test programs running beside them.
const Direction kDirections[] = {
    {"Tcp", QStringLiteral("-b200M"), "sender", 5, "receiver", 5, 5},
    {"TcpReverse", QStringLiteral("-b200M -R"), "receiver", 5, "sender", 5, 5},
    {"Udp", QStringLiteral("-u -b20M"), "sender", 5, "receiver", 7, 7},
    {"UdpReverse", QStringLiteral("-u -b20M -R"), "receiver", 7, "sender", 5, 7},
};

// Interval lines of one side of a 3-second test with 1-second reports.
void expectIntervals(const std::vector<TaggedLine> &tagged, const QByteArray &role, int fields)
{
    QList<long> ends;
    qint64 intervalBytes = 0;
    for (const TaggedLine &t : tagged) {
        if (t.summary)
            continue;
        EXPECT_EQ(t.fields.size(), fields) << t.fields.join('|').constData();
        EXPECT_EQ(t.role, role);
        expectAgreesWithReport(t);
        ends.append(std::lround(t.end));
        intervalBytes += t.bytes;
    }
    // iperf3 may add a short tail interval ("3.00-3.01") after the last one.
    if (ends.size() == kDuration + 1 && ends.last() == kDuration)
        ends.removeLast();
    EXPECT_EQ(ends, (QList<long>{1, 2, 3}));

    std::vector<TaggedLine> summaries;
    std::copy_if(tagged.begin(), tagged.end(), std::back_inserter(summaries), [](const TaggedLine &t) { return t.summary; });
    ASSERT_FALSE(summaries.empty());
    // The engine ends a test when the last summary's end, as an integer, reaches the duration.
    EXPECT_EQ(static_cast<long>(summaries.back().end), kDuration);
    for (const TaggedLine &t : summaries) {
        expectAgreesWithReport(t);
        if (t.role == role) {
            EXPECT_NEAR(static_cast<double>(intervalBytes) / static_cast<double>(t.bytes), 1.0, 0.01);
        }
    }
}

// Short names in test listings instead of a byte dump.
void PrintTo(const Direction &d, std::ostream *os)
{
    *os << d.name;
}

class LauncherDirections : public ::testing::TestWithParam<Direction>
{
};

TEST_P(LauncherDirections, AsClientAgainstStockServer)
{
    const Direction &d = GetParam();
    const quint16 port = TestEnvironment::freeTcpPort();
    ToolProcess server(QStringLiteral("%1 -s -1 -p %2 --forceflush").arg(kIperf).arg(port));
    ASSERT_TRUE(server.waitForOutput("Server listening", 5s));

    ToolProcess client(launcherCommand(QStringLiteral("-c 127.0.0.1 -p%1 -t%2 -i1 %3").arg(port).arg(kDuration).arg(d.options)));
    ASSERT_TRUE(client.waitForFinished(15s)) << client.output().constData();
    EXPECT_EQ(client.exitCode(), 0) << client.output().constData();
    expectWholeLineChunks(client.chunks());

    const std::vector<TaggedLine> tagged = taggedLines(client.output());
    expectIntervals(tagged, d.clientRole, d.clientFields);
    QList<QByteArray> summaryRoles;
    for (const TaggedLine &t : tagged) {
        if (t.summary) {
            summaryRoles.append(t.role);
            EXPECT_EQ(t.fields.size(), d.summaryFields);
        }
    }
    EXPECT_EQ(summaryRoles, (QList<QByteArray>{"sender", "receiver"}));
    ASSERT_TRUE(server.waitForFinished(5s));
}

TEST_P(LauncherDirections, AsServerForStockClient)
{
    const Direction &d = GetParam();
    const quint16 port = TestEnvironment::freeTcpPort();
    ToolProcess server(launcherCommand(QStringLiteral("-s -p %1").arg(port)));
    ASSERT_TRUE(server.waitForOutput("Server listening", 5s)) << server.output().constData();

    ToolProcess client(QStringLiteral("%1 -c 127.0.0.1 -p %2 -t %3 -i 1 %4").arg(kIperf).arg(port).arg(kDuration).arg(d.options));
    ASSERT_TRUE(client.waitForFinished(15s));
    EXPECT_EQ(client.exitCode(), 0) << client.output().constData() << server.output().constData();
    ASSERT_TRUE(server.waitForOutput("\nFinished_", 5s)) << server.output().constData();
    // The summary block ends with the next listening banner; wait for it so
    // the whole test is in.
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return server.output().count("Server listening") == 2; }, 5s));
    expectWholeLineChunks(server.chunks());

    const std::vector<TaggedLine> tagged = taggedLines(server.output());
    expectIntervals(tagged, d.serverRole, d.serverFields);
    QList<QByteArray> summaryRoles;
    for (const TaggedLine &t : tagged) {
        if (t.summary) {
            summaryRoles.append(t.role);
            EXPECT_EQ(t.fields.size(), d.summaryFields);
        }
    }
    // The server prints only its own side's summary.
    EXPECT_EQ(summaryRoles, QList<QByteArray>{d.serverRole});
    EXPECT_TRUE(server.output().contains("Accepted connection from 127.0.0.1"));
    EXPECT_FALSE(server.finished());
}

INSTANTIATE_TEST_SUITE_P(Loopback, LauncherDirections, ::testing::ValuesIn(kDirections),
                         [](const ::testing::TestParamInfo<Direction> &info) { return std::string(info.param.name); });

// A packet socket as standard output keeps every write of the launcher a
// message of its own, so write boundaries can be seen exactly.
TEST(LauncherWrites, ReportLineAndItsTagShareOneWrite)
{
    const quint16 port = TestEnvironment::freeTcpPort();
    ToolProcess server(QStringLiteral("%1 -s -1 -p %2 --forceflush").arg(kIperf).arg(port));
    ASSERT_TRUE(server.waitForOutput("Server listening", 5s));

    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, sockets[1], STDOUT_FILENO);
    const QByteArray path = launcherPath().toLocal8Bit();
    const QByteArray portOption = "-p" + QByteArray::number(port);
    std::vector<char *> argv;
    for (const char *word : {path.constData(), "./iperf3", "-c", "127.0.0.1", portOption.constData(), "-t2", "-i1", "-u"})
        argv.push_back(const_cast<char *>(word));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, path.constData(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(sockets[1]);
    ASSERT_EQ(spawned, 0);

    QList<QByteArray> writes;
    QDeadlineTimer deadline(15s);
    for (;;) {
        pollfd fd{sockets[0], POLLIN, 0};
        if (deadline.hasExpired() || poll(&fd, 1, 100) < 0)
            break;
        char buffer[65536];
        const ssize_t n = fd.revents ? recv(sockets[0], buffer, sizeof buffer, 0) : -1;
        if (n == 0)
            break;
        if (n > 0)
            writes.append(QByteArray(buffer, n));
    }
    close(sockets[0]);
    const bool ended = !deadline.hasExpired();
    if (!ended)
        ::kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(ended);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

    int tags = 0;
    for (const QByteArray &write : writes) {
        EXPECT_TRUE(write.endsWith('\n')) << write.constData();
        const QList<QByteArray> lines = write.chopped(1).split('\n');
        for (qsizetype i = 0; i < lines.size(); ++i) {
            if (lines[i].startsWith("RESULT_") || lines[i].startsWith("Finished_")) {
                ++tags;
                EXPECT_GT(i, 0) << "a tagged line written apart from its report line";
            }
        }
    }
    EXPECT_EQ(tags, 4);
}

// The engine takes the connection line for the local address, gives up on a
// tool that wrote nothing for 5 s, and drops result lines that share a read
// with the connection line: so that line must come when iperf3 connects, not
// with the first report.
TEST(LauncherWrites, ConnectionLineComesBeforeTheFirstReport)
{
    const quint16 port = TestEnvironment::freeTcpPort();
    ToolProcess server(QStringLiteral("%1 -s -1 -p %2 --forceflush").arg(kIperf).arg(port));
    ASSERT_TRUE(server.waitForOutput("Server listening", 5s));

    ToolProcess client(launcherCommand(QStringLiteral("-c 127.0.0.1 -p%1 -t4 -i4 -b10M").arg(port)));
    ASSERT_TRUE(client.waitForOutput("connected to", 3s)) << client.output().constData();
    EXPECT_FALSE(client.output().contains("RESULT_"));
    ASSERT_TRUE(client.waitForFinished(10s));
    EXPECT_EQ(client.output().count("\nRESULT_"), 1);
}

struct Failure
{
    const char *name;
    QString options;
    bool portTaken; // whether something else listens on the port
    QByteArray message;
};

void PrintTo(const Failure &f, std::ostream *os)
{
    *os << f.name;
}

class LauncherFailures : public ::testing::TestWithParam<Failure>
{
};

// iperf3 writes its errors on standard error; the engine's parsers read
// standard output only, and its end-of-process path reads standard error.
TEST_P(LauncherFailures, ErrorLineOnBothStreamsAndIperfStatus)
{
    const quint16 port = TestEnvironment::freeTcpPort();
    // Listening on every address keeps iperf3's own listener from binding.
    QTcpServer occupant;
    ASSERT_TRUE(occupant.listen(QHostAddress::Any, port));
    if (!GetParam().portTaken)
        occupant.close();
    const QString options = GetParam().options.arg(port);

    ToolProcess launched(launcherCommand(options));
    ASSERT_TRUE(launched.waitForFinished(10s));
    EXPECT_TRUE(launched.output().contains(GetParam().message + '\n')) << launched.output().constData();
    EXPECT_TRUE(launched.errorOutput().contains(GetParam().message)) << launched.errorOutput().constData();

    ToolProcess bare(kIperf + QLatin1Char(' ') + options);
    ASSERT_TRUE(bare.waitForFinished(10s));
    EXPECT_NE(bare.exitCode(), 0);
    EXPECT_EQ(launched.exitCode(), bare.exitCode());
}

INSTANTIATE_TEST_SUITE_P(
    Iperf, LauncherFailures,
    ::testing::Values(Failure{"ConnectionRefused", QStringLiteral("-c 127.0.0.1 -p%1 -t1 -i1"), false,
                              "iperf3: error - unable to connect to server: Connection refused"},
                      Failure{"PortInUse", QStringLiteral("-s -p %1"), true,
                              "iperf3: error - unable to start listener for connections: Address already in use"}),
    [](const ::testing::TestParamInfo<Failure> &info) { return std::string(info.param.name); });

enum class Stop { GroupTerm, LauncherTerm, LauncherKill };

const char *stopName(Stop stop)
{
    switch (stop) {
    case Stop::GroupTerm:
        return "TermToShellGroup";
    case Stop::LauncherTerm:
        return "TermToLauncher";
    case Stop::LauncherKill:
        return "KillLauncher";
    }
    return "";
}

void PrintTo(Stop stop, std::ostream *os)
{
    *os << stopName(stop);
}

struct KillOnExit
{
    qint64 pid;
    ~KillOnExit()
    {
        if (TestEnvironment::processAlive(pid))
            ::kill(static_cast<pid_t>(pid), SIGKILL);
    }
};

class LauncherStops : public ::testing::TestWithParam<Stop>
{
};

// However the launcher is stopped, its iperf3 does not stay behind.
TEST_P(LauncherStops, LeaveNoIperfBehind)
{
    const quint16 port = TestEnvironment::freeTcpPort();
    ToolProcess shell(launcherCommand(QStringLiteral("-s -p %1").arg(port)));
    ASSERT_TRUE(shell.waitForOutput("Server listening", 5s)) << shell.output().constData();

    qint64 launcher = shell.pid();
    if (!ToolProcess::commandLine(launcher).value(0).endsWith("mac-native-iperf")) {
        const QList<qint64> children = ToolProcess::childrenOf(shell.pid());
        ASSERT_EQ(children.size(), 1);
        launcher = children.first();
    }
    const QList<qint64> iperfs = ToolProcess::childrenOf(launcher);
    ASSERT_EQ(iperfs.size(), 1);
    const qint64 iperf = iperfs.first();
    // Should the launcher fail to end it, the test still does not leave it running.
    const KillOnExit reaper{iperf};
    // "./iperf3" is dropped, the rest passed in order, then the launcher's own options.
    EXPECT_EQ(ToolProcess::commandLine(iperf),
              (QList<QByteArray>{kIperf.toUtf8(), "-s", "-p", QByteArray::number(port), "--forceflush", "--format", "k"}));

    switch (GetParam()) {
    case Stop::GroupTerm:
        ASSERT_EQ(::kill(-static_cast<pid_t>(shell.pid()), SIGTERM), 0);
        break;
    case Stop::LauncherTerm:
        ASSERT_EQ(::kill(static_cast<pid_t>(launcher), SIGTERM), 0);
        break;
    case Stop::LauncherKill:
        ASSERT_EQ(::kill(static_cast<pid_t>(launcher), SIGKILL), 0);
        break;
    }
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return !TestEnvironment::processAlive(iperf); }, 5s));
    ASSERT_TRUE(shell.waitForFinished(5s));
    EXPECT_FALSE(TestEnvironment::processAlive(launcher));
    if (GetParam() == Stop::LauncherTerm) {
        // The launcher waited for iperf3's last words and took its status.
        EXPECT_TRUE(shell.output().contains("iperf3: interrupt - the server has terminated"));
        EXPECT_EQ(shell.exitCode(), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Signals, LauncherStops,
                         ::testing::Values(Stop::GroupTerm, Stop::LauncherTerm, Stop::LauncherKill),
                         [](const ::testing::TestParamInfo<Stop> &info) { return std::string(stopName(info.param)); });

} // namespace
