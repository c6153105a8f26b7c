// The application as main.cpp makes it, plus what no test can do from outside: once the client tab is set
// up it runs a client test, "tidewave_fault_app <address> <port> <seconds>", and prints its state changes:
// running <0|1> (the run button), intervals <n> (results so far), message <text> (the status line).
#include "app/AppHarness.h"

#include "PerfHelper/PerfHelper.h"
#include "Tidewave/UnixSignalWatcher.h"
#include "shell/NotificationCenter.h"

#include <QApplication>
#include <QTimer>

#include <csignal>
#include <cstdio>

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    QApplication app(argc, argv);
    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::signalReceived, &app, [] { QCoreApplication::quit(); });
    signalWatcher.watch({SIGTERM, SIGINT, SIGHUP});
    TidewaveAppDelegate delegate;
    delegate.launch();

    const auto say = [](const QString &line) { std::printf("%s\n", qPrintable(line)), std::fflush(stdout); };
    NotificationCenter::defaultCenter().addObserver(&delegate, QStringLiteral("showInfoMessage"), [&](const QVariantMap &info) {
        say(QStringLiteral("message ") + info.value(QStringLiteral("message")).toString());
    });
    // The state is polled, so the driver needs nothing of the tab beyond what a user sees.
    bool started = false, running = false;
    qsizetype intervals = 0;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &app, [&] {
        ClientTab *tab = delegate.clientTab();
        if (!tab || !tab->isSetUp() || argc < 4)
            return;
        if (!std::exchange(started, true))
            startClientTest(*tab, QString::fromLocal8Bit(argv[1]), QByteArray(argv[2]).toUShort(), atoi(argv[3]));
        const qsizetype now = tab->testResultsArray().isEmpty() ? 0 : tab->testResultsArray().first()->resultss.size();
        if (now != intervals)
            say(QStringLiteral("intervals %1").arg(intervals = now));
        if (clientRunning(*tab) != running)
            say(QStringLiteral("running %1").arg(int(running = !running)));
    });
    poll.start(50);
    return QApplication::exec();
}
