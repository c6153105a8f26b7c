#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

// Process and socket facts read from /proc, for checks by pid and group.
namespace ToolProcesses {

// Live (non-zombie) processes whose process group is pgid.
QList<qint64> groupMembers(qint64 pgid);

// Process groups of the live processes whose command line mentions the
// placed tool path (shells and launchers of this test process's servers).
QSet<qint64> toolGroups();

// The argument vector of a live process; empty when it is gone.
QStringList commandLine(qint64 pid);

// Whether some socket listens on this TCP port (IPv4 or IPv6).
bool tcpPortListening(quint16 port);

// Copies the built launcher to the placed tool path, as start-up does.
// Answers an error message, empty on success.
QString placeLauncher();

} // namespace ToolProcesses
