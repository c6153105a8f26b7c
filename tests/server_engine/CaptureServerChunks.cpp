// Records the standard-output chunks of the launcher in server mode, exactly as
// they were read, while stock iperf3 clients run tests against it on loopback.
// Writes the fixtures the parser tests replay:
//   server_chunk_capture <launcher> <out dir>
// gives <out dir>/server-three-tests.json (TCP, UDP, TCP reverse in a row) and
// <out dir>/server-port-in-use.json (a second server on the same port).
#include "PerfHelper/ShellTask.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QThread>

#include <cstdio>
#include <memory>

#include <signal.h>

namespace {

bool waitFor(const std::function<bool()> &condition, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

// One launcher in server mode, its chunks in arrival order.
struct Recorder
{
    std::unique_ptr<QProcess> process;
    QJsonArray chunks;
    QObject context;

    void start(const QString &launcher, quint16 port)
    {
        process = ShellTask::taskForShellCommand(
            QStringLiteral("\"%1\" ./iperf3  -s -p %2").arg(launcher).arg(port));
        QObject::connect(process.get(), &QProcess::readyReadStandardOutput, &context,
                         [this] { chunks.append(QString::fromUtf8(process->readAllStandardOutput())); });
        process->start();
    }

    void end()
    {
        if (process->state() != QProcess::NotRunning) {
            ShellTask::signalProcessGroup(process->processId(), SIGTERM);
            process->waitForFinished(3000);
        }
    }
};

QString iperfVersion()
{
    QProcess version;
    version.start(QStringLiteral("iperf3"), {QStringLiteral("--version")});
    version.waitForFinished(3000);
    return QString::fromUtf8(version.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
}

bool write(const QString &path, const QString &what, const QJsonArray &chunks)
{
    QJsonObject root;
    root.insert(QStringLiteral("tool"),
                QStringLiteral("mac-native-iperf launcher over %1, server mode, loopback").arg(iperfVersion()));
    root.insert(QStringLiteral("what"), what);
    root.insert(QStringLiteral("chunks"), chunks);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(QJsonDocument(root).toJson(QJsonDocument::Indented));
    return true;
}

quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <launcher> <out dir>\n", argv[0]);
        return 2;
    }
    const QString launcher = QString::fromLocal8Bit(argv[1]);
    const QString outDir = QString::fromLocal8Bit(argv[2]);
    const quint16 port = freePort();

    Recorder server;
    server.start(launcher, port);
    if (!waitFor([&] { return !server.chunks.isEmpty(); }, 5000)) {
        std::fprintf(stderr, "server did not start\n");
        server.end();
        return 1;
    }

    const QList<QStringList> runs{{QStringLiteral("-t"), QStringLiteral("2")},
                                  {QStringLiteral("-u"), QStringLiteral("-t"), QStringLiteral("2")},
                                  {QStringLiteral("-R"), QStringLiteral("-t"), QStringLiteral("2")}};
    for (const QStringList &options : runs) {
        QProcess client;
        client.start(QStringLiteral("iperf3"), QStringList{QStringLiteral("-c"), QStringLiteral("127.0.0.1"),
                                                           QStringLiteral("-p"), QString::number(port)}
                                                   + options);
        const bool done = waitFor([&] { return client.state() == QProcess::NotRunning; }, 15000);
        // The server's summary comes out after the client has gone.
        const qsizetype before = server.chunks.size();
        waitFor([&] { return server.chunks.size() > before + 1; }, 1000);
        if (!done || client.exitCode() != 0) {
            std::fprintf(stderr, "client %s failed\n", qPrintable(options.join(QLatin1Char(' '))));
            client.kill();
            server.end();
            return 1;
        }
    }

    Recorder second;
    second.start(launcher, port);
    const bool exited = waitFor([&] { return second.process->state() == QProcess::NotRunning; }, 5000);
    second.end();
    server.end();
    if (!exited)
        return 1;

    const bool ok = write(outDir + QStringLiteral("/server-three-tests.json"),
                          QStringLiteral("iperf3 -c 127.0.0.1 -t 2, then -u -t 2, then -R -t 2"), server.chunks)
                    && write(outDir + QStringLiteral("/server-port-in-use.json"),
                             QStringLiteral("a second server on a port already served"), second.chunks);
    return ok ? 0 : 1;
}
