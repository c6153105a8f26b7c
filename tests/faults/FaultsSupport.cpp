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

namespace {

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
        if (rest.size() < 2 || rest.at(0) == "Z")
            continue;
        Process process;
        process.pid = pid;
        process.parent = rest.at(1).toLongLong();
        process.name = QString::fromUtf8(text.mid(open + 1, close - open - 1));
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (cmdline.open(QIODevice::ReadOnly))
            process.commandLine = QString::fromUtf8(cmdline.readAll().replace('\0', ' ').trimmed());
        all.append(process);
    }
    return all;
}

} // namespace

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
