#include "Tidewave/TidewaveAppDelegate.h"
#include "Tidewave/UnixSignalWatcher.h"

#include <QApplication>

#include <csignal>

int main(int argc, char **argv)
{
    // A write to a vanished peer must not end the application; SIGSEGV is
    // ignored as well, as the application always has.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGSEGV, SIG_IGN);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tidewave"));
    QApplication::setApplicationVersion(QStringLiteral(TIDEWAVE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.norvale.Tidewave"));
    QApplication::setQuitOnLastWindowClosed(true);

    // Ctrl-C, kill and a session logout quit through the event loop, so the
    // orderly shutdown (server stopped, stray tools killed) still runs.
    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::signalReceived, &app, [] { QCoreApplication::quit(); });
    signalWatcher.watch({SIGTERM, SIGINT, SIGHUP});

    TidewaveAppDelegate delegate;
    delegate.launch();
    return QApplication::exec();
}
