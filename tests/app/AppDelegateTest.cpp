#include "Tidewave/TidewaveAppDelegate.h"

#include "client/ClientTab.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui/TidewaveMainView.h"

#include "PerfHelper/PerfServer.h"
#include "PerfHelper/TidewaveUtils.h"
#include "common/TestEnvironment.h"
#include "discovery/ServerDiscoveryList.h"
#include "fakes/AppFakeReachabilitySource.h"
#include "fakes/ServerTabFakeInventory.h"
#include "network/GetPIFInterfaceinfo.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"
#include "ui/DiscoveryWindow.h"
#include "ui/TidewaveMainWindow.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QTableView>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// The application object with a fake reachability source, a fake inventory
// (one Wi-Fi interface) and a recording shell: nothing here kills or counts
// processes by name.
class AppDelegate : public ::testing::Test
{
protected:
    void SetUp() override
    {
        GetPIFInterfaceinfo::setProvider(std::make_shared<ServerTabFakeInventory>(QList<ServerTabFakeInventory::Interface>{
            {QStringLiteral("wlan0"), QStringLiteral("Wi-Fi"), QStringLiteral("192.168.1.20"), 0}}));
        port = TestEnvironment::freeTcpPort();
        SettingsStore::standard().setObject(QString::number(port), QStringLiteral("serverPort"));
        for (const QString &name : {QStringLiteral("updateBonjour"), QStringLiteral("showupdate")}) {
            NotificationCenter::defaultCenter().addObserver(this, name,
                                                            [this, name](const QVariantMap &) { posts << name; });
        }
    }

    void TearDown() override
    {
        app.reset();
        NotificationCenter::defaultCenter().removeObserver(this);
        GetPIFInterfaceinfo::setProvider(nullptr);
    }

    void makeApp(ReachabilityFlags initialFlags)
    {
        reachability->flags = initialFlags;
        TidewaveAppDelegate::Environment environment;
        environment.reachabilitySource = std::make_unique<AppFakeReachabilitySource>(reachability);
        environment.runShellCommandAndWait = [this](const QString &command) { shellCommands << command; };
        environment.serverTab.runShellCommandAndWait = environment.runShellCommandAndWait;
        environment.requestQuit = [this] { ++quitRequests; };
        app = std::make_unique<TidewaveAppDelegate>(std::move(environment));
    }

    std::shared_ptr<AppFakeReachabilitySource::Control> reachability =
        std::make_shared<AppFakeReachabilitySource::Control>();
    std::unique_ptr<TidewaveAppDelegate> app;
    QStringList shellCommands;
    QStringList posts;
    int quitRequests = 0;
    quint16 port = 0;
};

QString logText()
{
    QString text;
    const QDir folder(TidewaveUtils::getAppSupportDirPath());
    for (const QString &name : folder.entryList({QStringLiteral("log-*.txt")}, QDir::Files)) {
        QFile file(folder.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            text += QString::fromUtf8(file.readAll());
    }
    return text;
}

TEST_F(AppDelegate, StartsUpInOrderAndWaitsForReachabilityBeforeServing)
{
    // A damaged copy left by an earlier run.
    const QString toolPath = TidewaveUtils::getiPerfExecutablePath();
    ASSERT_TRUE(QDir().mkpath(TidewaveUtils::getAppSupportDirPath()));
    {
        QFile stale(toolPath);
        ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
        stale.write("#!/bin/sh\nexit 3\n");
    }

    makeApp(0);
    app->launch();
    ASSERT_TRUE(app->window()->isVisible());

    EXPECT_EQ(SettingsStore::standard().integerForKey(QStringLiteral("graphMaxSpeed")), 100)
        << "defaults resource not registered";
    const QString log = logText();
    EXPECT_TRUE(log.contains(QStringLiteral("------\n")));
    EXPECT_TRUE(log.contains(QStringLiteral("Starting Mac Tidewave Version %1.%2")
                                 .arg(QStringLiteral(TIDEWAVE_VERSION), QStringLiteral(TIDEWAVE_BUILD_NUMBER))));
    EXPECT_TRUE(log.contains(QStringLiteral("OS Version ")));

    QFile placed(toolPath);
    QFile resource(TidewaveUtils::resourcePath(QStringLiteral("mac-native-iperf")));
    ASSERT_TRUE(placed.open(QIODevice::ReadOnly));
    ASSERT_TRUE(resource.open(QIODevice::ReadOnly)) << "the launcher is not built beside the tests";
    EXPECT_TRUE(placed.readAll() == resource.readAll()) << "the stale tool was not replaced";

    EXPECT_EQ(shellCommands, QStringList{QStringLiteral("/usr/bin/killall mac-native-iperf")});
    EXPECT_FALSE(TestEnvironment::waitUntil([&] { return app->serverTab()->server != nullptr; }, 1500ms))
        << "the server started without reachability";
    EXPECT_FALSE(posts.contains(QStringLiteral("updateBonjour")));

    reachability->report(kReachabilityFlagReachable);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return app->serverTab()->isRunning; }, 5s));
    EXPECT_EQ(app->serverTab()->server->port(), port);
    EXPECT_EQ(posts.count(QStringLiteral("updateBonjour")), 1);
    ASSERT_EQ(app->discoveryList()->servicesName().size(), 1);
    EXPECT_TRUE(app->discoveryList()->servicesName().first().endsWith(
        QStringLiteral(",%1,192_168_1_20,WiFi").arg(port)));

    app->applicationWillTerminateNotification();
    EXPECT_TRUE(app->serverTab()->server->isStop());
    EXPECT_EQ(shellCommands.count(QStringLiteral("/usr/bin/killall mac-native-iperf")), 2);
}

TEST_F(AppDelegate, ClosingTheMainWindowQuits)
{
    makeApp(0);
    app->launch();
    ASSERT_TRUE(app->window()->close());
    EXPECT_EQ(quitRequests, 1);

    app->window()->show();
    QAction *quit = app->window()->findChild<QAction *>(QStringLiteral("actionQuit"));
    ASSERT_NE(quit, nullptr);
    quit->trigger();
    EXPECT_EQ(quitRequests, 2);
    EXPECT_FALSE(app->window()->isVisible());
}

TEST_F(AppDelegate, TheClientTabComesFirstAndOpensTheDiscoveryWindow)
{
    makeApp(0);
    app->launch();
    TidewaveMainTabSet *tabs = app->window()->mainView()->tabSet();
    ASSERT_NE(app->clientTab(), nullptr);
    EXPECT_EQ(tabs->clientTab(), app->clientTab());
    EXPECT_EQ(tabs->serverTab(), app->serverTab());
    app->clientTab()->openserversWindow();
    EXPECT_TRUE(app->discoveryWindow()->isVisible());
}

TEST_F(AppDelegate, DiscoveryWindowShowsPeersAndItsSelectionFillsTheClientSettings)
{
    makeApp(0);
    app->launch();
    app->showDiscoveryWindow();
    ASSERT_TRUE(app->discoveryWindow()->isVisible());
    QTableView *table = app->tableView();
    ASSERT_NE(table, nullptr);

    auto peer = std::make_shared<NetService>();
    peer->name = QStringLiteral("Studio,5202,192_168_1_21,Wi-Fi (Primary)");
    peer->type = QStringLiteral("_TidewaveServer._tcp");
    peer->domain = QStringLiteral("local");
    app->discoveryList()->serviceAdded(peer, false);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return table->model()->rowCount() == 1; }, 5s));
    EXPECT_EQ(table->model()->index(0, 0).data().toString(), QStringLiteral("Studio"));
    EXPECT_EQ(table->model()->index(0, 1).data().toString(), QStringLiteral("Wi-Fi (Primary): 192.168.1.21"));
    EXPECT_EQ(table->model()->index(0, 2).data().toString(), QStringLiteral("5202"));

    table->selectRow(0);
    EXPECT_EQ(SettingsStore::standard().stringForKey(QStringLiteral("clientToServerIpAddress")),
              QStringLiteral("192.168.1.21"));
    EXPECT_EQ(SettingsStore::standard().stringForKey(QStringLiteral("clientToServerPort")), QStringLiteral("5202"));
    EXPECT_EQ(posts.count(QStringLiteral("showupdate")), 1);
}

} // namespace
