#include "app/AppHarness.h"

#include "PerfHelper/PerfServer.h"
#include "PerfHelper/TidewaveUtils.h"
#include "Tidewave/DesktopNotifier.h"
#include "Tidewave/UnixSignalWatcher.h"
#include "discovery/ServerDiscoveryList.h"
#include "fakes/ServerTabFakeInventory.h"
#include "network/NetworkTestSupport.h"
#include "network/GetPIFInterfaceinfo.h"
#include "shell/NotificationCenter.h"
#include "ui/DiscoveryWindow.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui/TidewaveMainView.h"
#include "ui/TidewaveMainWindow.h"

#include <QAction>
#include <QApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QDir>
#include <QLabel>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTableView>

#include <gtest/gtest.h>

namespace {

TEST(SignalWatcher, ReportsEachSignalFromTheEventLoopAndPutsBackWhatWasThere)
{
    const auto openFiles = [] { return QDir(u"/proc/self/fd"_s).entryList(QDir::AllEntries | QDir::System).size(); };
    const qsizetype filesBefore = openFiles();
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction before = {}, during = {}, after = {};
        ::sigaction(number, nullptr, &before);
        {
            UnixSignalWatcher watcher;
            ASSERT_TRUE(watcher.watch({number}) && !watcher.watch({SIGKILL}));
            ::sigaction(number, nullptr, &during);
            EXPECT_TRUE(during.sa_flags & SA_RESTART) << "a signal must not break the event loop's system calls";
            QSignalSpy received(&watcher, &UnixSignalWatcher::signalReceived);
            ASSERT_EQ(::raise(number), 0);
            EXPECT_EQ(received.count(), 0) << "reported from inside the handler";
            EXPECT_TRUE(received.wait(5000) && received == QList<QVariantList>({{number}})) << received.size();
        }
        ::sigaction(number, nullptr, &after);
        EXPECT_EQ(after.sa_handler, before.sa_handler);
    }
    EXPECT_EQ(openFiles(), filesBefore) << "the watcher's pipe was left open";
}

// The application in this process with a fake inventory (one Wi-Fi interface): start-up, its windows
// and the discovery list, serving once reachable, quitting.
// A notification service of our own: each Notify call as "app|icon|summary|body|desktop entry".
struct FakeNotifications : QDBusVirtualObject
{
    QStringList shown;
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        const QList<QVariant> a = call.arguments();
        shown << QStringList{a[0].toString(), a[2].toString(), a[3].toString(), a[4].toString(), qdbus_cast<QVariantMap>(a[6]).value(u"desktop-entry"_s).toString()}.join(u'|');
        return bus.send(call.createReply(uint(shown.size())));
    }
};

// The end of a test reaches the desktop only while another window is active; with no notification service, nothing
// happens and nothing waits.
TEST(DesktopNotifier, TellsTheDesktopOnlyWhileAnotherWindowIsActive)
{
    QProcess daemon;
    daemon.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
    ASSERT_TRUE(daemon.waitForReadyRead(5000));
    const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
    QDBusConnection bus = QDBusConnection::connectToBus(address, u"notifier"_s), service = QDBusConnection::connectToBus(address, u"service"_s);
    QWidget window, other;
    window.show(), other.show();
    DesktopNotifier notifier(&window, bus);
    QApplication::setActiveWindow(&other);
    const LogCapture log;
    QDeadlineTimer unanswered(2000);
    notifier.testEnded(u"Unheard"_s, u"no service yet"_s);
    ASSERT_TRUE(waitUntil([&] { return log.contains(u"No desktop notification: "_s); }, 5s));
    FakeNotifications fake;
    ASSERT_TRUE(service.registerVirtualObject(u"/org/freedesktop/Notifications"_s, &fake) && service.registerService(u"org.freedesktop.Notifications"_s));
    QApplication::setActiveWindow(&window);
    notifier.testEnded(u"Looked at"_s, u"1.00 Mbps"_s);
    QApplication::setActiveWindow(&other);
    notifier.testEnded(u"Lab <b>5 GHz</b>"_s, u"94.10 Mbps"_s), notifier.testEnded(QString(), u"iperf3: error - <the server has terminated>"_s);
    ASSERT_TRUE(waitUntil([&] { return fake.shown.size() == 2; }, 5s)) << fake.shown.join(u'\n').toStdString();
    EXPECT_EQ(fake.shown, (QStringList{u"Tidewave|com.norvale.Tidewave|Lab <b>5 GHz</b>|94.10 Mbps|com.norvale.Tidewave"_s,
                                       u"Tidewave|com.norvale.Tidewave|Test ended|iperf3: error - &lt;the server has terminated&gt;|com.norvale.Tidewave"_s}));
    EXPECT_FALSE(unanswered.hasExpired()) << "a call nobody answered held the window";
    daemon.kill(), daemon.waitForFinished();
}

TEST(App, StartsUpWiresItsWindowsServesOnceReachableAndSweepsItsToolsOnceOnQuit)
{
    GetPIFInterfaceinfo::setProvider(std::make_shared<ServerTabFakeInventory>(
        QList<ServerTabFakeInventory::Interface>{{u"wlan0"_s, u"Wi-Fi"_s, u"192.168.1.20"_s, 0}}));
    int showUpdates = 0;
    NotificationCenter::defaultCenter().addObserver(&showUpdates, u"showupdate"_s, [&](const QVariantMap &) { ++showUpdates; });
    const QString tool = TidewaveUtils::getiPerfExecutablePath(), folder = TidewaveUtils::getAppSupportDirPath();
    QFile stale(tool); // a damaged copy left by an earlier run
    ASSERT_TRUE(QDir().mkpath(folder) && stale.open(QIODevice::WriteOnly) && stale.write("exit 3\n") && stale.flush());

    LocalApp app;
    app->launch();
    EXPECT_TRUE(app->window()->isVisible() && app->defaults == &SettingsStore::standard());
    EXPECT_EQ(SettingsStore::standard().integerForKey(u"graphMaxSpeed"_s), 100) << "defaults resource not registered";
    const QStringList logs = QDir(folder).entryList({u"log-*.txt"_s}, QDir::Files);
    const QString log = logs.size() == 1 ? QString::fromUtf8(contents(folder + u'/' + logs.first())) : logs.join(u' ');
    for (const QString &banner : {QString(60, u'-'), u"Starting Mac Tidewave Version " TIDEWAVE_VERSION "." TIDEWAVE_BUILD_NUMBER ""_s,
                                  u"OS Version %1, kernel %2"_s.arg(QSysInfo::prettyProductName(), QSysInfo::kernelVersion())})
        EXPECT_TRUE(log.contains(u"  "_s + banner + u'\n')) << banner.toStdString() << " not in\n" << log.toStdString();
    EXPECT_EQ(contents(tool), contents(TidewaveUtils::resourcePath(u"mac-native-iperf"_s))) << "the stale tool stayed";
    TidewaveMainTabSet *tabs = app->window()->mainView()->tabSet();
    ASSERT_NE(app->clientTab(), nullptr);
    EXPECT_EQ(QList<QWidget *>({tabs->clientTab(), tabs->serverTab()}), QList<QWidget *>({app->clientTab(), app->serverTab()}));
    QCoreApplication::processEvents();
    EXPECT_FALSE(app->serverTab()->server) << "served without reachability";

    // Peers arrive in batches; the table shows them once asked to refresh.
    const auto peer = [&](const char *name) {
        auto service = std::make_shared<NetService>();
        service->name = QString::fromLatin1(name), service->type = u"_TidewaveServer._tcp"_s, service->domain = u"local"_s;
        app->discoveryList()->serviceAdded(service, true);
    };
    QTableView *table = app->tableView();
    peer("Studio,5202,192_168_1_21,Wi-Fi (Primary)");
    QCoreApplication::processEvents();
    EXPECT_EQ(table->model()->rowCount(), 0);
    app->clientTab()->openserversWindow();
    ASSERT_TRUE(waitUntil([&] { return table->model()->rowCount() == 1 && app->discoveryWindow()->isVisible(); }, 5s));
    app->discoveryWindow()->hide();
    peer("Attic,5203,10_0_0_7,eth0");
    emit app->window()->discoveryWindowRequested();
    ASSERT_TRUE(waitUntil([&] { return table->model()->rowCount() == 2 && app->discoveryWindow()->isVisible(); }, 5s));
    const auto cell = [&](int column) { return table->model()->index(0, column).data().toString(); };
    EXPECT_EQ(QStringList({cell(0), cell(1), cell(2)}), QStringList({u"Studio"_s, u"Wi-Fi (Primary): 192.168.1.21"_s, u"5202"_s}));
    table->selectRow(0);
    const SettingsStore &settings = SettingsStore::standard();
    EXPECT_EQ(settings.stringForKey(u"clientToServerIpAddress"_s) + u':' + settings.stringForKey(u"clientToServerPort"_s), u"192.168.1.21:5202"_s);
    EXPECT_EQ(showUpdates, 1);

    app.reachability->setFlags(kReachabilityFlagReachable);
    ASSERT_TRUE(waitUntil([&] { return app->serverTab()->isRunning; }, 5s));
    const QStringList published = app->discoveryList()->servicesName();
    EXPECT_TRUE(published.size() == 1 && published.first().endsWith(u",%1,192_168_1_20,WiFi"_s.arg(app.port))) << published.join(u' ').toStdString();
    EXPECT_TRUE(app->serverTab()->server->port() == app.port && app.shell.isEmpty());
    const QLabel *unavailable = app->discoveryWindow()->findChild<QLabel *>(u"unavailableLabel"_s); // no avahi-daemon here
    EXPECT_TRUE(table->isHidden() && unavailable->text().startsWith(u"Discovery is unavailable: avahi-daemon is not running."_s));

    ASSERT_TRUE(app->window()->close());
    EXPECT_EQ(app.quits, 1);
    app->window()->show();
    app->window()->findChild<QAction *>(u"actionQuit"_s)->trigger();
    EXPECT_TRUE(app.quits == 2 && !app->window()->isVisible());
    app->applicationWillTerminateNotification();
    app->applicationWillTerminateNotification();
    EXPECT_TRUE(app->serverTab()->server->isStop());
    EXPECT_EQ(app.shell, QStringList({u"/usr/bin/killall mac-native-iperf"_s}));
    NotificationCenter::defaultCenter().removeObserver(&showUpdates);
}

// The built application ignores SIGPIPE and SIGSEGV, serves a stock iperf3 client, and on SIGTERM quits in
// order, exit status 0, its killall sweeping a tool left running.
TEST(AppEndToEnd, ServesAStockClientAndOnSigtermSweepsAStrayToolAndExitsCleanly)
{
    IsolatedApp app(TestEnvironment::binDir() + u"/tidewave"_s, {});
    ASSERT_TRUE(app.waitFor("Starting Mac Tidewave Version " TIDEWAVE_VERSION "." TIDEWAVE_BUILD_NUMBER "\n", 15s)) << app.output.toStdString();
    const QByteArray status = contents(u"/proc/%1/status"_s.arg(app.pid()));
    const auto mask = [&](const char *field) { return status.mid(status.indexOf(field) + 8, 16).toULongLong(nullptr, 16); };
    EXPECT_EQ(mask("SigIgn:\t") & (1u << (SIGPIPE - 1) | 1u << (SIGSEGV - 1)), 1u << (SIGPIPE - 1) | 1u << (SIGSEGV - 1));
    const quint64 quitting = 1u << (SIGTERM - 1) | 1u << (SIGINT - 1) | 1u << (SIGHUP - 1);
    EXPECT_EQ(mask("SigCgt:\t") & quitting, quitting) << "Ctrl-C, kill and logout must quit through the event loop";

    ASSERT_TRUE(waitUntil([&] { return app.listening(5201); }, 15s)) << app.output.toStdString();
    QProcess client;
    client.start(u"nsenter"_s, app.inside() + QStringList{u"iperf3"_s, u"-c"_s, u"127.0.0.1"_s, u"-t"_s, u"1"_s});
    ASSERT_TRUE(waitUntil([&] { return client.state() == QProcess::NotRunning; }, 15s));
    EXPECT_EQ(client.exitCode(), 0) << client.readAllStandardError().toStdString();
    EXPECT_TRUE(app.waitFor("Client Local IP Address is: 127.0.0.1", 5s)) << app.output.toStdString();

    // A tool of the launcher's name inside the application's namespace.
    QTemporaryDir scratch;
    const QString strayTool = scratch.filePath(u"mac-native-iperf"_s);
    ASSERT_TRUE(QFile::copy(u"/bin/sleep"_s, strayTool));
    QProcess stray;
    stray.start(u"sh"_s, {u"-c"_s, u"nsenter -t %1 -p \"$0\" 30; echo \"stray $?\""_s.arg(app.shell()), strayTool});
    ASSERT_TRUE(waitUntil([&] { return !descendantsOf(stray.processId()).isEmpty() && descendantsOf(stray.processId()).last().name == u"mac-native-iper"_s; }, 5s));

    EXPECT_EQ(app.end(SIGTERM), 0) << app.output.toStdString();
    EXPECT_TRUE(app.output.contains("terminate at server Tab"));
    ASSERT_TRUE(waitUntil([&] { return stray.state() == QProcess::NotRunning; }, 5s)) << "the stray tool outlived the application";
    EXPECT_EQ(stray.readAll(), "stray 143\n") << "not ended by killall's SIGTERM";
    EXPECT_TRUE(app.left("after the application quit").isEmpty());
}

// A second start in the same session only brings the running window to the front and exits 0 at once:
// its start-up would have killed the first copy's tools, and the test being served goes on to its end.
TEST(AppEndToEnd, ASecondStartRaisesTheRunningWindowAndLeavesItsTestAlone)
{
    IsolatedApp app(TestEnvironment::binDir() + u"/tidewave"_s, {});
    ASSERT_TRUE(waitUntil([&] { return app.listening(5201); }, 20s)) << app.output.toStdString();
    QProcess client, second;
    client.start(u"nsenter"_s, app.inside() + QStringList{u"iperf3"_s, u"-c"_s, u"127.0.0.1"_s, u"-t"_s, u"3"_s, u"--forceflush"_s});
    QByteArray said;
    ASSERT_TRUE(waitUntil([&] { return (said += client.readAll()).contains(" sec "); }, 10s)) << said.toStdString();
    second.setProcessEnvironment(app.environment);
    second.start(u"nsenter"_s, {u"-t"_s, QString::number(app.shell()), u"-p"_s, u"-n"_s, u"-m"_s, TestEnvironment::binDir() + u"/tidewave"_s});
    ASSERT_TRUE(second.waitForFinished(2000)) << "the second copy stayed";
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_TRUE(app.waitFor("another start asked for the window", 2s)) << app.output.toStdString();
    ASSERT_TRUE(waitUntil([&] { return client.state() == QProcess::NotRunning; }, 10s));
    EXPECT_EQ(client.exitCode(), 0) << (said + client.readAll()).toStdString();
    EXPECT_EQ(app.end(SIGTERM), 0);
}

} // namespace
