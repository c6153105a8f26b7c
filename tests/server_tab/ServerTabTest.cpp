#include "common/TestEnvironment.h"
#include "fakes/ServerTabFakeInventory.h"
#include "network/GetPIFInterfaceinfo.h"
#include "PerfHelper/PerfServer.h"
#include "server/ServerTabVIew.h"
#include "server/TestFinishedResultCellView.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui/TEAutoTextSizeTextField.h"

#include <QCoreApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

const QString kReachable = QStringLiteral("InternetDidBecomeAvailableOnSystemNotification");

// A server tab with a recording shell, a hand-set clock and a fake
// inventory. No tool is placed in the test's private application-support
// folder, so a "running" server is only a shell that fails and is retried:
// nothing listens on any port.
class ServerTab : public ::testing::Test
{
protected:
    void SetUp() override
    {
        store().removeObjectForKey(QStringLiteral("serverPort"));
        useInventory({{QStringLiteral("wlan0"), QStringLiteral("Wi-Fi"), QStringLiteral("192.168.1.20"), 0}});
        for (const QString &name : {QStringLiteral("stopBonjour"), QStringLiteral("updateBonjour"),
                                    QStringLiteral("showInfoMessage")}) {
            NotificationCenter::defaultCenter().addObserver(this, name, [this, name](const QVariantMap &info) {
                posts.append({name, info});
            });
        }
        ServerTabEnvironment environment;
        environment.runShellCommandAndWait = [this](const QString &command) { commands << command; };
        environment.secondsSince1970 = [this] { return now; };
        environment.startDelayMs = 20;
        tab = std::make_unique<ServerTabVIew>(nullptr, environment);
    }

    void TearDown() override
    {
        tab.reset();
        NotificationCenter::defaultCenter().removeObserver(this);
        GetPIFInterfaceinfo::setProvider(nullptr);
        notice()->closeWindowOnMouseDown();
    }

    static SettingsStore &store() { return SettingsStore::standard(); }
    static ProgressWindow *notice() { return ProgressWindowController::sharedPrgoressWindowController()->window(); }

    static void useInventory(QList<ServerTabFakeInventory::Interface> interfaces)
    {
        GetPIFInterfaceinfo::setProvider(std::make_shared<ServerTabFakeInventory>(std::move(interfaces)));
    }

    QList<QVariantMap> postsNamed(const QString &name) const
    {
        QList<QVariantMap> found;
        for (const auto &[n, info] : posts)
            if (n == name)
                found << info;
        return found;
    }

    std::unique_ptr<ServerTabVIew> tab;
    QStringList commands;
    double now = 1'700'000'000.0;
    QList<std::pair<QString, QVariantMap>> posts;
};

TEST_F(ServerTab, LoadingKillsStrayToolsOnceAndStartsNothing)
{
    tab->awakeFromNib();
    EXPECT_EQ(commands, QStringList{QStringLiteral("/usr/bin/killall mac-native-iperf")});
    EXPECT_FALSE(tab->stopServerButton->isEnabled());
    EXPECT_EQ(tab->server, nullptr);
    EXPECT_FALSE(tab->isRunning);
}

struct PortCase
{
    const char *name;
    QString typed;
    qint64 runsOn; // 0: refused with the 4-digit notice
};

class ServerTabPort : public ServerTab, public ::testing::WithParamInterface<PortCase>
{
};

TEST_P(ServerTabPort, RunServerChecksTheTypedPort)
{
    const PortCase &c = GetParam();
    tab->serverPort->setText(c.typed);
    QTest::mouseClick(tab->runServerButton, Qt::LeftButton);

    ASSERT_FALSE(postsNamed(QStringLiteral("showInfoMessage")).isEmpty());
    EXPECT_EQ(postsNamed(QStringLiteral("showInfoMessage")).first().value(QStringLiteral("message")).toString(),
              QString());
    EXPECT_TRUE(notice()->isVisible());
    if (c.runsOn == 0) {
        EXPECT_EQ(notice()->messageToShow->stringValue(), QStringLiteral("4 digit port is required to run the server"));
        EXPECT_FALSE(notice()->closeButton->isVisible());
        EXPECT_FALSE(tab->isRunning);
        EXPECT_EQ(tab->server, nullptr);
        EXPECT_EQ(tab->runServerButton->text(), QStringLiteral("Run Server"));
        EXPECT_FALSE(tab->stopServerButton->isEnabled());
        EXPECT_EQ(store().stringForKey(QStringLiteral("serverPort")), c.typed);
        return;
    }
    EXPECT_EQ(notice()->messageToShow->stringValue(), QStringLiteral("Server started on port %1").arg(c.runsOn));
    ASSERT_TRUE(tab->isRunning);
    ASSERT_NE(tab->server, nullptr);
    EXPECT_EQ(tab->server->port(), c.runsOn);
    EXPECT_EQ(store().integerForKey(QStringLiteral("serverPort")), c.runsOn);
    EXPECT_EQ(tab->runServerButton->text(), QStringLiteral("Running"));
    EXPECT_TRUE(tab->stopServerButton->isEnabled());
    EXPECT_EQ(tab->serverRunningLabel->text(), QStringLiteral("Server running on %1 port").arg(c.runsOn));
}

INSTANTIATE_TEST_SUITE_P(Ports, ServerTabPort,
                         ::testing::Values(PortCase{"TwoDigits", QStringLiteral("80"), 0},
                                           PortCase{"ThreeDigits", QStringLiteral("999"), 0},
                                           PortCase{"Negative", QStringLiteral("-1"), 0},
                                           PortCase{"EmptyBecomes5201", QString(), 5201},
                                           PortCase{"FourDigits", QStringLiteral("1000"), 1000},
                                           PortCase{"FiveDigits", QStringLiteral("12345"), 12345}),
                         [](const ::testing::TestParamInfo<PortCase> &info) { return std::string(info.param.name); });

TEST_F(ServerTab, StopAndRunAgainSwitchTitlesAndMakeAFreshServer)
{
    store().setObject(QStringLiteral("5202"), QStringLiteral("serverPort"));
    tab->runServer(false);
    ASSERT_TRUE(tab->isRunning);
    QPointer<PerfServer> first = tab->server.get();

    QTest::mouseClick(tab->stopServerButton, Qt::LeftButton);
    EXPECT_FALSE(tab->isRunning);
    EXPECT_TRUE(first->isStop());
    EXPECT_EQ(tab->runServerButton->text(), QStringLiteral("Run Server"));
    EXPECT_FALSE(tab->stopServerButton->isEnabled());
    EXPECT_TRUE(tab->serverRunningLabel->text().isEmpty());
    EXPECT_EQ(postsNamed(QStringLiteral("stopBonjour")).size(), 1);

    tab->runServer(false);
    ASSERT_TRUE(tab->isRunning);
    EXPECT_NE(tab->server.get(), first.data());
    EXPECT_FALSE(tab->server->isStop());
    EXPECT_EQ(tab->runServerButton->text(), QStringLiteral("Running"));

    // Running already: nothing more happens.
    const PerfServer *second = tab->server.get();
    tab->runServer(false);
    EXPECT_EQ(tab->server.get(), second);
}

struct ErrorCase
{
    const char *name;
    bool running;
    QString error;
    QString shown; // null: nothing shown
};

class ServerTabError : public ServerTab, public ::testing::WithParamInterface<ErrorCase>
{
};

TEST_P(ServerTabError, StopsARunningServerAndShowsWhy)
{
    const ErrorCase &c = GetParam();
    store().setObject(5203, QStringLiteral("serverPort"));
    if (c.running)
        tab->runServer(false);
    posts.clear();
    tab->serverError(c.error);
    const QList<QVariantMap> shown = postsNamed(QStringLiteral("showInfoMessage"));
    if (c.shown.isNull()) {
        EXPECT_TRUE(shown.isEmpty());
        EXPECT_TRUE(postsNamed(QStringLiteral("stopBonjour")).isEmpty());
        return;
    }
    EXPECT_FALSE(tab->isRunning);
    EXPECT_EQ(tab->runServerButton->text(), QStringLiteral("Run Server"));
    ASSERT_EQ(shown.size(), 1);
    EXPECT_EQ(shown.first().value(QStringLiteral("message")).toString(), c.shown);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, ServerTabError,
    ::testing::Values(
        ErrorCase{"ToolText", true,
                  QStringLiteral("iperf3: error - unable to start listener for connections: Address already in use\n"),
                  QStringLiteral("iperf3: error - unable to start listener for connections: Address already in use\n")},
        ErrorCase{"NoText", true, QString(),
                  QStringLiteral("Unable to start the server. Please try using different port number.")},
        ErrorCase{"NotRunning", false, QStringLiteral("anything"), QString()}),
    [](const ::testing::TestParamInfo<ErrorCase> &info) { return std::string(info.param.name); });

TEST_F(ServerTab, ReachabilityRestartsAtMostOncePerFiveSeconds)
{
    store().setObject(5204, QStringLiteral("serverPort"));
    NotificationCenter::defaultCenter().post(kReachable);
    EXPECT_EQ(tab->server, nullptr) << "the event is handled from the event loop, not during the post";
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab->isRunning; }, 5s));
    QPointer<PerfServer> first = tab->server.get();
    EXPECT_EQ(postsNamed(QStringLiteral("updateBonjour")).size(), 1);

    // 3 s and exactly 5 s after the restart: both ignored.
    for (double step : {3.0, 2.0}) {
        now += step;
        NotificationCenter::defaultCenter().post(kReachable);
        QCoreApplication::processEvents();
        EXPECT_EQ(tab->server.get(), first.data()) << "restarted after " << step << " more seconds";
        EXPECT_EQ(postsNamed(QStringLiteral("updateBonjour")).size(), 1);
    }

    now += 0.5; // 5.5 s after the first restart
    NotificationCenter::defaultCenter().post(kReachable);
    QCoreApplication::processEvents();
    EXPECT_TRUE(first.isNull()) << "the old server is stopped and replaced";
    EXPECT_EQ(postsNamed(QStringLiteral("updateBonjour")).size(), 2);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab->isRunning; }, 5s));
    EXPECT_EQ(tab->server->port(), 5204);
}

struct InterfacesCase
{
    const char *name;
    QList<ServerTabFakeInventory::Interface> interfaces;
    QString shown;
    QString primaryAddress;
    QString primaryBsdName;
};

class ServerTabInterfaces : public ServerTab, public ::testing::WithParamInterface<InterfacesCase>
{
};

TEST_P(ServerTabInterfaces, UpdateUIStoresAndShowsTheAddresses)
{
    const InterfacesCase &c = GetParam();
    useInventory(c.interfaces);
    tab->UpdateUI();
    EXPECT_EQ(store().stringForKey(QStringLiteral("IPAddresss")), c.shown);
    EXPECT_EQ(store().stringForKey(QStringLiteral("PrimaryIPAddresss")), c.primaryAddress);
    EXPECT_EQ(store().stringForKey(QStringLiteral("PrimaryBSDName")), c.primaryBsdName);
    EXPECT_EQ(tab->serverIpAddress->text(), c.shown);
    EXPECT_EQ(tab->oldList.size(), c.interfaces.size());

    const QList<QVariantMap> published = postsNamed(QStringLiteral("updateBonjour"));
    ASSERT_EQ(published.size(), 1);
    const auto list = published.first().value(QStringLiteral("message")).value<PIFCInterfaceInfoList>();
    ASSERT_EQ(list.size(), c.interfaces.size());
    EXPECT_EQ(list.first()->IPAdress, c.primaryAddress);
}

INSTANTIATE_TEST_SUITE_P(
    Inventories, ServerTabInterfaces,
    ::testing::Values(
        InterfacesCase{"OneInterface",
                       {{QStringLiteral("wlan0"), QStringLiteral("Wi-Fi"), QStringLiteral("192.168.1.20"), 0}},
                       QStringLiteral("WiFi: 192.168.1.20"),
                       QStringLiteral("192.168.1.20"),
                       QStringLiteral("wlan0")},
        InterfacesCase{"TwoInterfacesFirstIsPrimary",
                       {{QStringLiteral("eth0"), QStringLiteral("Ethernet"), QStringLiteral("10.0.0.7"), 1},
                        {QStringLiteral("wlan0"), QStringLiteral("Wi-Fi"), QStringLiteral("192.168.1.20"), 0}},
                       QStringLiteral("WiFi (Primary): 192.168.1.20, Ethernet: 10.0.0.7"),
                       QStringLiteral("192.168.1.20"),
                       QStringLiteral("wlan0")}),
    [](const ::testing::TestParamInfo<InterfacesCase> &info) { return std::string(info.param.name); });

PerfResultPtr interval(const QString &ip)
{
    auto r = std::make_shared<PerfResult>();
    r->intervals = QStringLiteral("0.00-1.00 sec");
    r->ip = ip;
    r->typeName = QStringLiteral("receiver");
    return r;
}

TEST_F(ServerTab, ResultsAreListedNewestFirstWithGrowingRows)
{
    auto older = std::make_shared<iPerfServerResults>();
    older->intervalResults << interval(QStringLiteral("10.0.0.5"));
    tab->reportIntervalNew(older);
    older->intervalResults << interval(QStringLiteral("10.0.0.5"));
    tab->reportIntervalNew(older);
    ASSERT_EQ(tab->serverTestResultsArray.size(), 1) << "the same test is listed once";

    auto newer = std::make_shared<iPerfServerResults>();
    tab->testDidFinished(newer);
    ASSERT_EQ(tab->serverTestResultsArray.size(), 2);
    EXPECT_EQ(tab->serverTestResultsArray.first(), newer);
    EXPECT_EQ(tab->rowHeight(0), 95);
    EXPECT_EQ(tab->rowHeight(1), 95 + 2 * 10);
    ASSERT_NE(tab->cellForRow(1), nullptr);
    EXPECT_EQ(tab->cellForRow(1)->textField->text(), QStringLiteral("From 10.0.0.5 To This Computer"));
    EXPECT_EQ(tab->cellForRow(0)->textField->text(), QStringLiteral("From -"));

    older->intervalResults << interval(QStringLiteral("10.0.0.5"));
    tab->reportIntervalNew(older);
    EXPECT_EQ(tab->rowHeight(1), 95 + 3 * 10);
    EXPECT_EQ(tab->cellForRow(1)->intervalResultsTable->model()->rowCount(), 3);

    tab->testDidFinishedWithServerLog({interval(QStringLiteral("10.0.0.9"))});
    ASSERT_EQ(tab->serverTestResultsArray.size(), 3);
    EXPECT_EQ(tab->cellForRow(2)->textField->text(), QStringLiteral("From 10.0.0.9 To This Computer"));

    QTest::mouseClick(tab->findChild<QPushButton *>(QStringLiteral("clearButton")), Qt::LeftButton);
    EXPECT_TRUE(tab->serverTestResultsArray.isEmpty());
    EXPECT_EQ(tab->serverResultsTableView->model()->rowCount(), 0);
}

} // namespace
