#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

// Process and socket facts read from /proc, for checks by pid and group.
namespace ToolProcesses {

// Live (non-zombie) processes whose process group is pgid.
QList<qint64> groupMembers(qint64 pgid);
// Groups of the live processes whose command line mentions this test
// process's placed tool path (the shells and launchers of its servers).
QSet<qint64> toolGroups();
// The argument vector of a process; empty when it is gone.
QStringList commandLine(qint64 pid);
// Whether a socket listens on this TCP port (IPv4 or IPv6).
bool tcpPortListening(quint16 port);
// Copies the built launcher to the tool path, as start-up does; an error text.
QString placeLauncher();

} // namespace ToolProcesses
