#include "discovery/AvahiSandbox.h"

#include "discovery/MachineName.h"
#include "discovery/Server.h"
#include "discovery/ServerDiscoveryList.h"
#include "discovery/ServiceName.h"
#include "network/NetworkTestSupport.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"

#include <QAbstractItemModelTester>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QTemporaryDir>
#include <QTcpSocket>

#include <sys/mount.h>
#include <sys/prctl.h>

#include <csignal>

using namespace std::chrono_literals;

namespace {

bool waitFor(const std::function<bool()> &condition, std::chrono::milliseconds timeout = 8s)
{
    return TestEnvironment::waitUntil(condition, timeout);
}

// Whether anything accepts connections on the port (asked only of ports expected closed: a Server takes a probe for a peer).
bool listening(quint16 port)
{
    QTcpSocket probe;
    probe.connectToHost(QHostAddress::LocalHost, port);
    return probe.waitForConnected(1000);
}

// Records what a Server reports: browse events ("+name", "-name") with their flags, the services present, the rest.
struct Recorder : ServerDelegate
{
    QStringList events;
    QList<bool> moreComing;
    QList<NetServicePtr> present;
    int connections = 0, stopped = 0;
    QList<QVariantMap> didNotStart, lost;

    void serviceAdded(const NetServicePtr &service, bool more) override { events << "+" + service->name, moreComing << more, present << service; }
    void serviceRemoved(const NetServicePtr &s, bool more) override { events << "-" + s->name, moreComing << more, present.removeIf([&](auto &p) { return p->isEqual(*s); }); }
    void serverRemoteConnectionComplete(Server *) override { ++connections; }
    void serverStopped(Server *) override { ++stopped; }
    void serverDidNotStart(Server *, const QVariantMap &error) override { didNotStart << error; }
    void serverLostConnection(Server *, const QVariantMap &info) override { lost << info; }
    QStringList names() const // of the services present, sorted
    {
        QStringList names;
        for (const NetServicePtr &service : present)
            names << service->name;
        return names.sort(), names;
    }
};

TEST(ServiceName, BuiltReadAndFittedToTheLabelLimit)
{
    EXPECT_EQ(ServiceName::build("Studio", "5201", "192.168.1.20", "Wi-Fi", true) + ServiceName::build("S", "1", QString(), "VPN", false),
              "Studio,5201,192_168_1_20,Wi-Fi (Primary)S,1,,VPN");
    EXPECT_EQ(ServiceName::cellValue(",,,", "ServiceIP") + ServiceName::cellValue("A,1,2_2,usb_eth,C", "ServiceIP") + ServiceName::cellValue("A,1", "Other"),
              ": usb.eth: 2.2");
    EXPECT_EQ(ServiceName::target("A,1,2_2,x,y")->address + ServiceName::target("A,1,2_2,x,y")->port, "2.21");
    const QString fixed = "Studio,5201,192_168_1_20,", antenna = QString::fromUtf8("\xF0\x9F\x93\xB6"); // 25 bytes; 4 bytes, 2 UTF-16 units
    const QString host = "build-agent-0042.performance-lab.example.com", rest = ",5201,10_0_0_1,Ethernet (Primary)"; // 44 and 33 bytes
    const std::pair<QString, QString> fits[] = { // the machine name gives way, never inside a character; the rest stays whole
        {fixed + QString(38, 'd'), fixed + QString(38, 'd')}, {host + rest, "build-agent-0042.performance-l" + rest},
        {QString(40, QChar(0xE9)) + ",5201,10_0_0_1,eth0", QString(22, QChar(0xE9)) + ",5201,10_0_0_1,eth0"},
        {antenna.repeated(12) + rest, antenna.repeated(7) + rest},
        // Only where the rest alone is too long does the display field give way too, and then the end.
        {fixed + QString(50, 'd'), ",5201,192_168_1_20," + QString(44, 'd')},
        {fixed + QString(50, 'd') + " (Primary)", ",5201,192_168_1_20," + QString(34, 'd') + " (Primary)"},
        {QString(70, 'n'), QString(63, 'n')}};
    for (const auto &[name, fitted] : fits)
        EXPECT_EQ(ServiceName::fitToLimit(name), fitted) << name.toStdString();
}

TEST(MachineName, PrettyHostNameOrTheHostName)
{
    const std::pair<QByteArray, QString> files[] = {{"CHASSIS=laptop\nPRETTY_HOSTNAME='Studio \"2\"'\n", "Studio \"2\""},
                                                    {"  PRETTY_HOSTNAME=\"a\\\"b\"'c\\d'\\ e\\\n", "a\"bc\\d e\\"}, {"PRETTY_HOSTNAME=Old\nPRETTY_HOSTNAME=B\xC3\xBCro\n", "B\u00fcro"},
                                                    {"CHASSIS=desktop\n", QString()}, {"PRETTY_HOSTNAME=\"  \"\n", QString()}, {"# PRETTY_HOSTNAME=Nope\n", QString()}};
    for (const auto &[file, pretty] : files)
        EXPECT_TRUE(MachineName::prettyHostName(file) == pretty && MachineName::prettyHostName(file).isNull() == pretty.isNull()) << file.toStdString();
    QTemporaryDir dir;
    QFile file(dir.filePath("machine-info"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("PRETTY_HOSTNAME=Studio\n") && file.flush());
    EXPECT_EQ(MachineName::fromFile(dir.filePath("missing"), "host") + MachineName::fromFile(file.fileName(), "host"), "hostStudio");
}

class ServerTest : public testing::Test
{
protected:
    void TearDown() override
    {
        for (const auto &server : m_servers)
            server->setDelegate(nullptr); // the tests' delegates are gone by now
    }
    Server *start(const QString &name, Recorder *delegate)
    {
        Server *server = m_servers.emplace_back(Server::withProtocol("TidewaveServer", name)).get();
        server->setDelegate(delegate);
        ServerError error;
        EXPECT_TRUE(server->start(&error)) << error.toString().toStdString();
        return server;
    }
    std::vector<std::unique_ptr<Server>> m_servers;
};

// Three services published before a fourth starts browsing: it sees them as one batch, under the names as published
// (never itself, never a renamed copy of a taken name). A connected peer gets what is sent and withdraws the service
// until it leaves; resolving a service connects to it; a stopped service stays gone.
TEST_F(ServerTest, PublishBrowseCollideConnectResolveAndStop)
{
    REQUIRE_AVAHI_SANDBOX();
    const LogCapture log;
    const QString same = "Same,5201,10_0_0_4,eth0", fitted = QString(15, QChar(0xE9)) + ",5201,10_0_0_2,Ethernet (Primary)"; // 63 bytes
    Recorder hostEvents, sameEvents, secondEvents, watcherEvents;
    Server *host = start("Host,5201,10.0.0.1,Wi-Fi 2.4", &hostEvents);
    Server *longName = start(QString(30, QChar(0xE9)) + ",5201,10.0.0.2,Ethernet (Primary)", nullptr); // a 60-byte machine name
    Server *first = start(same, &sameEvents);
    EXPECT_EQ(host->iPerfIP() + "|" + longName->iPerfIP(), "Host,5201,10_0_0_1,Wi-Fi 2_4|" + fitted) << "never half a character";
    EXPECT_TRUE(log.contains("is longer than 63 bytes, publishing \"" + fitted + "\""));
    ASSERT_TRUE(waitFor([&] { return host->localService() && longName->localService() && first->localService(); }));
    EXPECT_EQ(host->name() + "|" + host->localService()->type, host->iPerfIP() + "|_TidewaveServer._tcp");
    Server *second = start(same, &secondEvents);
    ASSERT_TRUE(waitFor([&] { return !secondEvents.didNotStart.isEmpty(); }, 5s));
    EXPECT_EQ(secondEvents.didNotStart, (QList<QVariantMap>{{{"domain", "Avahi"}, {"code", -8}, {"message", "Local name collision"}}}));
    EXPECT_TRUE(!second->isPublished() && second->iPerfIP() == same);
    EXPECT_TRUE(second->isBrowsing()) << "peers are listed whether or not our own name could be published";

    Server *watcher = start("Watcher", &watcherEvents);
    ASSERT_TRUE(waitFor([&] { return watcherEvents.events.size() == 3; })) << watcherEvents.events.join('|').toStdString();
    EXPECT_EQ(watcherEvents.moreComing, (QList<bool>{true, true, false}));
    EXPECT_EQ(watcherEvents.names(), (QStringList{host->iPerfIP(), same, fitted}));

    ServerError error;
    EXPECT_FALSE(first->sendData("early", &error));
    EXPECT_EQ(error.toString(), "Error Domain=ServerErrorDomain Code=4 \"no connected stream\"");
    QTcpSocket peer;
    peer.connectToHost(QHostAddress::LocalHost, first->port());
    ASSERT_TRUE(waitFor([&] { return sameEvents.connections == 1; }, 5s));
    EXPECT_TRUE(!first->sendData(QByteArray(), &error) && error.code == Server::NothingWritten);
    ASSERT_TRUE(first->sendData("hello", &error)) << error.toString().toStdString();
    QByteArray received;
    ASSERT_TRUE(waitFor([&] { return (received += peer.readAll()).size() >= 5; }, 5s));
    EXPECT_EQ(received, "hello");
    ASSERT_TRUE(waitFor([&] { return watcherEvents.events.last() == "-" + same && !watcherEvents.moreComing.last(); }));
    peer.write(QByteArray(300, 'x')); // read and dropped; the connection stays
    ASSERT_TRUE(waitFor([&] { return peer.bytesToWrite() == 0; }, 5s));
    peer.disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return sameEvents.lost == QList<QVariantMap>{{}}; }, 5s)) << "an orderly end carries no error";
    ASSERT_TRUE(waitFor([&] { return watcherEvents.events.last() == "+" + same; }));

    const NetServicePtr service = *std::find_if(watcherEvents.present.begin(), watcherEvents.present.end(), [&](auto &s) { return s->name == host->iPerfIP(); });
    EXPECT_EQ(Server::getAddress(service), "") << "not resolved yet";
    watcher->connectToRemoteService(service);
    ASSERT_TRUE(waitFor([&] { return hostEvents.connections == 1 && watcherEvents.connections == 1; }, 5s));
    EXPECT_EQ(Server::getAddress(service) + ":" + QString::number(service->port), "127.0.0.1:" + QString::number(host->port()));
    EXPECT_TRUE(service->hostName.endsWith(".local") && !watcher->currentlyResolvingService()) << service->hostName.toStdString();
    EXPECT_TRUE(host->inputStreamReady() && host->outputStreamReady() && host->outputStreamHasSpace());
    EXPECT_FALSE(host->isPublished() || watcher->isPublished()) << "a connected end is withdrawn";
    ASSERT_TRUE(waitFor([&] { return watcherEvents.events.contains("-" + host->iPerfIP()); }));
    // The connecting end stops: the host is told the connection ended and publishes again; the stopped end still
    // browses and sees it come back.
    watcher->stop();
    EXPECT_TRUE(watcherEvents.stopped == 1 && !listening(watcher->port()));
    ASSERT_TRUE(waitFor([&] { return hostEvents.lost == QList<QVariantMap>{{}}; }, 5s));
    EXPECT_FALSE(host->inputStreamReady() || host->outputStreamReady() || host->outputStreamHasSpace());
    ASSERT_TRUE(waitFor([&] { return watcherEvents.events.last() == "+" + host->iPerfIP(); })) << watcherEvents.events.join(u'|').toStdString();

    first->stop();
    EXPECT_TRUE(sameEvents.stopped == 1 && !listening(first->port()));
    ASSERT_TRUE(waitFor([&] { return watcherEvents.events.last() == "-" + same; }));
    EXPECT_EQ(watcherEvents.events.filter(same), (QStringList{"+" + same, "-" + same, "+" + same, "-" + same}));
    watcher->stopBrowser();
    EXPECT_FALSE(watcher->isBrowsing());
}

// A daemon that goes away and comes back: publishing fails without it, and every service comes back by itself once
// it returns.
TEST_F(ServerTest, ADaemonThatComesAndGoes)
{
    REQUIRE_AVAHI_SANDBOX();
    const LogCapture log;
    Recorder watcherEvents;
    start("Watcher", &watcherEvents);
    start("Survivor", nullptr);
    sandbox->stopAvahi();
    ASSERT_TRUE(waitFor([&] { return log.contains("Server: lost the connection to avahi-daemon: "); }));
    ServerError error;
    auto orphan = Server::withProtocol("TidewaveServer", "Orphan");
    EXPECT_FALSE(orphan->start(&error));
    EXPECT_EQ(error.toString(), "Error Domain=Avahi Code=-26 \"Daemon not running\"");
    EXPECT_TRUE(log.contains("Server: avahi-daemon is not available, cannot publish or browse: Daemon not running"));
    EXPECT_FALSE(listening(orphan->port())) << "nothing listens for a service that is not published";
    ASSERT_TRUE(sandbox->startAvahi());
    ASSERT_TRUE(orphan->start(&error)) << error.toString().toStdString();
    ASSERT_TRUE(waitFor([&] { return watcherEvents.names() == QStringList{"Orphan", "Survivor"}; })) << "published again by itself";
    sandbox->stopAvahi();
    ASSERT_TRUE(waitFor([&] { return watcherEvents.present.isEmpty(); })) << "peers vanish with the daemon";
    ASSERT_TRUE(sandbox->startAvahi());
    ASSERT_TRUE(waitFor([&] { return watcherEvents.names() == QStringList{"Orphan", "Survivor"}; }));
    sandbox->stopAvahi(), sandbox->stopBus(); // the bus too: reconnecting keeps failing until both are back
    ASSERT_TRUE(waitFor([&] { return watcherEvents.present.isEmpty(); }));
    ASSERT_TRUE(sandbox->startBus() && sandbox->startAvahi());
    ASSERT_TRUE(waitFor([&] { return watcherEvents.names() == QStringList{"Orphan", "Survivor"}; }));
}

class ServerDiscoveryListTest : public testing::Test
{
protected:
    void SetUp() override
    {
        NotificationCenter::defaultCenter().addObserver(this, "showupdate", [this](const QVariantMap &info) { m_updates.append(info); });
        SettingsStore::standard().removeObjectForKey("clientToServerPort");
        SettingsStore::standard().removeObjectForKey("clientToServerIpAddress");
    }
    void TearDown() override { NotificationCenter::defaultCenter().removeObserver(this); }
    QString table() const // every row as "service|address|port", ";"-joined
    {
        QStringList rows;
        for (int row = 0; row < m_list.rowCount(); ++row)
            rows << QStringList{m_list.index(row, 0).data().toString(), m_list.index(row, 1).data().toString(), m_list.index(row, 2).data().toString()}.join(u'|');
        return rows.join(u';');
    }
    void add(const QStringList &names) // peers' services, as one browser batch reports them
    {
        for (qsizetype i = 0; i < names.size(); ++i) {
            auto service = std::make_shared<NetService>();
            service->name = names[i];
            m_list.serviceAdded(service, i + 1 < names.size());
        }
    }

    ServerDiscoveryList m_list;
    QAbstractItemModelTester m_tester{&m_list, QAbstractItemModelTester::FailureReportingMode::Fatal};
    QList<QVariantMap> m_updates;
};

// A peer's name is network input: its fields fill the row, and a selected row stores its port and address as text
// (shell text included, never run) and announces the change.
TEST_F(ServerDiscoveryListTest, RowsShowTheNameFieldsAndASelectedRowFillsTheClientSettings)
{
    add({"Studio,5201,192_168_1_20,Wi-Fi", "Odd,7000", "Lab,6001,10_9_8_7", "Evil,5201,10_0_0_1 $(touch /tmp/pwned),Wi-Fi"});
    QCoreApplication::processEvents();
    EXPECT_EQ(table(), "Studio|Wi-Fi: 192.168.1.20|5201;Odd||7000;Lab|10.9.8.7|6001;Evil|Wi-Fi: 10.0.0.1 $(touch /tmp/pwned)|5201");
    EXPECT_EQ(m_list.headerData(1, Qt::Horizontal).toString() + m_list.headerData(2, Qt::Horizontal, ServerDiscoveryList::ColumnIdentifierRole).toString()
                  + m_list.headerData(3, Qt::Horizontal).toString(), "Interface and addressServicePort4") << "a column beyond the three is the model's";
    SettingsStore &store = SettingsStore::standard();
    const auto stored = [&] { return store.stringForKey("clientToServerIpAddress") + ":" + store.stringForKey("clientToServerPort"); };
    m_list.tableViewSelectionDidChange(0);
    EXPECT_EQ(stored(), "192.168.1.20:5201");
    ASSERT_EQ(m_updates.size(), 1);
    EXPECT_EQ(m_updates.first().value("update").value<SettingsStore *>(), &store);
    for (int row : {1, -1, 4}) // fewer than three fields, no selection, beyond the rows: nothing changes
        m_list.tableViewSelectionDidChange(row);
    EXPECT_EQ(stored() + QString::number(m_updates.size()) + QString::number(m_list.selectedRow()), "192.168.1.20:520114");
    QItemSelectionModel selection(&m_list); // as the window's view reports it
    m_list.followSelection(&selection);
    selection.select(m_list.index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    EXPECT_EQ(stored(), "10.9.8.7:6001");
    selection.select(m_list.index(3, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    EXPECT_EQ(stored(), "10.0.0.1 $(touch /tmp/pwned):5201");
    EXPECT_TRUE(m_updates.size() == 3 && !QFileInfo::exists("/tmp/pwned"));
}

// With a real daemon: one service per interface under names a peer can read, and only other computers' services in
// the table, reloaded once per batch.
TEST_F(ServerDiscoveryListTest, PublishesOneServicePerInterfaceAndListsOnlyPeers)
{
    REQUIRE_AVAHI_SANDBOX();
    SettingsStore::standard().setObject("5202", "serverPort");
    const QString machine = MachineName::current();
    auto peerServer = Server::withProtocol(ServerDiscoveryList::ProtocolWord, "Peer,5201,10_0_0_9,eth0");
    ASSERT_TRUE(peerServer->start());
    const auto interface = [](const QString &address, const QString &displayName) {
        auto info = std::make_shared<PIFCInterfaceInfo>();
        info->IPAdress = address, info->displayName = displayName;
        return info;
    };
    m_list.startBonjourServers({interface("192.168.1.20", "Wi-Fi"), interface("10.0.0.1", "Ethernet")});
    ASSERT_EQ(m_list.startedServers().size(), 2);
    EXPECT_EQ(m_list.servicesName(), (QStringList{machine + ",5202,192_168_1_20,Wi-Fi (Primary)", machine + ",5202,10_0_0_1,Ethernet"}));
    EXPECT_TRUE(m_list.server() == m_list.startedServers().first() && m_list.server()->delegate() == &m_list && !m_list.startedServers().at(1)->delegate());
    ASSERT_TRUE(waitFor([&] { return m_list.rowCount() == 1 && m_list.startedServers().at(1)->localService(); }));
    EXPECT_EQ(table(), "Peer|eth0: 10.0.0.9|5201");
    m_list.stopBonjourPublishing(); // "stopBonjour" withdraws the first service only
    EXPECT_TRUE(!m_list.startedServers().at(0)->isPublished() && m_list.startedServers().at(1)->isPublished());
    EXPECT_EQ(m_list.services().size(), 1) << "our second interface's service is filtered as our own";

    m_list.startBonjourServers({interface("10.0.0.1", "Ethernet")}); // one interface: no " (Primary)"; the peer list starts again
    EXPECT_TRUE(m_list.servicesName() == QStringList{machine + ",5202,10_0_0_1,Ethernet"} && m_list.services().isEmpty());
    ASSERT_TRUE(waitFor([&] { return m_list.services().size() == 1 && m_list.rowCount() == 1; }));
    add({"Other,5201,10_0_0_2,eth0", m_list.servicesName().first()}); // our own name closing a batch still shows the peer before it
    ASSERT_TRUE(waitFor([&] { return m_list.rowCount() == 2; }));
    EXPECT_EQ(table(), "Peer|eth0: 10.0.0.9|5201;Other|eth0: 10.0.0.2|5201");
    m_list.stopBonjor();
    EXPECT_TRUE(m_list.startedServers().isEmpty() && m_list.servicesName().isEmpty() && m_list.services().isEmpty() && !m_list.server());
}

// Without the daemon the list says so in a line, and publishes by itself once the daemon is back.
TEST_F(ServerDiscoveryListTest, SaysWhenDiscoveryIsUnavailableAndComesBackByItself)
{
    REQUIRE_AVAHI_SANDBOX();
    sandbox->stopAvahi();
    auto info = std::make_shared<PIFCInterfaceInfo>();
    info->IPAdress = "10.0.0.1", info->displayName = "Ethernet";
    m_list.startBonjourServers({info});
    EXPECT_EQ(m_list.unavailable(), "Discovery is unavailable: avahi-daemon is not running. Servers on the network will be listed here once it runs.");
    ASSERT_TRUE(sandbox->startAvahi());
    ASSERT_TRUE(waitFor([&] { return m_list.unavailable().isEmpty() && m_list.server() && m_list.server()->localService(); }));
}

// This thread as a machine of another name: a UTS namespace with the host name and an /etc/machine-info of its own (an
// overlay on /etc in a mount namespace of its own). Back home when it goes.
class MachineIdentity
{
public:
    MachineIdentity(const char *hostName, const QByteArray &machineInfo)
    {
        const QString upper = m_dir.filePath("upper"), work = m_dir.filePath("work");
        ok = ::unshare(CLONE_NEWUTS | CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
            && ::sethostname(hostName, strlen(hostName)) == 0 && ::mount("tw", m_dir.path().toUtf8(), "tmpfs", 0, nullptr) == 0
            && QDir().mkdir(upper) && QDir().mkdir(work);
        QFile file(upper + "/machine-info");
        ok = ok && file.open(QIODevice::WriteOnly) && file.write(machineInfo) == machineInfo.size() && (file.close(), true)
            && ::mount("tw", "/etc", "overlay", 0, ("lowerdir=/etc,upperdir=" + upper + ",workdir=" + work).toUtf8()) == 0;
    }
    ~MachineIdentity() { ::setns(m_home[1], CLONE_NEWNS), ::setns(m_home[0], CLONE_NEWUTS), ::close(m_home[0]), ::close(m_home[1]); }
    bool ok = false;

private:
    const int m_home[2] = {::open("/proc/thread-self/ns/uts", O_RDONLY | O_CLOEXEC), ::open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC)};
    QTemporaryDir m_dir;
};

// Any machine name is published, cut to DNS-SD's 63 bytes (never inside a character; port, address and interface whole),
// as avahi-browse sees it; and a peer published from another machine's namespace is listed.
TEST_F(ServerDiscoveryListTest, LongHostAndPrettyNamesArePublishedAndPeersListed)
{
    REQUIRE_AVAHI_SANDBOX();
    SettingsStore::standard().setObject("5202", "serverPort");
    QProcess peer;
    peer.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    peer.start("unshare", {"--uts", "sh", "-c", "hostname peer-0042 && exec avahi-publish -s Peer,5201,10_0_0_9,eth0 _TidewaveServer._tcp 5201"});
    const std::pair<QByteArray, QString> machines[] = {
        {"CHASSIS=server\n", "build-agent-0042_performance-lab_example,5202,10_0_0_1,Ethernet"},
        {"PRETTY_HOSTNAME='Salle de mesure Wi-Fi \u2014 \u00e9tage trois \u2014 bureau \u00d8rsted c\u00f4t\u00e9 sud'\n", // 60 characters, 68 bytes
         "Salle de mesure Wi-Fi \u2014 \u00e9tage trois,5202,10_0_0_1,Ethernet"}};
    for (const auto &[machineInfo, published] : machines) {
        const MachineIdentity identity("build-agent-0042.performance-lab.example.com", machineInfo);
        ASSERT_TRUE(identity.ok) << strerror(errno);
        auto info = std::make_shared<PIFCInterfaceInfo>();
        info->IPAdress = "10.0.0.1", info->displayName = "Ethernet";
        m_list.startBonjourServers({info});
        EXPECT_EQ(m_list.servicesName(), QStringList{published});
        ASSERT_TRUE(waitFor([&] { return m_list.server()->localService() && table() == "Peer|eth0: 10.0.0.9|5201"; })) << table().toStdString();
        QProcess browse;
        browse.start("avahi-browse", {"-p", "-t", "_TidewaveServer._tcp"});
        ASSERT_TRUE(browse.waitForFinished(10000));
        const QByteArray raw = browse.readAllStandardOutput();
        QByteArray decoded; // parsable output writes "\DDD" for a byte
        for (qsizetype i = 0; i < raw.size(); ++i) {
            const bool escaped = raw[i] == '\\' && i + 3 < raw.size();
            decoded += escaped ? char(raw.mid(i + 1, 3).toInt()) : raw[i];
            i += escaped ? 3 : 0;
        }
        EXPECT_TRUE(QString::fromUtf8(decoded).contains(";" + published + ";_TidewaveServer._tcp;local")) << decoded.toStdString();
        m_list.stopBonjor();
    }
    peer.kill(), peer.waitForFinished();
}

} // namespace
