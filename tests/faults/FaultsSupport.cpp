#include "FaultsSupport.h"

#include "client/ClientTab.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QLineEdit>
#include <QPushButton>

#include <sys/prctl.h>

namespace FaultsSupport {

using TestEnvironment::liveProcesses;

QList<Process> descendantsOf(qint64 pid)
{
    const QList<Process> all = liveProcesses();
    QMultiHash<qint64, Process> byParent;
    for (const Process &process : all)
        byParent.insert(process.parent, process);
    QList<Process> found;
    QList<qint64> pending{pid};
    while (!pending.isEmpty()) {
        const qint64 parent = pending.takeFirst();
        for (const Process &child : byParent.values(parent)) {
            found.append(child);
            pending.append(child.pid);
        }
    }
    return found;
}

QList<Process> childrenOf(qint64 pid)
{
    QList<Process> children;
    for (const Process &process : liveProcesses()) {
        if (process.parent == pid)
            children.append(process);
    }
    return children;
}

QString describe(const QList<Process> &processes)
{
    QString text = QString::number(processes.size());
    for (const Process &process : processes)
        text += QStringLiteral("\n  %1 %2: %3").arg(process.pid).arg(process.name, process.commandLine);
    return text;
}

bool becomeSubreaper()
{
    return prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

void startClientTest(ClientTab &tab, const QString &address, quint16 port, int durationSeconds)
{
    tab.findChild<QLineEdit *>(QStringLiteral("clientToServerIpAddress"))->setText(address);
    tab.findChild<QLineEdit *>(QStringLiteral("clientToServerPort"))->setText(QString::number(port));
    tab.findChild<QLineEdit *>(QStringLiteral("testDuration"))->setText(QString::number(durationSeconds));
    tab.findChild<QComboBox *>(QStringLiteral("statsInterval"))->setCurrentIndex(0);
    tab.findChild<QComboBox *>(QStringLiteral("testType"))->setCurrentIndex(0);
    tab.updateTestType();
    tab.findChild<QPushButton *>(QStringLiteral("runClient"))->click();
}

QString runButtonTitle(const ClientTab &tab)
{
    return tab.findChild<QPushButton *>(QStringLiteral("runClient"))->text();
}

} // namespace FaultsSupport
