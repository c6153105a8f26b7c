#pragma once

#include "common/TestEnvironment.h"

#include <QList>
#include <QString>
#include <QStringList>

class ClientTab;

// What the fault tests share: the process tree under the test, and a client
// test started through the client tab as a user starts one.
namespace FaultsSupport {

using Process = TestEnvironment::Process;

// Live (not zombie) processes below the given one, at any depth.
QList<Process> descendantsOf(qint64 pid);

// Live processes whose parent is the given one.
QList<Process> childrenOf(qint64 pid);

// "N: pid name command line" lines, or "0" for none, for the test log.
QString describe(const QList<Process> &processes);

// Makes this process the reaper of its orphaned descendants, so a tool left
// behind by a program this test started and lost still shows under it.
bool becomeSubreaper();

// Fills the client tab's form (TCP, 1 s reports) and presses "Run Test".
void startClientTest(ClientTab &tab, const QString &address, quint16 port, int durationSeconds);

// The run button's title.
QString runButtonTitle(const ClientTab &tab);

} // namespace FaultsSupport
