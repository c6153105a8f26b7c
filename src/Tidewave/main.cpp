#include "Tidewave/SingleInstance.h"
#include "Tidewave/TidewaveAppDelegate.h"
#include "Tidewave/UnixSignalWatcher.h"
#include "shell/Logger.h"
#include "ui/TidewaveMainWindow.h"

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

    // A second start only brings the running window to the front.
    SingleInstance instance(SingleInstance::socketPathForSession());
    if (!instance.claim())
        return 0;

    // Ctrl-C, kill and a session logout quit through the event loop, so the
    // orderly shutdown (server stopped, stray tools killed) still runs.
    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::signalReceived, &app, [] { QCoreApplication::quit(); });
    signalWatcher.watch({SIGTERM, SIGINT, SIGHUP});

    TidewaveAppDelegate delegate;
    QObject::connect(&instance, &SingleInstance::raiseRequested, &app, [&delegate] {
        TW_LOG(QStringLiteral("Tidewave: another start asked for the window"));
        if (QWidget *window = delegate.window()) {
            window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
            window->show();
            window->raise();
            window->activateWindow();
        }
    });
    delegate.launch();
    return QApplication::exec();
}
