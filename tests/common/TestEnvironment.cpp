#include "common/TestEnvironment.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QThread>

#include <cstdlib>
#include <memory>

#include <signal.h>

namespace {
std::unique_ptr<QTemporaryDir> g_root;
}

namespace TestEnvironment {

void isolateUserFolders()
{
    g_root = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/tidewave-test-XXXXXX"));
    const QString root = g_root->path();
    for (const char *name : {"config", "data", "cache", "runtime"})
        QDir(root).mkpath(QString::fromLatin1(name));
    QFile::setPermissions(root + QStringLiteral("/runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", (root + QStringLiteral("/runtime")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (root + QStringLiteral("/config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", (root + QStringLiteral("/data")).toLocal8Bit());
    qputenv("XDG_CACHE_HOME", (root + QStringLiteral("/cache")).toLocal8Bit());
    std::atexit([] { g_root.reset(); });
}

QString privateRoot()
{
    return g_root ? g_root->path() : QString();
}

QString systemBusPath()
{
    return g_root ? g_root->filePath(QStringLiteral("system_bus_socket")) : QString();
}

bool waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

quint16 freeTcpPort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

bool processAlive(qint64 pid)
{
    if (pid <= 0)
        return false;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return false;
    // Field 3 (after the parenthesised name) is the state; Z and X are gone.
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    if (close < 0 || close + 2 >= text.size())
        return false;
    const char state = text.at(close + 2);
    return state != 'Z' && state != 'X';
}

QList<Process> liveProcesses()
{
    QList<Process> all;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray text = stat.readAll();
        // "pid (comm) state ppid …"; comm may hold blanks and parentheses.
        const qsizetype open = text.indexOf('(');
        const qsizetype close = text.lastIndexOf(')');
        if (open < 0 || close < open)
            continue;
        const QList<QByteArray> rest = text.mid(close + 2).split(' ');
        if (rest.size() < 2 || rest.at(0) == "Z" || rest.at(0) == "X")
            continue;
        Process process;
        process.pid = pid;
        process.parent = rest.at(1).toLongLong();
        process.group = rest.value(2).toLongLong();
        process.name = QString::fromUtf8(text.mid(open + 1, close - open - 1));
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (cmdline.open(QIODevice::ReadOnly)) {
            QByteArray raw = cmdline.readAll();
            if (raw.endsWith('\0'))
                raw.chop(1);
            if (!raw.isEmpty())
                process.arguments = raw.split('\0');
            process.commandLine = QString::fromUtf8(raw.replace('\0', ' ').trimmed());
        }
        all.append(process);
    }
    return all;
}

QList<qint64> pidsNamed(const QString &name)
{
    QList<qint64> pids;
    for (const Process &process : liveProcesses()) {
        if (process.name == name.left(15))
            pids.append(process.pid);
    }
    return pids;
}

QList<qint64> groupMembers(qint64 pgid)
{
    QList<qint64> pids;
    for (const Process &process : liveProcesses()) {
        if (process.group == pgid)
            pids.append(process.pid);
    }
    return pids;
}

bool tcpPortListening(quint16 port)
{
    // "sl local_address rem_address st ...": the local port in hex, st 0A is LISTEN.
    const QByteArray local = QStringLiteral(":%1").arg(port, 4, 16, QLatin1Char('0')).toUpper().toLatin1();
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile file(QString::fromLatin1(table));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : file.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() > 3 && fields.at(1).endsWith(local) && fields.at(3) == "0A")
                return true;
        }
    }
    return false;
}

QString binDir()
{
    return QStringLiteral(TIDEWAVE_BIN_DIR);
}

QString dataDir()
{
    return QStringLiteral(TIDEWAVE_TEST_DATA_DIR);
}

} // namespace TestEnvironment
