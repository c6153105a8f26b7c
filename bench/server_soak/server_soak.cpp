// Soak of the server engine: N consecutive 1 s tests from a stock iperf3
// client against one PerfServer on a loopback port.
//   server_soak <launcher> [tests]
// Prints tests served and lost, the process's peak RSS and its RSS growth from
// test 20 to the last. Tests are not kept after they finish (the server tab
// keeps them until cleared), so growth measures the engine alone.
#include "PerfHelper/PerfServer.h"
#include "PerfHelper/TidewaveUtils.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTcpServer>
#include <QThread>

#include <cstdio>
#include <functional>

namespace {

bool waitFor(const std::function<bool()> &condition, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(2);
    }
    return true;
}

// A field of /proc/self/status in kB ("VmRSS", "VmHWM").
qint64 statusKb(const char *field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray prefix = QByteArray(field) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

class CountingDelegate : public PerfServerDelegate
{
public:
    void reportIntervalNew(const iPerfServerResultsPtr &) override { ++intervals; }
    void testDidFinished(const iPerfServerResultsPtr &test) override
    {
        ++finished;
        finals += test->finalResults.size();
    }
    void serverError(const QString &message) override
    {
        ++errors;
        std::fprintf(stderr, "server error: %s", qPrintable(message));
    }
    int intervals = 0;
    int finished = 0;
    qsizetype finals = 0;
    int errors = 0;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <launcher> [tests]\n", argv[0]);
        return 2;
    }
    const int count = argc > 2 ? QByteArray(argv[2]).toInt() : 200;
    const int growthFrom = qMin(20, count);

    // Place the tool as start-up does.
    const QString tool = TidewaveUtils::getiPerfExecutablePath();
    QDir().mkpath(QFileInfo(tool).absolutePath());
    QFile::remove(tool);
    if (!QFile::copy(QString::fromLocal8Bit(argv[1]), tool)) {
        std::fprintf(stderr, "cannot place the launcher at %s\n", qPrintable(tool));
        return 1;
    }
    quint16 port = 0;
    {
        QTcpServer probe;
        if (probe.listen(QHostAddress::LocalHost, 0))
            port = probe.serverPort();
    }

    CountingDelegate delegate;
    PerfServer server;
    server.setDelegate(&delegate);
    server.setPort(port);
    server.run();
    const qint64 firstPid = server.processId();

    int served = 0;
    int lost = 0;
    qint64 rssAtGrowthStart = 0;
    QElapsedTimer clock;
    clock.start();
    for (int i = 1; i <= count; ++i) {
        QProcess client;
        client.setProgram(QStringLiteral("iperf3"));
        client.setArguments({QStringLiteral("-c"), QStringLiteral("127.0.0.1"), QStringLiteral("-p"),
                             QString::number(port), QStringLiteral("-t"), QStringLiteral("1")});
        client.setProcessChannelMode(QProcess::MergedChannels);
        const int before = delegate.finished;
        bool ok = false;
        // The first test may find the tool still starting: retry it once.
        for (int attempt = 0; attempt < (i == 1 ? 10 : 1) && !ok; ++attempt) {
            client.start();
            const bool ended = waitFor([&] { return client.state() == QProcess::NotRunning; }, 10000);
            if (!ended) {
                client.kill();
                client.waitForFinished(2000);
            }
            ok = ended && client.exitStatus() == QProcess::NormalExit && client.exitCode() == 0;
            if (!ok && i == 1)
                waitFor([] { return false; }, 200);
        }
        if (ok && waitFor([&] { return delegate.finished > before; }, 3000))
            ++served;
        else
            ++lost;
        if (i == growthFrom)
            rssAtGrowthStart = statusKb("VmRSS");
        if (i % 20 == 0)
            std::printf("  after %d tests: served %d, lost %d, RSS %lld kB\n", i, served, lost, statusKb("VmRSS"));
        std::fflush(stdout);
    }
    const qint64 rssAtEnd = statusKb("VmRSS");
    const bool sameTool = server.processId() == firstPid;
    server.stop();

    std::printf("server_soak: %d consecutive 1 s tests on 127.0.0.1:%u in %.1f s\n", count, port,
                clock.elapsed() / 1000.0);
    std::printf("  tests served: %d/%d, tests lost: %d\n", served, count, lost);
    std::printf("  interval callbacks: %d, finished callbacks: %d, server errors: %d\n", delegate.intervals,
                delegate.finished, delegate.errors);
    std::printf("  tool relaunched during the run: %s\n", sameTool ? "no" : "yes");
    std::printf("  peak RSS: %lld kB\n", statusKb("VmHWM"));
    std::printf("  RSS growth from test %d to test %d: %lld kB (%lld -> %lld kB)\n", growthFrom, count,
                rssAtEnd - rssAtGrowthStart, rssAtGrowthStart, rssAtEnd);
    std::printf("  target: %d/%d served, growth under 5120 kB: %s\n", count, count,
                served == count && rssAtEnd - rssAtGrowthStart < 5120 ? "met" : "NOT met");
    return 0;
}
