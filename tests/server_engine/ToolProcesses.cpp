#include "server_engine/ToolProcesses.h"

#include "PerfHelper/TidewaveUtils.h"
#include "common/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ToolProcesses {
namespace {

// pid → process group of every live process.
QList<std::pair<qint64, qint64>> liveProcesses()
{
    QList<std::pair<qint64, qint64>> out;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!entry.front().isDigit() || !stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (comm) state ppid pgrp ..."
        const QByteArray text = stat.readAll();
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        if (fields.size() >= 3 && fields.at(0) != "Z" && fields.at(0) != "X")
            out.append({entry.toLongLong(), fields.at(2).toLongLong()});
    }
    return out;
}

} // namespace

QList<qint64> groupMembers(qint64 pgid)
{
    QList<qint64> members;
    for (const auto &[pid, group] : liveProcesses()) {
        if (group == pgid)
            members << pid;
    }
    return members;
}

QSet<qint64> toolGroups()
{
    const QString tool = TidewaveUtils::getiPerfExecutablePath();
    QSet<qint64> groups;
    for (const auto &[pid, group] : liveProcesses()) {
        if (commandLine(pid).join(QLatin1Char(' ')).contains(tool))
            groups.insert(group);
    }
    return groups;
}

QStringList commandLine(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList args;
    for (const QByteArray &arg : file.readAll().chopped(1).split('\0'))
        args << QString::fromLocal8Bit(arg);
    return args;
}

bool tcpPortListening(quint16 port)
{
    // /proc/net/tcp*: "sl local_address rem_address st ..."; st 0A is LISTEN.
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

QString placeLauncher()
{
    const QString source = TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf");
    const QString target = TidewaveUtils::getiPerfExecutablePath();
    QDir().mkpath(QFileInfo(target).absolutePath());
    QFile::remove(target);
    return QFile::copy(source, target) ? QString() : QStringLiteral("cannot place %1 at %2").arg(source, target);
}

} // namespace ToolProcesses
