#include "NetworkTestSupport.h"
#include "common/TestEnvironment.h"
#include "fakes/FakeNetworkInventoryProvider.h"
#include "fakes/FakeWiFiInterface.h"
#include "network/GetPIFInterfaceinfo.h"
#include "network/LinuxInventoryProvider.h"
#include "network/MacAddress.h"
#include "network/NetlinkReachabilitySource.h"
#include "network/Nl80211Interface.h"
#include "network/Nl80211Parser.h"
#include "network/Reachability.h"
#include "network/WiFiLinkInformation.h"
#include "shell/PropertyList.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QScopeGuard>

#include <netlink/attr.h>
#include <netlink/genl/genl.h>

#include <linux/nl80211.h>
#include <net/if.h>
#include <net/if_arp.h>

using namespace std::chrono_literals;

namespace {

QString describe(const QList<PIFCInterfaceInfoPtr> &records, bool brief = true)
{
    QStringList lines;
    for (const PIFCInterfaceInfoPtr &r : records)
        lines.append(brief ? QStringList{r->BSDName, r->IPAdress, r->MacAdress, r->status}.join(u'|') : r->toString());
    return lines.join(u'\n');
}

const QString kLoopback = "lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n\tinet6 ::1 prefixlen 128\n\tinet 127.0.0.1 netmask 0xff000000\n";
const QString kEthernet = "en0: flags=8863<UP,BROADCAST,RUNNING> mtu 1500\n\tether 3c:22:fb:01:02:03 \n\tinet6 fe80::1%en0 prefixlen 64\n"
                          "\tinet 192.168.1.5 netmask 0xffffff00 broadcast 192.168.1.255\n\tstatus: active\n";
const QString kEn0 = "en0|192.168.1.5|3c:22:fb:01:02:03 |active";

TEST(InventoryParsers, ConfigurationListingKeepsInterfacesWithANonLoopbackAddress)
{
    const std::pair<QString, QString> rows[] = {
        {kLoopback + kEthernet, kEn0}, {kEthernet + kLoopback, kEn0 + "\nlo0|127.0.0.1||"}, // the last one skips the loopback test
        {kEthernet + "en1: flags=8863<UP> mtu 1500\n\tether aa:bb:cc:dd:ee:ff\n\tinet6 fe80::2%en1\n\tstatus: inactive\n", kEn0},
        {"en0: flags=1 mtu 1\n\tinet 10.0.0.1 netmask 0xff000000\n\tinet 10.0.0.2 netmask 0xff000000\n", "en0|10.0.0.2||"},
        // A bridge member line holds "flags=": the status below it is the member's.
        {"br0: flags=8863<UP> mtu 1500\n\tinet 10.1.0.1 x\n\tmember: en1 flags=3<LEARNING>\n\tstatus: active\n" + kEthernet, "br0|10.1.0.1||\n" + kEn0},
        {kLoopback + "en0: flags=1 mtu 1\n\tinet 10.0.0.1 x\nen0: flags=1 mtu 1\n\tinet 10.0.0.9 x\n", "en0|10.0.0.9||"},
        {"en0: flags=1 mtu 1\n\tether\n\tinet 10.0.0.7 x\n\tstatus: off\n", "en0|10.0.0.7||off"}};
    const LogCapture log;
    for (const auto &[listing, expected] : rows)
        EXPECT_EQ(describe(GetPIFInterfaceinfo::parseIfconfigOutput(listing).values()), expected) << listing.toStdString();
    EXPECT_EQ(log.messages(), QStringList{"Unable to load adapter list: no blank in the line \"\tether\""});
}

QString profileXml(const QList<QStringList> &items) // interface, _name, type, order
{
    QVariantList list;
    for (const QStringList &i : items)
        list.append(QVariantMap{{"interface", i[0]}, {"_name", i[1]}, {"type", i[2]}, {"spnetwork_service_order", i[3].toInt() ? QVariant(i[3].toInt()) : i[3]}});
    return QString::fromUtf8(PropertyList::toXml(QVariantList{QVariantMap{{"_items", list}}}));
}

TEST(InventoryParsers, HardwarePortsNameTheirDevicesAndTheRestTakeTheProfile)
{
    InterfaceMap config;
    for (const QString name : {"en0", "en1", "en2", "en3", "ppp0", "utun0"})
        config.insert(name, std::make_shared<PIFCInterfaceInfo>(PIFCInterfaceInfo{.BSDName = name, .IPAdress = "10.0.0.1", .MacAdress = name == "en1" ? "11:11" : "", .status = "inactive", .type = "", .displayName = {}}));
    const ProfileMap profile = GetPIFInterfaceinfo::parseSystemProfilerOutput(
        profileXml({{"en0", "Ethernet", "Ethernet", "2"}, {"ppp0", "Office VPN", "PPP", " 3rd"}, {"utun0", "Tunnel", "VPN", "-2x"}}));
    const InterfaceMap merged = GetPIFInterfaceinfo::parseNetworksetupOutput(
        "\nHardware Port: Ethernet\nDevice: en0\nEthernet Address: 00:aa\n\nHardware Port: Wi-Fi\nDevice: en1\nEthernet Address: 00:bb\n"
        "\nHardware Port: Thunderbolt 1\nDevice: en2\n" // no address: the previous block's carries over
        "\nHardware Port: USB LAN\nDevice: en3\nEthernet Address: 00:cc\nDevice:\n", // the last block fills no MAC
        config, profile);
    QStringList records;
    for (const PIFCInterfaceInfoPtr &r : merged)
        records.append(QStringList{r->BSDName, r->displayName, r->MacAdress, r->status, r->type, QString::number(r->serviceOrder)}.join(u'|'));
    EXPECT_EQ(records, (QStringList{"en0|Ethernet|00:aa|inactive|Ethernet|2", "en1|Wi-Fi|11:11|inactive||0", "en2|Thunderbolt 1|00:bb|inactive||0",
                                    "en3|USB LAN||inactive||0", "ppp0|Office VPN||active|PPP|3", "utun0|Tunnel||active|VPN|-2"}));
    EXPECT_TRUE(merged["en0"] == config["en0"] && merged["en1"]->type.isNull()) << "records merged in place; no profile item, no type";
}

FakeNetworkInventoryProvider typicalMachine()
{
    FakeNetworkInventoryProvider machine;
    machine.configuration.output = kLoopback + kEthernet + "en1: flags=8863<UP> mtu 1500\n\tether 0:1b:63:84:45:e6\n\tinet 192.168.1.20 x\n"
                                   "\tstatus: active\nutun0: flags=8051<UP> mtu 1380\n\tinet 10.8.0.2 --> 10.8.0.1\nutun1: flags=1 mtu 1\n\tinet 10.9.0.2 x\n";
    machine.hardwarePorts.output = "\nHardware Port: Ethernet\nDevice: en0\nEthernet Address: 3c:22:fb:01:02:03\n"
                                   "\nHardware Port: Wi-Fi\nDevice: en1\nEthernet Address: 00:1b:63:84:45:e6\n";
    machine.profile.output = profileXml({{"en0", "Ethernet", "Ethernet", "1"}, {"en1", "Wi-Fi", "AirPort", "0"}});
    return machine;
}

TEST(InventoryParsers, AllNetworksPrimaryFirstWiFiRenamedTunnelsCollapsedLast)
{
    FakeNetworkInventoryProvider machine = typicalMachine();
    // Both tunnels are nameless: both get order 500 and the later one keeps the slot.
    const QString typical = describe(GetPIFInterfaceinfo::getAllNetworksDetails(machine), false);
    EXPECT_EQ(typical, "BSDName=en1,DisplayName=WiFi,MAC=0:1b:63:84:45:e6,IP=192.168.1.20, Status=active,type=AirPort,serviceOrder=0\n"
                       "BSDName=en0,DisplayName=Ethernet,MAC=3c:22:fb:01:02:03 ,IP=192.168.1.5, Status=active,type=Ethernet,serviceOrder=1\n"
                       "BSDName=utun1,DisplayName=VPN,MAC=,IP=10.9.0.2, Status=active,type=(null),serviceOrder=500");
    EXPECT_EQ(GetPIFInterfaceinfo::getListOfNetworksDetails(machine), (QStringList{"192.168.1.5", "192.168.1.20", "10.8.0.2", "10.9.0.2"}));
    const LogCapture log;
    machine.profile.output = "not a property list"; // no orders: both ports are 0 and share one slot
    EXPECT_EQ(describe(GetPIFInterfaceinfo::getAllNetworksDetails(machine)), "en1|192.168.1.20|0:1b:63:84:45:e6|active\nutun1|10.9.0.2||active");
    machine.hardwarePorts = {QString(), "no ports today"}; // every interface takes its profile's (missing) name
    EXPECT_EQ(describe(GetPIFInterfaceinfo::getAllNetworksDetails(machine)), "utun1|10.9.0.2||active");
    EXPECT_EQ(log.messages(), (QStringList{"Error: the network profile is not a valid property list", "Error: the network profile is not a valid property list", "error is no ports today"}));

    const auto previous = GetPIFInterfaceinfo::setProvider(std::make_shared<FakeNetworkInventoryProvider>(typicalMachine()));
    EXPECT_EQ(describe(GetPIFInterfaceinfo::getAllNetworksDetails(), false), typical);
    GetPIFInterfaceinfo::setProvider(previous);
}

QStringList sorted(const std::optional<QList<DefaultRoute>> &routes)
{
    QStringList texts;
    for (const DefaultRoute &route : routes.value_or(QList<DefaultRoute>{}))
        texts.append(QStringLiteral("%1:%2:%3").arg(route.family == AF_INET ? 4 : 6).arg(route.interfaceIndex).arg(route.metric));
    return texts.sort(), texts;
}

// A veth pair, an ifb and a tun link with addresses and default routes of every kind: the routes, the listing and
// the inventory as the kernel (and the namespace's own /sys) shows them, and the rtnetlink monitor watching it all. The
// monitor's resolver is the test's (the public host is never looked up): it finds nothing first, later 198.51.100.7.
TEST(LinuxInventory, NamespaceAsTheKernelAndTheMonitorReportIt)
{
    const TestNamespace space("inv");
    if (!space.created)
        GTEST_SKIP() << "cannot create network namespace " << space.name.toStdString() << " (needs root)";
    ASSERT_TRUE(space.run({"ip", "netns", "exec", space.name, "sysctl", "-qw", "net.ipv6.conf.default.addr_gen_mode=1"})); // no link-local addresses
    ASSERT_EQ(space.ip("link add tw0 address 02:10:20:30:40:01 type veth peer name tw0p address 02:00:00:00:00:02;"
                       "link add tw4 address 02:00:00:00:00:04 type ifb; tuntap add dev tw5 mode tun; addr add 10.201.0.1/24 brd + dev tw0;"
                       "addr add 10.201.0.2/24 dev tw0 label tw0:1; addr add fd00:77::1/64 dev tw0 nodad; addr add 10.202.0.1/24 dev tw0p;"
                       "addr add 10.204.0.1/16 dev tw4; addr add 10.205.0.1 peer 10.205.0.2 dev tw5; link set tw0 up; link set tw0p up;"
                       "link set tw5 up; link set tw4 mtu 1400 promisc on allmulticast on up; link add twbr address 02:00:00:00:00:06 type bridge;"
                       "addr add 10.206.0.1/24 dev twbr; link set twbr up"),
              "");
    std::atomic<int> lookUps{0};
    const auto monitor = Reachability::reachabilityWithSource(std::make_unique<NetlinkReachabilitySource>("watched.test", [&](const QString &host) {
        return lookUps++ == 0 || host != "watched.test" ? QList<QHostAddress>{} : QList<QHostAddress>{QHostAddress("198.51.100.7")};
    }));
    std::mutex mutex;
    QList<bool> reports;
    const auto record = [&](Reachability *r) {
        const std::lock_guard lock(mutex);
        if ((reports << r->isReachable()).size() == 4)
            r->stopNotifier(); // from the monitor's own thread: it ends after this call
    };
    monitor->setReachableBlock(record), monitor->setUnreachableBlock(record);
    const auto stop = qScopeGuard([&] { monitor->stopNotifier(); }); // a running monitor keeps itself alive
    const auto reported = [&](const QList<bool> &expected) {
        return TestEnvironment::waitUntil([&] { const std::lock_guard lock(mutex); return reports == expected; }, 5s);
    };
    int tw0 = 0, tw4 = 0, tw5 = 0;
    ASSERT_TRUE(space.runInside([&] {
        tw0 = int(::if_nametoindex("tw0")), tw4 = int(::if_nametoindex("tw4")), tw5 = int(::if_nametoindex("tw5"));
        EXPECT_EQ(sorted(RouteTable::defaultRoutes()), QStringList{});
        EXPECT_EQ(NetlinkReachabilitySource::decide(std::nullopt) | NetlinkReachabilitySource::decide(QList<QHostAddress>{}), 0u);
        EXPECT_TRUE(RouteTable::routeExistsTo(QHostAddress("10.201.0.9")) && RouteTable::routeExistsTo(QHostAddress("::1"))
                    && RouteTable::routeExistsTo(QHostAddress("fd00:77::9")) && !RouteTable::routeExistsTo(QHostAddress("198.51.100.1"))
                    && !RouteTable::routeExistsTo(QHostAddress("2001:db8::1")) && !RouteTable::routeExistsTo(QHostAddress()));
        EXPECT_TRUE(monitor->startNotifier());
    }));
    ASSERT_TRUE(reported({false})) << "no route yet";
    ASSERT_EQ(space.ip("route add default via 10.201.0.254 dev tw0 metric 600; route add default dev tw4 metric 100;"
                       "route add table 101 blackhole default; route add table 100 default metric 700 nexthop via 10.201.0.254 dev tw0 nexthop dev tw4;"
                       "route add table 100 default dev twbr metric 10;"
                       "route add 10.209.0.0/16 via 10.201.0.254; -6 route add default dev tw5 metric 50"),
              "");
    ASSERT_TRUE(reported({false, true})) << "unresolved: a default route decides";
    ASSERT_TRUE(space.runInside([&] {
        EXPECT_EQ(sorted(RouteTable::defaultRoutes()),
                  sorted(QList<DefaultRoute>{{AF_INET, tw0, 600}, {AF_INET, tw4, 100}, {AF_INET, tw0, 700}, {AF_INET, tw4, 700},
                                             {AF_INET, int(::if_nametoindex("twbr")), 10}, {AF_INET6, tw5, 50}}));
        EXPECT_EQ(NetlinkReachabilitySource::decide(std::nullopt), kReachabilityFlagReachable);
        EXPECT_EQ(NetlinkReachabilitySource::decide(QList<QHostAddress>{QHostAddress("198.51.100.1")}), kReachabilityFlagReachable);
        EXPECT_EQ(NetlinkReachabilitySource::decide(QList<QHostAddress>{QHostAddress()}), 0u);
    }));
    // ifb reports "unknown" with a carrier (active); tun has no carrier (inactive); an address added without a broadcast
    // address reports itself as one. Services: tw4 (the kernel's way out, metric 100), tw0 (600), tw5 (IPv6 only), then
    // by name those without a main-table default route: tw0p, and the bridge whose default lives in table 100 only.
    QString probe;
    EXPECT_TRUE(space.run({"ip", "netns", "exec", space.name, TestEnvironment::binDir() + "/network_inventory_probe"}, &probe));
    EXPECT_EQ(probe.toStdString(),
              "lo: flags=10049<UP,LOOPBACK,RUNNING> mtu 65536\n\tinet6 ::1\n\tinet 127.0.0.1 netmask 0xff000000\n"
              "tw0p: flags=11043<UP,BROADCAST,RUNNING,MULTICAST> mtu 1500\n\tether 02:00:00:00:00:02\n\tinet 10.202.0.1 netmask 0xffffff00 broadcast 10.202.0.1\n\tstatus: active\n"
              "tw0: flags=11043<UP,BROADCAST,RUNNING,MULTICAST> mtu 1500\n\tether 02:10:20:30:40:01\n\tinet6 fd00:77::1\n"
              "\tinet 10.201.0.1 netmask 0xffffff00 broadcast 10.201.0.255\n\tinet 10.201.0.2 netmask 0xffffff00 broadcast 10.201.0.2\n\tstatus: active\n"
              "tw4: flags=103c3<UP,BROADCAST,RUNNING,NOARP,PROMISC,ALLMULTI> mtu 1400\n\tether 02:00:00:00:00:04\n\tinet 10.204.0.1 netmask 0xffff0000 broadcast 10.204.0.1\n"
              "\tstatus: active\ntw5: flags=1091<UP,POINTOPOINT,NOARP,MULTICAST> mtu 1500\n\tinet 10.205.0.1 netmask 0xffffffff\n\tstatus: inactive\n"
              "twbr: flags=1003<UP,BROADCAST,MULTICAST> mtu 1500\n\tether 02:00:00:00:00:06\n\tinet 10.206.0.1 netmask 0xffffff00 broadcast 10.206.0.1\n"
              "\tstatus: inactive\n--\n"
              "BSDName=tw4,DisplayName=tw4,MAC=02:00:00:00:00:04,IP=10.204.0.1, Status=active,type=Ethernet,serviceOrder=0\n"
              "BSDName=tw0,DisplayName=tw0,MAC=02:10:20:30:40:01,IP=10.201.0.2, Status=active,type=Ethernet,serviceOrder=1\n"
              "BSDName=tw5,DisplayName=tw5,MAC=,IP=10.205.0.1, Status=active,type=VPN,serviceOrder=2\n"
              "BSDName=tw0p,DisplayName=tw0p,MAC=02:00:00:00:00:02,IP=10.202.0.1, Status=active,type=Ethernet,serviceOrder=3\n"
              "BSDName=twbr,DisplayName=twbr,MAC=02:00:00:00:00:06,IP=10.206.0.1, Status=active,type=Ethernet,serviceOrder=4\n");
    // A lower metric on the other link moves the way out: the change is seen within 6 s.
    QProcess follow;
    follow.start("ip", {"netns", "exec", space.name, TestEnvironment::binDir() + "/network_inventory_probe", "--follow"});
    const auto stopFollowing = qScopeGuard([&] { follow.kill(), follow.waitForFinished(2000); });
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return follow.canReadLine() && follow.readLine() == "ready\n"; }, 5s));
    QElapsedTimer moved;
    moved.start();
    ASSERT_EQ(space.ip("route add default via 10.201.0.254 dev tw0 metric 50"), "");
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return follow.canReadLine() && follow.readLine() == "primary tw0\n"; }, 6s));
    EXPECT_LT(moved.elapsed(), 6000);
    ASSERT_EQ(space.ip("route del default dev tw0 metric 50"), "");
    // Resolved by now (the look-up is retried after a change): only the address's own route counts.
    ASSERT_EQ(space.ip("route del default dev tw0; route del default dev tw4"), "");
    ASSERT_TRUE(reported({false, true, false}));
    ASSERT_EQ(space.ip("route add 198.51.100.0/24 via 10.201.0.254"), "");
    ASSERT_TRUE(reported({false, true, false, true}));
    EXPECT_GE(lookUps, 2);
    EXPECT_EQ(NetlinkReachabilitySource::systemResolve("localhost").count(QHostAddress::LocalHost), 1) << "from the hosts file, once";
}

TEST(MacAddress, AddressesAndVersions)
{
    const std::pair<QString, bool> ips[] = {{"10.0.0.1", true}, {"255.255.255.255", true}, {"0.0.0.0", true}, {"256.1.1.1", false}, {"1.2.3.-4", false},
                                            {"", false}, {"10.0.0.1 ; rm -rf ~", false}, {"1.2.3.4\n", false}, {"10.0.0.1$(id)", false},
                                            {QString::fromUtf8("10.0.0.1\0;id", 12), false}, {" 10.0.0.1", false}, {"10.0.1", false},
                                            {"167772161", false}, {"1.2.3.4.5", false}, {"0x0a.0.0.1", false}, {"1.2.3.+4", false}};
    for (const auto &[text, accepted] : ips)
        EXPECT_EQ(MacAddress::isIp(text), accepted) << text.toStdString();
    EXPECT_EQ(MacAddress::convertToValidMacAddress("3c:2:fb:a:b:C") + MacAddress::convertToValidMacAddress("aa::bb") + MacAddress::convertToValidMacAddress(""),
              "3C-02-FB-0A-0B-0CAA-0-BB0");
    // "x.10" reads as x.1: callers compare versions that way.
    EXPECT_EQ(QList<float>({MacAddress::versionFromRelease("6.1.0-18-amd64"), MacAddress::versionFromRelease("10.10.1"), MacAddress::versionFromRelease("linux")}),
              QList<float>({6.1f, 10.1f, 0.0f}));
}

TEST(WiFiConversions, ChannelsModesRatesAndPower)
{
    const std::pair<int, quint64> channels[] = {
        {2411, 0}, {2412, 1}, {2437, 6}, {2472, 13}, {2484, 14}, {2485, 0}, {4909, 0}, {4910, 182}, {4980, 196}, {4981, 0}, {5149, 0}, {5150, 30},
        {5180, 36}, {5825, 165}, {5895, 179}, {5896, 0}, {5935, 2}, {5954, 0}, {5955, 1}, {7115, 233}, {7116, 0}, {58319, 0}, {58320, 1},
        {70200, 6}, {70201, 0}};
    for (const auto &[megahertz, channel] : channels)
        EXPECT_EQ(WiFiConversions::channelFromFrequency(megahertz), channel) << megahertz;
    const std::pair<int, qint64> modes[] = {{NL80211_IFTYPE_STATION, 1}, {NL80211_IFTYPE_ADHOC, 2}, {NL80211_IFTYPE_AP, 3}, {NL80211_IFTYPE_MONITOR, 0}};
    for (const auto &[type, mode] : modes)
        EXPECT_EQ(WiFiConversions::interfaceModeFromType(type), mode) << type;
    using K = TxRateInfo::Kind;
    const std::tuple<K, quint32, int, qint64> phys[] = {
        {K::None, 0, 2412, 0}, {K::EHT, 28820, 5955, 7}, {K::HE, 12010, 5180, 6}, {K::VHT, 8667, 5745, 5}, {K::HT, 1444, 2437, 4},
        {K::Legacy, 60, 4900, 1}, {K::Legacy, 60, 4899, 3}, {K::Legacy, 10, 2412, 2}, {K::Legacy, 20, 2412, 2}, {K::Legacy, 55, 2412, 2},
        {K::Legacy, 110, 2462, 2}, {K::Legacy, 540, 2437, 3}};
    for (const auto &[kind, rate, megahertz, mode] : phys)
        EXPECT_EQ(WiFiConversions::phyModeFromRate({kind, rate}, megahertz), mode) << rate << " at " << megahertz;
    for (const auto &[mbm, milliwatts] : {std::pair(2000, 100), std::pair(1500, 32), std::pair(0, 1), std::pair(-1000, 0)})
        EXPECT_EQ(WiFiConversions::milliwattsFromMbm(mbm), milliwatts) << mbm;
}

// An RSN element (48: version, group cipher, pairwise ciphers of 00:0f:ac, the key-management suites given, the
// capabilities) or a WPA element (221: the same with 00:50:f2 after its type 1, without capabilities).
QByteArray element(bool rsn, std::initializer_list<int> akms)
{
    const QByteArray oui = QByteArray::fromHex(rsn ? "000fac" : "0050f2"), version = QByteArray::fromHex("0100"), cipher = oui + char(rsn ? 4 : 2);
    QByteArray body = (rsn ? QByteArray() : oui + '\x01') + version + cipher + version + cipher + char(akms.size()) + '\0';
    for (int akm : akms)
        body += oui + char(akm);
    body += rsn ? QByteArray(2, '\0') : QByteArray();
    return char(rsn ? 48 : 221) + (char(body.size()) + body);
}
QByteArray rsn(std::initializer_list<int> akms) { return element(true, akms); }
QByteArray wpa(std::initializer_list<int> akms) { return element(false, akms); }

const QByteArray kSsid = QByteArray::fromHex("0004") + "Home";

TEST(WiFiConversions, SecurityFromElements)
{
    const qint64 unknown = WiFiConversions::kSecurityUnknown;
    const std::tuple<const char *, QByteArray, bool, qint64> rows[] = {
        {"open", kSsid, false, 0}, {"wep", kSsid, true, 1}, {"wpa", kSsid + wpa({2}), true, 2}, {"wpa/wpa2", rsn({2}) + wpa({2}), true, 3},
        {"wpa2", kSsid + rsn({2}), false, 4}, {"psk-sha256", rsn({6}), true, 4}, {"wpa2 + wpa enterprise", rsn({2}) + wpa({1}), true, 4},
        {"no capabilities", QByteArray::fromHex("30120100000fac040100000fac040100000fac02"), true, 4}, {"wpa enterprise", wpa({1}), true, 7},
        {"wpa/wpa2 enterprise", rsn({1}) + wpa({1}), true, 8}, {"wpa2 enterprise", rsn({1}), true, 9}, {"+ wpa psk", rsn({1}) + wpa({2}), true, 9},
        {"sae", rsn({8}), true, 11}, {"ft-sae", rsn({9}), true, 11}, {"ft-sae-ext", rsn({25}), true, 11}, {"transition", rsn({2, 8}), true, 13},
        {"ft-suite-b", rsn({13}), true, 12}, {"owe", rsn({18}), true, 14}, {"unknown rsn suite", rsn({99}), true, unknown}, {"unknown wpa suite", wpa({3}), true, unknown},
        {"other vendor", QByteArray::fromHex("30140100000fac040100000fac040100004096010000"), true, unknown},
        {"two pairwise ciphers", QByteArray::fromHex("30180100000fac040200000fac04000fac020100000fac020000"), true, 4},
        // Elements that end before their suite lists mean 802.1X; a truncated element is ignored.
        {"rsn without suites", QByteArray::fromHex("30060100000fac04"), true, 9}, {"rsn without akms", QByteArray::fromHex("300c0100000fac040100000fac04"), true, 9},
        {"wpa without suites", QByteArray::fromHex("dd040050f201"), true, 7}, {"wmm is not wpa", QByteArray::fromHex("dd070050f202000100"), false, 0},
        {"truncated", QByteArray::fromHex("30400100"), true, 1}};
    for (const auto &[name, elements, privacy, code] : rows)
        EXPECT_EQ(WiFiConversions::securityFromElements(elements, privacy), code) << name;
    EXPECT_EQ(WiFiConversions::ssidFromElements(kSsid + QByteArray::fromHex("0002") + "No"), QByteArray("Home"));
    EXPECT_EQ(WiFiConversions::ssidFromElements(rsn({2})), std::nullopt);
    EXPECT_TRUE(WiFiConversions::macText(QByteArray::fromHex("001b2c034d")).isNull());
}

// An nl80211 attribute: its payload (an empty one is a flag), or with a null payload the attributes nested in it.
struct Attr
{
    int type;
    QByteArray payload;
    QList<Attr> nested = {};
};
template<typename T> QByteArray raw(T value) { return QByteArray(reinterpret_cast<const char *>(&value), sizeof value); }
void put(nl_msg *m, const QList<Attr> &attributes)
{
    for (const Attr &a : attributes) {
        nlattr *nest = a.payload.isNull() ? nla_nest_start(m, a.type) : nullptr;
        nest ? (put(m, a.nested), nla_nest_end(m, nest)) : nla_put(m, a.type, int(a.payload.size()), a.payload.constData());
    }
}
// A generic-netlink message of nl80211 as the kernel sends it (built with libnl).
using Message = std::unique_ptr<nl_msg, decltype(&nlmsg_free)>;
Message message(int command, const QList<Attr> &attributes)
{
    Message m(nlmsg_alloc(), &nlmsg_free);
    genlmsg_put(m.get(), 0, 1, 0x1c, 0, NLM_F_MULTI, quint8(command), 1);
    put(m.get(), attributes);
    return m;
}

// The ten values in the order a result records them; "-" for none.
QString text(const WiFiLinkState &s)
{
    const auto orNone = [](const QString &v) { return v.isNull() ? QStringLiteral("-") : v; };
    return QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10").arg(s.interfaceMode).arg(s.security).arg(s.activePHYMode).arg(orNone(s.ssid))
        .arg(s.channelNumber).arg(orNone(s.bssid)).arg(s.transmitRate).arg(s.rssiValue).arg(s.noiseMeasurement).arg(s.transmitPower);
}

TEST(Nl80211Parser, LinkStateFromTheKernelsAnswers)
{
    // The interface's own facts (SSID, channel and power only when `full`); a BSS on 2437 MHz with privacy and -61 dBm;
    // the access point's station entry (signal, transmit-rate attributes); a survey entry with -92 dBm of noise.
    const auto interface = [](quint32 type, bool full) {
        return message(NL80211_CMD_NEW_INTERFACE, QList<Attr>{{NL80211_ATTR_IFINDEX, raw(3)}, {NL80211_ATTR_IFTYPE, raw(type)}}
                                                      + (full ? QList<Attr>{{NL80211_ATTR_SSID, "HomeNet"}, {NL80211_ATTR_WIPHY_FREQ, raw(5745)},
                                                                            {NL80211_ATTR_WIPHY_TX_POWER_LEVEL, raw(2000)}} : QList<Attr>{}));
    };
    const auto bss = [](quint32 status, const QByteArray &elements, int elementsType = NL80211_BSS_INFORMATION_ELEMENTS) {
        return message(NL80211_CMD_NEW_SCAN_RESULTS, {{NL80211_ATTR_BSS, {}, {{NL80211_BSS_BSSID, QByteArray::fromHex("001b2c034d5e")},
                       {NL80211_BSS_FREQUENCY, raw(2437)}, {NL80211_BSS_CAPABILITY, raw(quint16(0x0411))}, {elementsType, elements},
                       {NL80211_BSS_SIGNAL_MBM, raw(-6100)}, {NL80211_BSS_STATUS, raw(status)}}}});
    };
    const auto station = [](std::optional<qint8> signal, const QList<Attr> &rate) {
        return message(NL80211_CMD_NEW_STATION, {{NL80211_ATTR_STA_INFO, {}, QList<Attr>{{NL80211_STA_INFO_TX_BITRATE, {}, rate}}
                                                                             + (signal ? QList<Attr>{{NL80211_STA_INFO_SIGNAL, raw(*signal)}} : QList<Attr>{})}});
    };
    const auto survey = [](bool inUse) {
        return message(NL80211_CMD_NEW_SURVEY_RESULTS, {{NL80211_ATTR_SURVEY_INFO, {}, QList<Attr>{{NL80211_SURVEY_INFO_FREQUENCY, raw(5745)},
                       {NL80211_SURVEY_INFO_NOISE, raw(qint8(-92))}} + (inUse ? QList<Attr>{{NL80211_SURVEY_INFO_IN_USE, ""}} : QList<Attr>{})}});
    };
    const auto parsed = [](auto parse, const Message &m) { return parse(nlmsg_hdr(m.get())); };
    const auto full = parsed(Nl80211Parser::parseInterface, interface(NL80211_IFTYPE_STATION, true));
    const auto associated = parsed(Nl80211Parser::parseScanResult, bss(NL80211_BSS_STATUS_ASSOCIATED, rsn({2})));
    const auto ap = parsed(Nl80211Parser::parseStation, station(-52, {{NL80211_RATE_INFO_BITRATE, raw(quint16(1234))}, {NL80211_RATE_INFO_BITRATE32, raw(8667)},
                                                                     {NL80211_RATE_INFO_VHT_MCS, raw(qint8(9))}}));
    const auto noise = parsed(Nl80211Parser::parseSurvey, survey(true));
    ASSERT_TRUE(full && associated && ap && noise);
    EXPECT_EQ(text(Nl80211Parser::linkState(*full, associated, ap, noise)), "1 4 5 HomeNet 149 00:1b:2c:03:4d:5e 866.7 -52 -92 100");
    // An interface that says little: the BSS gives SSID (from beacon elements when there are no others), channel and
    // signal; a survey entry not in use gives no noise.
    const auto bare = parsed(Nl80211Parser::parseInterface, interface(NL80211_IFTYPE_ADHOC, false));
    const auto joined = parsed(Nl80211Parser::parseScanResult, bss(NL80211_BSS_STATUS_IBSS_JOINED, kSsid, NL80211_BSS_BEACON_IES));
    const auto quiet = parsed(Nl80211Parser::parseStation, station(std::nullopt, {{NL80211_RATE_INFO_BITRATE, raw(quint16(540))}}));
    const auto idle = parsed(Nl80211Parser::parseSurvey, survey(false));
    ASSERT_TRUE(bare && joined && quiet && idle);
    EXPECT_EQ(text(Nl80211Parser::linkState(*bare, joined, quiet, idle)), "2 1 3 Home 6 00:1b:2c:03:4d:5e 54 -61 0 0");
    EXPECT_EQ(text(Nl80211Parser::linkState(*bare, joined, std::nullopt, std::nullopt)), "2 1 0 Home 6 00:1b:2c:03:4d:5e 0 -61 0 0");
    EXPECT_FALSE(parsed(Nl80211Parser::parseScanResult, bss(NL80211_BSS_STATUS_AUTHENTICATED, rsn({2})))->associated) << "not the link";
    const auto he = parsed(Nl80211Parser::parseStation, station(-40, {{NL80211_RATE_INFO_BITRATE, raw(quint16(12010))}, {NL80211_RATE_INFO_HE_MCS, raw(qint8(7))}}));
    EXPECT_EQ(WiFiConversions::phyModeFromRate(he->txRate, 5745) + WiFiConversions::phyModeFromRate(parsed(Nl80211Parser::parseStation, station(-40, {}))->txRate, 5745), 6);
    // Messages of another command, or without their key attribute, give none.
    EXPECT_FALSE(parsed(Nl80211Parser::parseInterface, survey(true)) || parsed(Nl80211Parser::parseStation, interface(1, true))
                 || parsed(Nl80211Parser::parseSurvey, message(NL80211_CMD_NEW_SURVEY_RESULTS, {}))
                 || parsed(Nl80211Parser::parseScanResult, message(NL80211_CMD_NEW_SCAN_RESULTS, {{NL80211_ATTR_BSS, {}}}))
                 || parsed(Nl80211Parser::parseInterface, message(NL80211_CMD_NEW_INTERFACE, {{NL80211_ATTR_IFTYPE, raw(2)}})));
}

TEST(WiFiLinkInformation, StampsResultsAndNormalizesTexts)
{
    FakeWiFiInterface interface;
    interface.setLinkState({1, 4, 5, "HomeNet", 149, "0:1b:2c:3:4d:e", 866.7, -45, -92, 100});
    const auto stamped = [&] {
        auto r = std::make_shared<PerfResult>();
        EXPECT_EQ(WiFiLinkInformation::populateWiFiInterfaceInfo(r, &interface), r);
        return QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10").arg(r->opModeField).arg(r->securityModeField).arg(r->phyModeField)
            .arg(r->ssidField, r->channeField, r->bssidField).arg(r->txRateField).arg(r->rssiField).arg(r->noiseField).arg(r->txPowerField);
    };
    EXPECT_EQ(stamped(), "1 4 5 HomeNet 149 00:1B:2C:03:4D:0E 866 -45 -92 100") << "the rate is truncated";
    interface.setLinkState({});
    EXPECT_EQ(stamped(), "0 0 0  0  0 0 0 0") << "every result reads the link afresh";
    EXPECT_EQ(interface.reads(), 2);
    PerfResult untouched;
    EXPECT_TRUE(WiFiLinkInformation::populateWiFiInterfaceInfo(untouched, nullptr).ssidField.isNull());
    EXPECT_EQ(WiFiLinkInformation::normalizeMAC("a:b:c:d:e:f") + WiFiLinkInformation::normalizeMAC("aa::bb"), "0A:0B:0C:0D:0E:0FAA::BB");
    EXPECT_FALSE(WiFiLinkInformation::normalizeMAC(QString()).isNull() || WiFiLinkInformation::normalizeMAC(QString()).size());
    // The text-based reader: the topmost value of each marker (after its line's first colon), never on the first line.
    EXPECT_EQ(WiFiLinkInformation::parseAirPortOutput(" agrCtlRSSI: -51\n agrCtlNoise: -92\n lastTxRate: 867\n link auth: wpa2-psk\n BSSID: 0:1b:2c\n"
                                                      " SSID: Home\n MCS: 9\n channel: 36\n\n channel: 149,80\nnote: lastTxRate: 54\n"),
              (QMap<QString, QString>{{"agrCtlNoise:", "-92"}, {"lastTxRate:", "867"}, {"link auth:", "wpa2-psk"}, {"BSSID:", "0:1b:2c"},
                                      {"SSID:", "Home"}, {"MCS:", "9"}, {"channel:", "36"}}));
    // This machine has no radio: loopback and a missing name give no values.
    for (const QString name : {"lo", "tw-absent0"})
        EXPECT_EQ(Nl80211Interface::interfaceWithName(name)->interfaceName() + " " + text(Nl80211Interface::interfaceWithName(name)->linkState()),
                  name + " 0 0 0 - 0 - 0 0 0 0");

}

} // namespace
