#include "server_engine/ToolProcesses.h"

#include "PerfHelper/TidewaveUtils.h"
#include "common/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ToolProcesses {

QList<qint64> groupMembers(qint64 pgid)
{
    QList<qint64> members;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // After "pid (comm)": state, ppid, pgrp, ...
        const QByteArray text = stat.readAll();
        const qsizetype close = text.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = text.mid(close + 2).split(' ');
        if (fields.size() < 3 || fields.at(0) == "Z" || fields.at(0) == "X")
            continue;
        if (fields.at(2).toLongLong() == pgid)
            members << pid;
    }
    return members;
}

QSet<qint64> toolGroups()
{
    const QString tool = TidewaveUtils::getiPerfExecutablePath();
    QSet<qint64> groups;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok || !commandLine(pid).join(QLatin1Char(' ')).contains(tool))
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray text = stat.readAll();
        const qsizetype close = text.lastIndexOf(')');
        const QList<QByteArray> fields = text.mid(close + 2).split(' ');
        if (close >= 0 && fields.size() >= 3 && fields.at(0) != "Z" && fields.at(0) != "X")
            groups.insert(fields.at(2).toLongLong());
    }
    return groups;
}

QStringList commandLine(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray text = file.readAll();
    if (text.endsWith('\0'))
        text.chop(1);
    QStringList args;
    for (const QByteArray &arg : text.split('\0'))
        args << QString::fromLocal8Bit(arg);
    return args;
}

bool tcpPortListening(quint16 port)
{
    const QString hexPort = QStringLiteral(":%1").arg(port, 4, 16, QLatin1Char('0')).toUpper();
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile file(QString::fromLatin1(table));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            // sl local_address rem_address st ...; st 0A is LISTEN.
            if (fields.size() > 3 && fields.at(1).endsWith(hexPort.toLatin1()) && fields.at(3) == "0A")
                return true;
        }
    }
    return false;
}

QString placeLauncher()
{
    const QString source = TestEnvironment::binDir() + QStringLiteral("/mac-native-iperf");
    if (!QFileInfo(source).isExecutable())
        return QStringLiteral("launcher not built: ") + source;
    const QString target = TidewaveUtils::getiPerfExecutablePath();
    QDir().mkpath(QFileInfo(target).absolutePath());
    QFile::remove(target);
    if (!QFile::copy(source, target))
        return QStringLiteral("cannot copy the launcher to ") + target;
    return {};
}

} // namespace ToolProcesses
