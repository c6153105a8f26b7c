#include "discovery/AvahiSandbox.h"

#include "common/TestEnvironment.h"
#include "discovery/MachineName.h"
#include "discovery/Server.h"
#include "discovery/ServerDiscoveryList.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"

#include "network/MacAddress.h"

#include <QAbstractItemModelTester>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

NetServicePtr peer(const QString &name)
{
    auto service = std::make_shared<NetService>();
    service->name = name;
    service->type = QStringLiteral("_TidewaveServer._tcp");
    service->domain = QStringLiteral("local");
    return service;
}

PIFCInterfaceInfoPtr interface(const QString &address, const QString &displayName)
{
    auto info = std::make_shared<PIFCInterfaceInfo>();
    info->IPAdress = address;
    info->displayName = displayName;
    return info;
}

class ServerDiscoveryListTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_tester = std::make_unique<QAbstractItemModelTester>(&m_list,
                                                              QAbstractItemModelTester::FailureReportingMode::Fatal);
        NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("showupdate"),
                                                        [this](const QVariantMap &info) { m_updates.append(info); });
        SettingsStore::standard().removeObjectForKey(QStringLiteral("clientToServerPort"));
        SettingsStore::standard().removeObjectForKey(QStringLiteral("clientToServerIpAddress"));
    }
    void TearDown() override { NotificationCenter::defaultCenter().removeObserver(this); }

    // Adds peers as one batch and waits for the table to load them.
    void addPeers(const QStringList &names)
    {
        QSignalSpy resets(&m_list, &QAbstractItemModel::modelReset);
        for (qsizetype i = 0; i < names.size(); ++i)
            m_list.serviceAdded(peer(names[i]), i + 1 < names.size());
        ASSERT_TRUE(resets.wait(5000));
    }

    // What the list holds, for failure messages.
    std::string describe() const
    {
        QStringList names;
        for (const NetServicePtr &service : m_list.services())
            names.append(service->name);
        QStringList servers;
        for (Server *server : m_list.startedServers())
            servers.append(QStringLiteral("%1 published=%2 browsing=%3")
                               .arg(server->iPerfIP())
                               .arg(server->isPublished())
                               .arg(server->isBrowsing()));
        return QStringLiteral("rows=%1 services=[%2] servers=[%3]")
            .arg(m_list.rowCount())
            .arg(names.join(QLatin1Char('|')), servers.join(QLatin1Char('|')))
            .toStdString();
    }

    ServerDiscoveryList m_list;
    std::unique_ptr<QAbstractItemModelTester> m_tester;
    QList<QVariantMap> m_updates;
};

TEST_F(ServerDiscoveryListTest, ABurstOfAddEventsReloadsTheTableOnce)
{
    QSignalSpy resets(&m_list, &QAbstractItemModel::modelReset);
    m_list.serviceAdded(peer("A,1,10_0_0_1,eth0"), true);
    m_list.serviceAdded(peer("B,1,10_0_0_2,eth0"), true);
    ASSERT_FALSE(resets.wait(300)) << "no reload while more are coming";
    m_list.serviceAdded(peer("C,1,10_0_0_3,eth0"), false);
    ASSERT_TRUE(resets.wait(5000));
    ASSERT_FALSE(resets.wait(300)) << "one reload only";
    EXPECT_EQ(resets.size(), 1);
    EXPECT_EQ(m_list.rowCount(), 3);

    m_list.serviceRemoved(peer("B,1,10_0_0_2,eth0"), false);
    ASSERT_TRUE(resets.wait(5000));
    EXPECT_EQ(m_list.rowCount(), 2);
    EXPECT_EQ(m_list.cellValue(1, "Service"), QStringLiteral("C"));
}

TEST_F(ServerDiscoveryListTest, CellsFollowTheNameFields)
{
    addPeers({"Studio,5201,192_168_1_20,Wi-Fi (Primary)", "Printer", "Odd,7000"});
    ASSERT_EQ(m_list.columnCount(), 3);
    const auto cell = [&](int row, int column) { return m_list.data(m_list.index(row, column)).toString(); };
    EXPECT_EQ(cell(0, 0), QStringLiteral("Studio"));
    EXPECT_EQ(cell(0, 1), QStringLiteral("Wi-Fi (Primary): 192.168.1.20"));
    EXPECT_EQ(cell(0, 2), QStringLiteral("5201"));
    EXPECT_EQ(cell(1, 0), QStringLiteral(""));
    EXPECT_EQ(cell(2, 1), QStringLiteral(""));
    EXPECT_EQ(cell(2, 2), QStringLiteral("7000"));
    EXPECT_EQ(m_list.headerData(1, Qt::Horizontal, ServerDiscoveryList::ColumnIdentifierRole).toString(),
              QStringLiteral("ServiceIP"));
}

TEST_F(ServerDiscoveryListTest, SelectingARowFillsTheClientSettings)
{
    addPeers({"Studio,5201,192_168_1_20,Wi-Fi", "Odd,7000", "Lab,6001,10_9_8_7"});
    SettingsStore &store = SettingsStore::standard();

    m_list.tableViewSelectionDidChange(0);
    EXPECT_EQ(store.stringForKey("clientToServerPort"), QStringLiteral("5201"));
    EXPECT_EQ(store.stringForKey("clientToServerIpAddress"), QStringLiteral("192.168.1.20"));
    ASSERT_EQ(m_updates.size(), 1);
    EXPECT_EQ(m_updates.first().value("update").value<SettingsStore *>(), &store);

    // Fewer than three fields, or no selection: nothing changes.
    m_list.tableViewSelectionDidChange(1);
    m_list.tableViewSelectionDidChange(-1);
    EXPECT_EQ(m_list.selectedRow(), -1);
    EXPECT_EQ(m_updates.size(), 1);
    EXPECT_EQ(store.stringForKey("clientToServerPort"), QStringLiteral("5201"));

    // Through a view's selection model, as the window uses it.
    QItemSelectionModel selection(&m_list);
    m_list.followSelection(&selection);
    selection.select(m_list.index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    EXPECT_EQ(m_list.selectedRow(), 2);
    EXPECT_EQ(store.stringForKey("clientToServerIpAddress"), QStringLiteral("10.9.8.7"));
    EXPECT_EQ(store.stringForKey("clientToServerPort"), QStringLiteral("6001"));
    EXPECT_EQ(m_updates.size(), 2);
}

// A peer's name is network input: shell text in it must stay inert text.
TEST_F(ServerDiscoveryListTest, ShellTextInAPeerNameIsStoredButNeverRun)
{
    const QString marker = QStringLiteral("/tmp/pwned");
    ASSERT_FALSE(QFileInfo::exists(marker)) << "remove the stale /tmp/pwned first";
    addPeers({"Studio,5201,10_0_0_1 $(touch /tmp/pwned),Wi-Fi"});

    EXPECT_EQ(m_list.cellValue(0, "ServiceIP"), QStringLiteral("Wi-Fi: 10.0.0.1 $(touch /tmp/pwned)"));
    m_list.tableViewSelectionDidChange(0);
    const QString stored = SettingsStore::standard().stringForKey("clientToServerIpAddress");
    EXPECT_EQ(stored, QStringLiteral("10.0.0.1 $(touch /tmp/pwned)"));
    EXPECT_EQ(m_updates.size(), 1);
    EXPECT_FALSE(MacAddress::isIp(stored)) << "the client must refuse to run against it";
    EXPECT_FALSE(QFileInfo::exists(marker));
}

// ---- with a real daemon --------------------------------------------------

TEST_F(ServerDiscoveryListTest, PublishesOneServicePerInterfaceAndListsOnlyPeers)
{
    REQUIRE_AVAHI_SANDBOX();
    SettingsStore::standard().setObject(QStringLiteral("5202"), QStringLiteral("serverPort"));
    const QString machine = MachineName::current();

    auto peerServer = Server::withProtocol(ServerDiscoveryList::ProtocolWord, "Peer,5201,10_0_0_9,eth0");
    ASSERT_TRUE(peerServer->start());

    m_list.startBonjourServers({interface("192.168.1.20", "Wi-Fi"), interface("10.0.0.1", "Ethernet")});
    ASSERT_EQ(m_list.startedServers().size(), 2);
    EXPECT_EQ(m_list.servicesName(), (QStringList{machine + ",5202,192_168_1_20,Wi-Fi (Primary)",
                                                 machine + ",5202,10_0_0_1,Ethernet"}));
    EXPECT_EQ(m_list.server(), m_list.startedServers().first());
    EXPECT_EQ(m_list.startedServers().at(1)->delegate(), nullptr);

    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_list.rowCount() == 1; }, 8s)) << describe();
    EXPECT_EQ(m_list.cellValue(0, "Service"), QStringLiteral("Peer"));
    // Our second interface's service is seen too, and filtered as our own.
    ASSERT_FALSE(TestEnvironment::waitUntil([&] { return m_list.services().size() > 1; }, 1500ms));

    // "stopBonjour" withdraws the first service only.
    m_list.stopBonjourPublishing();
    EXPECT_FALSE(m_list.startedServers().at(0)->isPublished());
    EXPECT_TRUE(m_list.startedServers().at(1)->isPublished());

    // One interface: no " (Primary)". The name just withdrawn is published
    // again at once, as every interface refresh does.
    m_list.startBonjourServers({interface("10.0.0.1", "Ethernet")});
    EXPECT_EQ(m_list.servicesName(), QStringList{machine + ",5202,10_0_0_1,Ethernet"});
    EXPECT_TRUE(m_list.services().isEmpty()) << "the peer list starts again";
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_list.server()->localService() != nullptr; }, 8s));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_list.services().size() == 1; }, 8s)) << describe();
}

TEST_F(ServerDiscoveryListTest, APeerCarryingOneOfOurNamesIsNotListed)
{
    REQUIRE_AVAHI_SANDBOX();
    m_list.startBonjourServers({interface("10.0.0.1", "Ethernet")});
    const QString own = m_list.servicesName().value(0);
    // Our own name closing a batch still shows the peer that came before it.
    m_list.serviceAdded(peer("Other,5201,10_0_0_2,eth0"), true);
    m_list.serviceAdded(peer(own), false);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return m_list.rowCount() == 1; }, 5s));
    EXPECT_EQ(m_list.services().size(), 1);
    EXPECT_EQ(m_list.cellValue(0, "Service"), QStringLiteral("Other"));
}

} // namespace
