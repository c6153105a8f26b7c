#pragma once

// The application under test, in this process (LocalApp) or as a program of its own (IsolatedApp).
#include "Tidewave/TidewaveAppDelegate.h"
#include "client/ClientTab.h"
#include "common/TestEnvironment.h"
#include "fakes/FakeReachabilitySource.h"
#include "shell/SettingsStore.h"

#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <iostream>

#include <signal.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using TestEnvironment::Process;
using TestEnvironment::waitUntil;

inline QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline QList<Process> descendantsOf(qint64 pid)
{
    const QList<Process> all = TestEnvironment::liveProcesses();
    QList<Process> found;
    for (QList<qint64> parents{pid}; pid > 0 && !parents.isEmpty();) {
        const qint64 parent = parents.takeFirst();
        for (const Process &process : all) {
            if (process.parent == parent)
                found << process, parents << process.pid;
        }
    }
    return found;
}

// Prints "[ processes left <when> ] <count>" and each process (the target is none); answers them.
inline QList<Process> reportLeft(const char *when, const QList<Process> &left)
{
    std::cout << "[ processes left " << when << " ] " << left.size();
    for (const Process &process : left)
        std::cout << "\n  " << process.pid << ' ' << process.commandLine.toStdString();
    std::cout << std::endl;
    return left;
}

// Fills the client tab's form (TCP, 1 s reports) and presses "Run Test" (or "Stop Test"), as a user does.
inline void startClientTest(ClientTab &tab, const QString &address, quint16 port, int seconds)
{
    for (const auto &[field, text] : {std::pair{"clientToServerIpAddress", address}, {"clientToServerPort", QString::number(port)},
                                      {"testDuration", QString::number(seconds)}})
        tab.findChild<QLineEdit *>(QLatin1String(field))->setText(text);
    for (const char *choice : {"statsInterval", "testType"})
        tab.findChild<QComboBox *>(QLatin1String(choice))->setCurrentIndex(0);
    tab.updateTestType();
    QMetaObject::invokeMethod(tab.findChild<QObject *>(u"runClient"_s), "click");
}

inline bool clientRunning(const ClientTab &tab)
{
    return tab.findChild<QObject *>(u"runClient"_s)->property("text") == ClientTab::kStopTitle;
}

// The application object with its real windows, server (on a free port) and tools; reachability is a fake
// the test drives; its shell commands (killall) and quit requests are only recorded.
struct LocalApp
{
    LocalApp()
    {
        SettingsStore::standard().setObject(QString::number(port), u"serverPort"_s);
        TidewaveAppDelegate::Environment environment;
        environment.reachabilitySource = std::make_unique<FakeReachabilitySource>(reachability);
        environment.runShellCommandAndWait = [this](const QString &command) { shell << command; };
        environment.serverTab.runShellCommandAndWait = [](const QString &) {};
        environment.requestQuit = [this] { ++quits; };
        delegate = std::make_unique<TidewaveAppDelegate>(std::move(environment));
    }
    TidewaveAppDelegate *operator->() const { return delegate.get(); }
    bool serving() const { return delegate->serverTab()->isRunning && TestEnvironment::tcpPortListening(port); }

    const quint16 port = TestEnvironment::freeTcpPort();
    std::shared_ptr<FakeReachabilityControl> reachability = std::make_shared<FakeReachabilityControl>();
    std::unique_ptr<TidewaveAppDelegate> delegate;
    QStringList shell;
    int quits = 0;
};

// A program of the build with user folders of its own, in PID, mount and network namespaces of its own: its
// killall reaches only its own tools, it serves and resolves on its loopback (the default route). A shell,
// the namespace's first process, outlives it so what it leaves can be counted; that shell runs the setup
// first, and stops the helper the setup started ($helper) once the program has ended.
class IsolatedApp
{
public:
    IsolatedApp(const QString &program, const QStringList &arguments, const QString &setup = {})
        : m_name(QFileInfo(program).fileName().left(15)) // the kernel keeps 15 characters of a name
    {
        // The runtime folder holds the one-copy-per-session socket: each program under test has its own.
        for (const QString &name : {u"XDG_CONFIG_HOME"_s, u"XDG_DATA_HOME"_s, u"XDG_CACHE_HOME"_s, u"XDG_RUNTIME_DIR"_s})
            environment.insert(name, m_home.filePath(name));
        QDir(m_home.path()).mkdir(u"XDG_RUNTIME_DIR"_s);
        QFile::setPermissions(m_home.filePath(u"XDG_RUNTIME_DIR"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_shell.setProcessEnvironment(environment);
        m_shell.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&m_shell, &QProcess::readyRead, &m_shell, [this] { output += m_shell.readAll(); });
        const QString script = u"ip link set lo up && ip route add default dev lo || exit 1; %1\n\"$@\" & app=$!; wait $app; "
                               "code=$?; [ -z \"$helper\" ] || { kill $helper; wait $helper; }; echo \"app-exit $code\"; read _"_s;
        m_shell.start(u"unshare"_s, QStringList{u"--pid"_s, u"--fork"_s, u"--kill-child"_s, u"--mount-proc"_s, u"--net"_s, u"sh"_s,
                                                u"-c"_s, script.arg(setup), u"sh"_s, program} + arguments);
    }
    ~IsolatedApp() { m_shell.kill(), m_shell.waitForFinished(5000); }

    bool waitFor(const QByteArray &text, std::chrono::milliseconds timeout)
    {
        return waitUntil([&] { return output.contains(text); }, timeout);
    }
    // The namespace's shell and the program under it (host pids).
    qint64 shell() const { return descendantsOf(m_shell.processId()).value(0).pid; }
    qint64 pid() const
    {
        for (const Process &process : descendantsOf(shell()))
            if (process.name == m_name)
                return process.pid;
        return 0;
    }
    // Whether a socket listens on the TCP port in the program's network; nsenter's arguments to enter it.
    bool listening(quint16 port) const
    {
        const QString tables = QString::fromLatin1(contents(u"/proc/%1/net/tcp"_s.arg(shell())) + contents(u"/proc/%1/net/tcp6"_s.arg(shell())));
        return QRegularExpression(u":%1 [0-9A-F]+:0000 0A "_s.arg(port, 4, 16, QLatin1Char('0')).toUpper()).match(tables).hasMatch();
    }
    QStringList inside() const { return {u"-t"_s, QString::number(shell()), u"-n"_s}; }
    // Sends the signal and waits for the program's end: its exit code, -1 when it does not end.
    int end(int signal)
    {
        if (const qint64 program = pid())
            ::kill(pid_t(program), signal);
        return waitFor("app-exit ", 15s) ? output.mid(output.indexOf("app-exit ") + 9).split('\n').first().toInt() : -1;
    }
    QList<Process> left(const char *when) const { return reportLeft(when, descendantsOf(shell())); }

    QByteArray output;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(); // the program's

private:
    QTemporaryDir m_home;
    QString m_name;
    QProcess m_shell;
};
