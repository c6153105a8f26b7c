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
    for (const char *name : {"config", "data", "cache"})
        QDir(root).mkpath(QString::fromLatin1(name));
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

QList<qint64> pidsNamed(const QString &name)
{
    QList<qint64> pids;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok)
            continue;
        QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
        if (!comm.open(QIODevice::ReadOnly))
            continue;
        // comm is cut at 15 characters by the kernel.
        if (QString::fromLocal8Bit(comm.readAll()).trimmed() == name.left(15) && processAlive(pid))
            pids.append(pid);
    }
    return pids;
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
