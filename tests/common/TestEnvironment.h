#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <chrono>
#include <functional>

// Helpers every test program shares.
namespace TestEnvironment {

// Points XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME and XDG_RUNTIME_DIR at a fresh private
// folder (removed at exit), before any Qt object reads them.
void isolateUserFolders();

// The private folder made by isolateUserFolders().
QString privateRoot();

// Where this test program's system bus lives: a socket path in the private
// folder. Nothing listens there unless a test starts a bus of its own on it.
// libdbus reads the bus address once per process, so the address is set
// before the first client and never changes; only what answers there does.
QString systemBusPath();

// Runs the event loop until the condition holds or the time runs out;
// answers whether the condition held. Tests assert on the answer.
bool waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds timeout);

// A TCP port on 127.0.0.1 that nothing listens on right now.
quint16 freeTcpPort();

// Whether a process with this pid still exists (zombies count as gone).
bool processAlive(qint64 pid);

// A live process as /proc shows it.
struct Process
{
    qint64 pid = 0;      // process id
    qint64 parent = 0;   // parent's process id
    qint64 group = 0;    // process group id
    QString name;        // command name (comm, cut at 15 characters)
    QString commandLine; // arguments joined with blanks
    QList<QByteArray> arguments; // the arguments as they are
};

// Every live (not zombie) process on the machine.
QList<Process> liveProcesses();

// Pids of live processes whose command name (comm) equals the name.
QList<qint64> pidsNamed(const QString &name);

// Pids of the live processes in a process group (a shell started in a group
// of its own and everything it started).
QList<qint64> groupMembers(qint64 pgid);

// Whether a socket listens on this TCP port, IPv4 or IPv6 (read from /proc,
// so a one-off server is not used up by a probing connection).
bool tcpPortListening(quint16 port);

// The build tree's executables folder (launcher, application).
QString binDir();

// tests/data in the source tree.
QString dataDir();

} // namespace TestEnvironment
