#pragma once

#include "common/TestEnvironment.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

// Process-table helpers for the application's tests: they look at what our
// own tool processes do, by port, so tests of other areas running their own
// tools at the same time are neither counted nor touched.
namespace AppTestSupport {

// Whether some socket listens on the TCP port (IPv4 or IPv6, any address).
inline bool isListening(quint16 port)
{
    const QString hexPort = QStringLiteral(":%1").arg(port, 4, 16, QLatin1Char('0')).toUpper();
    for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        QFile file(QString::fromLatin1(table));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            // local address is field 1, state field 3 (0A = listen).
            if (fields.size() > 3 && fields.at(1).endsWith(hexPort.toLatin1()) && fields.at(3) == "0A")
                return true;
        }
    }
    return false;
}

// Pids of live processes whose command line gives the port as a word (the
// launcher, iperf3) or ends with "-p <port>" (the shell running them).
inline QList<qint64> processesUsingPort(quint16 port)
{
    QList<qint64> found;
    const QByteArray portWord = QByteArray::number(port);
    for (const TestEnvironment::Process &process : TestEnvironment::liveProcesses()) {
        for (const QByteArray &word : process.arguments) {
            if (word == portWord || word == "-p" + portWord || word.endsWith("-p " + portWord)) {
                found << process.pid;
                break;
            }
        }
    }
    return found;
}

// Whether the routing table has a default IPv4 route (what the real
// reachability monitor falls back on when the watched name cannot be resolved).
inline bool hasDefaultRoute()
{
    QFile routes(QStringLiteral("/proc/net/route"));
    if (!routes.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = routes.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() > 2 && fields.at(1) == "00000000")
            return true;
    }
    return false;
}

} // namespace AppTestSupport
