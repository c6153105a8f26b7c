// The application as main.cpp makes it (same signals, same watcher, same
// delegate with the real environment), plus the one thing no test can do
// from outside: pressing "Run Test". With no arguments it only runs; with
//   --client <address> <port> <duration>
// it starts a client test once the client tab is set up. Its state changes go
// to standard output, one line each:
//   client-started <shell pid>   the test's tool runs under this shell
//   intervals <n>                results received so far
//   message <text>               a status-line message
//   running <0|1>                the run button's state
#include "FaultsSupport.h"

#include "PerfHelper/PerfTest.h"
#include "Tidewave/TidewaveAppDelegate.h"
#include "Tidewave/UnixSignalWatcher.h"
#include "client/ClientTab.h"
#include "shell/NotificationCenter.h"

#include <QApplication>
#include <QTimer>

#include <csignal>
#include <cstdio>

namespace {

void say(const QString &line)
{
    std::printf("%s\n", qPrintable(line));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGSEGV, SIG_IGN);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tidewave"));
    QApplication::setQuitOnLastWindowClosed(true);

    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::signalReceived, &app, [] { QCoreApplication::quit(); });
    signalWatcher.watch({SIGTERM, SIGINT, SIGHUP});

    TidewaveAppDelegate delegate;
    delegate.launch();

    const QStringList arguments = QCoreApplication::arguments();
    const qsizetype client = arguments.indexOf(QStringLiteral("--client"));
    if (client < 0 || client + 3 >= arguments.size())
        return QApplication::exec();
    const QString address = arguments.at(client + 1);
    const quint16 port = arguments.at(client + 2).toUShort();
    const int duration = arguments.at(client + 3).toInt();

    NotificationCenter::defaultCenter().addObserver(&delegate, QStringLiteral("showInfoMessage"),
                                                    [](const QVariantMap &userInfo) {
                                                        const QString text = userInfo.value(QStringLiteral("message")).toString();
                                                        if (!text.isEmpty())
                                                            say(QStringLiteral("message ") + text);
                                                    });

    // The tab sets itself up after a delay; the state is polled, so the
    // driver needs nothing from the tab beyond what a user sees.
    bool started = false;
    qint64 shell = 0;
    qsizetype intervals = 0;
    bool running = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &app, [&] {
        ClientTab *tab = delegate.clientTab();
        if (!tab || !tab->isSetUp())
            return;
        if (!started) {
            started = true;
            FaultsSupport::startClientTest(*tab, address, port, duration);
        }
        const PerfHelperPtr test = tab->testResultsArray().isEmpty() ? nullptr : tab->testResultsArray().first();
        if (test && shell == 0 && test->test().processId() > 0) {
            shell = test->test().processId();
            say(QStringLiteral("client-started %1").arg(shell));
        }
        if (test && test->resultss.size() != intervals) {
            intervals = test->resultss.size();
            say(QStringLiteral("intervals %1").arg(intervals));
        }
        const bool nowRunning = FaultsSupport::runButtonTitle(*tab) == ClientTab::kStopTitle;
        if (nowRunning != running) {
            running = nowRunning;
            say(QStringLiteral("running %1").arg(running ? 1 : 0));
        }
    });
    poll.start(50);
    return QApplication::exec();
}
