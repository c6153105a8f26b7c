// Start-up probe: runs the application's own start-up (the same delegate and
// sequence as main.cpp) and reports either the time from process start to the
// main window's first paint, or the CPU the running application and its tool
// use while idle with the server running.
//
//   startup_probe shown <launch time, ns since 1970>   prints "shown_ms <ms>"
//   startup_probe idle <seconds>                        prints the CPU figures
//
// Stray-tool killing is replaced by "killall -s 0" (the same process scan,
// without killing), so the benchmark never ends tools of other programs.

#include "Tidewave/TidewaveAppDelegate.h"
#include "Tidewave/UnixSignalWatcher.h"

#include "PerfHelper/PerfServer.h"
#include "PerfHelper/ShellTask.h"
#include "server/ServerTabVIew.h"
#include "shell/SettingsStore.h"
#include "ui/TidewaveMainView.h"
#include "ui/TidewaveMainWindow.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTcpServer>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <csignal>
#include <mutex>

#include <sys/resource.h>
#include <unistd.h>

namespace {

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Reports reachable at once, as a machine with a working network would.
class ReachableSource : public ReachabilitySource
{
public:
    bool start(ChangeHandler handler) override
    {
        handler(kReachabilityFlagReachable);
        return true;
    }
    void stop() override {}
    ReachabilityFlags currentFlags() override { return kReachabilityFlagReachable; }
};

void scanOnly(const QString &command)
{
    QString probe = command;
    probe.replace(QStringLiteral("killall "), QStringLiteral("killall -s 0 "));
    ShellTask::executeShellCommandSynchronously(probe);
}

// Fires once on the first paint of the watched widget.
class FirstPaint : public QObject
{
public:
    explicit FirstPaint(std::function<void()> onPaint)
        : m_onPaint(std::move(onPaint))
    {
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && m_onPaint) {
            auto fire = std::move(m_onPaint);
            m_onPaint = nullptr;
            fire();
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_onPaint;
};

double cpuSecondsOfSelf()
{
    struct rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU seconds of every live process in the process group (the tool's shell,
// launcher and iperf3).
double cpuSecondsOfGroup(qint64 group)
{
    double total = 0;
    const long ticks = ::sysconf(_SC_CLK_TCK);
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray text = stat.readAll();
        const qsizetype close = text.lastIndexOf(')');
        if (close < 0)
            continue;
        // Fields after the name: state(3) ppid(4) pgrp(5) ... utime(14) stime(15).
        const QList<QByteArray> fields = text.mid(close + 2).split(' ');
        if (fields.size() < 13 || fields.at(2).toLongLong() != group)
            continue;
        total += (fields.at(11).toDouble() + fields.at(12).toDouble()) / ticks;
    }
    return total;
}

} // namespace

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGSEGV, SIG_IGN);
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s shown <launch ns> | idle <seconds>\n", argv[0]);
        return 2;
    }
    const QByteArray mode = argv[1];

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tidewave"));
    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::signalReceived, &app, [] { QCoreApplication::quit(); });
    signalWatcher.watch({SIGTERM, SIGINT, SIGHUP});

    TidewaveAppDelegate::Environment environment;
    environment.runShellCommandAndWait = scanOnly;
    environment.serverTab.runShellCommandAndWait = scanOnly;

    if (mode == "shown") {
        const qint64 launched = QByteArray(argv[2]).toLongLong();
        TidewaveAppDelegate delegate(std::move(environment));
        FirstPaint firstPaint([&] {
            std::printf("shown_ms %.1f\n", (nowNs() - launched) / 1e6);
            std::fflush(stdout);
            QTimer::singleShot(0, &app, [] { QCoreApplication::quit(); });
        });
        QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                         &TidewaveAppDelegate::applicationWillTerminateNotification);
        delegate.loadInterface();
        delegate.window()->mainView()->installEventFilter(&firstPaint);
        delegate.window()->show();
        delegate.applicationDidFinishLaunching();
        return QApplication::exec();
    }

    // idle: the server running on a free port, nothing else happening.
    const int seconds = QByteArray(argv[2]).toInt();
    quint16 port = 0;
    {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        port = probe.serverPort();
    }
    SettingsStore::standard().setObject(QString::number(port), QStringLiteral("serverPort"));
    environment.reachabilitySource = std::make_unique<ReachableSource>();
    TidewaveAppDelegate delegate(std::move(environment));
    delegate.launch();

    QDeadlineTimer startDeadline(15000);
    while (!(delegate.serverTab()->isRunning && delegate.serverTab()->server->processId() > 0)) {
        if (startDeadline.hasExpired()) {
            std::fprintf(stderr, "the server did not start\n");
            return 1;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    const qint64 group = delegate.serverTab()->server->processId();
    // Let start-up work (notice fade, first refresh) finish before measuring.
    QTimer::singleShot(3000, &app, [&] {
        const double selfBefore = cpuSecondsOfSelf();
        const double groupBefore = cpuSecondsOfGroup(group);
        const qint64 wallBefore = nowNs();
        QTimer::singleShot(seconds * 1000, &app, [&, selfBefore, groupBefore, wallBefore] {
            const double wall = (nowNs() - wallBefore) / 1e9;
            std::printf("idle_seconds %.1f\napp_cpu_percent %.3f\ntool_cpu_percent %.3f\n", wall,
                        100.0 * (cpuSecondsOfSelf() - selfBefore) / wall,
                        100.0 * (cpuSecondsOfGroup(group) - groupBefore) / wall);
            std::fflush(stdout);
            QCoreApplication::quit();
        });
    });
    return QApplication::exec();
}
