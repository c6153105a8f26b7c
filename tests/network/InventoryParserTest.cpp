#include "NetworkTestSupport.h"
#include "fakes/FakeNetworkInventoryProvider.h"
#include "network/GetPIFInterfaceinfo.h"
#include "shell/PropertyList.h"

#include <gtest/gtest.h>

#include <QVariantList>

namespace {

// "name|ip|mac|status" of every record, in map order.
QStringList summary(const InterfaceMap &map)
{
    QStringList lines;
    for (const PIFCInterfaceInfoPtr &record : map)
        lines.append(QStringList{record->BSDName, record->IPAdress, record->MacAdress, record->status}.join(u'|'));
    return lines;
}

struct IfconfigCase
{
    const char *name;
    QString listing;
    QStringList expected;
};
void PrintTo(const IfconfigCase &row, std::ostream *out) { *out << row.name; }

using IfconfigParserTest = testing::TestWithParam<IfconfigCase>;

TEST_P(IfconfigParserTest, KeepsInterfacesWithANonLoopbackAddress)
{
    EXPECT_EQ(summary(GetPIFInterfaceinfo::parseIfconfigOutput(GetParam().listing)), GetParam().expected);
}

const QString kLoopback = QStringLiteral("lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n"
                                         "\tinet6 ::1 prefixlen 128\n"
                                         "\tinet 127.0.0.1 netmask 0xff000000\n");
const QString kEthernet = QStringLiteral("en0: flags=8863<UP,BROADCAST,SMART,RUNNING,SIMPLEX,MULTICAST> mtu 1500\n"
                                         "\tether 3c:22:fb:01:02:03 \n"
                                         "\tinet6 fe80::1%en0 prefixlen 64 secured scopeid 0x4\n"
                                         "\tinet 192.168.1.5 netmask 0xffffff00 broadcast 192.168.1.255\n"
                                         "\tstatus: active\n");

INSTANTIATE_TEST_SUITE_P(
    Listings, IfconfigParserTest,
    testing::Values(
        IfconfigCase{"loopback_first_is_dropped", kLoopback + kEthernet,
                     {QStringLiteral("en0|192.168.1.5|3c:22:fb:01:02:03 |active")}},
        // The final interface is stored without the loopback test.
        IfconfigCase{"loopback_last_is_kept", kEthernet + kLoopback,
                     {QStringLiteral("en0|192.168.1.5|3c:22:fb:01:02:03 |active"), QStringLiteral("lo0|127.0.0.1||")}},
        IfconfigCase{"ipv6_only_is_dropped",
                     kLoopback
                         + QStringLiteral("en1: flags=8863<UP> mtu 1500\n\tether aa:bb:cc:dd:ee:ff\n"
                                          "\tinet6 fe80::2%en1 prefixlen 64\n\tstatus: active\n"),
                     {}},
        IfconfigCase{"second_address_wins",
                     QStringLiteral("en0: flags=8863<UP> mtu 1500\n\tinet 10.0.0.1 netmask 0xff000000\n"
                                    "\tinet 10.0.0.2 netmask 0xff000000\n"),
                     {QStringLiteral("en0|10.0.0.2||")}},
        IfconfigCase{"no_status_line_gives_empty_status",
                     QStringLiteral("utun0: flags=8051<UP,POINTOPOINT,RUNNING,MULTICAST> mtu 1380\n"
                                    "\tinet 10.8.0.2 --> 10.8.0.1 netmask 0xffffffff\n"),
                     {QStringLiteral("utun0|10.8.0.2||")}},
        // A bridge member line holds "flags=", so it starts an interface of
        // its own: the status below it no longer belongs to the bridge.
        IfconfigCase{"bridge_member_starts_an_interface",
                     QStringLiteral("bridge0: flags=8863<UP> mtu 1500\n\tinet 10.1.0.1 netmask 0xffffff00\n"
                                    "\tmember: en1 flags=3<LEARNING,DISCOVER>\n\tstatus: active\n")
                         + kEthernet,
                     {QStringLiteral("bridge0|10.1.0.1||"), QStringLiteral("en0|192.168.1.5|3c:22:fb:01:02:03 |active")}},
        IfconfigCase{"same_name_later_replaces",
                     kLoopback
                         + QStringLiteral("en0: flags=1 mtu 1\n\tinet 10.0.0.1 x\nen0: flags=1 mtu 1\n\tinet 10.0.0.9 x\n"),
                     {QStringLiteral("en0|10.0.0.9||")}}),
    caseName<IfconfigCase>);

TEST(IfconfigParser, LogsALineItCannotReadAndGoesOn)
{
    const LogCapture log;
    const InterfaceMap map = GetPIFInterfaceinfo::parseIfconfigOutput(
        QStringLiteral("en0: flags=1 mtu 1\n\tether\n\tinet 10.0.0.7 netmask 0xff000000\n\tstatus: inactive\n"));
    EXPECT_EQ(summary(map), QStringList{QStringLiteral("en0|10.0.0.7||inactive")});
    EXPECT_TRUE(log.contains(QStringLiteral("Unable to load adapter list: ")));
}

QString profileXml(const QVariantList &items)
{
    QVariantMap root;
    root.insert(QStringLiteral("_items"), items);
    return QString::fromUtf8(PropertyList::toXml(QVariantList{root}));
}

QVariantMap profileItem(const QString &interface, const QString &name, const QString &type, qint64 order)
{
    return QVariantMap{{QStringLiteral("interface"), interface},
                       {QStringLiteral("_name"), name},
                       {QStringLiteral("type"), type},
                       {QStringLiteral("spnetwork_service_order"), order}};
}

InterfaceMap configuration(std::initializer_list<std::pair<const char *, const char *>> interfaces)
{
    InterfaceMap map;
    for (const auto &[name, mac] : interfaces) {
        auto record = std::make_shared<PIFCInterfaceInfo>();
        record->BSDName = QString::fromLatin1(name);
        record->IPAdress = QStringLiteral("10.0.0.%1").arg(map.size() + 1);
        record->MacAdress = QString::fromLatin1(mac);
        record->status = QStringLiteral("inactive");
        record->type = QStringLiteral("");
        map.insert(record->BSDName, record);
    }
    return map;
}

TEST(NetworksetupMerge, NamesPortsFillsMissingMacsAndCarriesTheAddressOn)
{
    const InterfaceMap config = configuration({{"en0", ""}, {"en1", "11:11:11:11:11:11"}, {"en2", ""}, {"en3", ""}});
    const QString listing = QStringLiteral("\nHardware Port: Ethernet\nDevice: en0\nEthernet Address: 00:aa:00:aa:00:aa\n"
                                           "\nHardware Port: Wi-Fi\nDevice: en1\nEthernet Address: 00:bb:00:bb:00:bb\n"
                                           // no address line: the previous block's address carries over
                                           "\nHardware Port: Thunderbolt 1\nDevice: en2\n"
                                           // the last block never fills the MAC
                                           "\nHardware Port: USB LAN\nDevice: en3\nEthernet Address: 00:cc:00:cc:00:cc\n");
    const InterfaceMap merged = GetPIFInterfaceinfo::parseNetworksetupOutput(listing, config, {});
    ASSERT_EQ(merged.size(), 4);
    EXPECT_EQ(merged["en0"]->displayName, QStringLiteral("Ethernet"));
    EXPECT_EQ(merged["en0"]->MacAdress, QStringLiteral("00:aa:00:aa:00:aa"));
    EXPECT_EQ(merged["en1"]->MacAdress, QStringLiteral("11:11:11:11:11:11")) << "a known MAC is never replaced";
    EXPECT_EQ(merged["en2"]->MacAdress, QStringLiteral("00:bb:00:bb:00:bb"));
    EXPECT_EQ(merged["en3"]->displayName, QStringLiteral("USB LAN"));
    EXPECT_EQ(merged["en3"]->MacAdress, QStringLiteral(""));
    // Merging updates the configuration map's own records.
    EXPECT_EQ(merged["en0"].get(), config["en0"].get());
}

TEST(NetworksetupMerge, InterfacesWithoutAPortTakeTheProfileAndAreForcedActive)
{
    const InterfaceMap config = configuration({{"en0", "aa"}, {"utun0", ""}, {"ppp0", ""}});
    ProfileMap profile;
    profile.insert(QStringLiteral("en0"), profileItem(QStringLiteral("en0"), QStringLiteral("Ethernet"), QStringLiteral("Ethernet"), 2));
    profile.insert(QStringLiteral("ppp0"), profileItem(QStringLiteral("ppp0"), QStringLiteral("Office VPN"), QStringLiteral("PPP"), 3));
    const InterfaceMap merged = GetPIFInterfaceinfo::parseNetworksetupOutput(
        QStringLiteral("Hardware Port: Ethernet\nDevice: en0\nEthernet Address: 00:11:22:33:44:55"), config, profile);
    ASSERT_EQ(merged.size(), 3);
    EXPECT_EQ(merged["en0"]->serviceOrder, 2);
    EXPECT_EQ(merged["en0"]->type, QStringLiteral("Ethernet"));
    EXPECT_EQ(merged["en0"]->status, QStringLiteral("inactive")) << "a hardware port keeps its listed status";
    EXPECT_EQ(merged["ppp0"]->displayName, QStringLiteral("Office VPN"));
    EXPECT_EQ(merged["ppp0"]->serviceOrder, 3);
    EXPECT_EQ(merged["ppp0"]->status, QStringLiteral("active"));
    EXPECT_TRUE(merged["utun0"]->displayName.isNull());
    EXPECT_TRUE(merged["utun0"]->type.isNull());
    EXPECT_EQ(merged["utun0"]->status, QStringLiteral("active"));
}

// A machine with Wi-Fi first in the service order, Ethernet second, two
// tunnels and the loopback, as the three texts would show it.
FakeNetworkInventoryProvider typicalMachine()
{
    FakeNetworkInventoryProvider provider;
    provider.configuration.output =
        kLoopback + kEthernet
        + QStringLiteral("en1: flags=8863<UP> mtu 1500\n\tether 0:1b:63:84:45:e6\n"
                         "\tinet 192.168.1.20 netmask 0xffffff00 broadcast 192.168.1.255\n\tstatus: active\n"
                         "utun0: flags=8051<UP,POINTOPOINT,RUNNING,MULTICAST> mtu 1380\n"
                         "\tinet 10.8.0.2 --> 10.8.0.1 netmask 0xffffffff\n"
                         "utun1: flags=8051<UP,POINTOPOINT,RUNNING,MULTICAST> mtu 1380\n"
                         "\tinet 10.9.0.2 --> 10.9.0.1 netmask 0xffffffff\n");
    provider.hardwarePorts.output = QStringLiteral("\nHardware Port: Ethernet\nDevice: en0\nEthernet Address: 3c:22:fb:01:02:03\n"
                                                   "\nHardware Port: Wi-Fi\nDevice: en1\nEthernet Address: 00:1b:63:84:45:e6\n");
    provider.profile.output =
        profileXml({profileItem(QStringLiteral("en0"), QStringLiteral("Ethernet"), QStringLiteral("Ethernet"), 1),
                    profileItem(QStringLiteral("en1"), QStringLiteral("Wi-Fi"), QStringLiteral("AirPort"), 0)});
    return provider;
}

QStringList describe(const PIFCInterfaceInfoList &list)
{
    QStringList lines;
    for (const PIFCInterfaceInfoPtr &record : list)
        lines.append(record->toString());
    return lines;
}

TEST(AllNetworksDetails, PrimaryFirstWiFiRenamedTunnelsLastAndCollapsed)
{
    FakeNetworkInventoryProvider provider = typicalMachine();
    const PIFCInterfaceInfoList list = GetPIFInterfaceinfo::getAllNetworksDetails(provider);
    ASSERT_EQ(list.size(), 3) << describe(list).join(u'\n').toStdString();
    EXPECT_EQ(list[0]->toString(), QStringLiteral("BSDName=en1,DisplayName=WiFi,MAC=0:1b:63:84:45:e6,IP=192.168.1.20, "
                                                  "Status=active,type=AirPort,serviceOrder=0"));
    EXPECT_EQ(list[1]->BSDName, QStringLiteral("en0"));
    EXPECT_EQ(list[1]->displayName, QStringLiteral("Ethernet"));
    // Both tunnels get order 500 and share one slot; the record never had a
    // type, which prints as "(null)".
    EXPECT_TRUE(list[2]->BSDName == QStringLiteral("utun0") || list[2]->BSDName == QStringLiteral("utun1"));
    EXPECT_EQ(list[2]->toString(), QStringLiteral("BSDName=%1,DisplayName=VPN,MAC=,IP=%2, Status=active,type=(null),serviceOrder=500")
                                       .arg(list[2]->BSDName, list[2]->IPAdress));

    const QStringList addresses = GetPIFInterfaceinfo::getListOfNetworksDetails(provider);
    EXPECT_EQ(QSet<QString>(addresses.begin(), addresses.end()),
              (QSet<QString>{QStringLiteral("192.168.1.5"), QStringLiteral("192.168.1.20"), QStringLiteral("10.8.0.2"),
                             QStringLiteral("10.9.0.2")}));
}

TEST(AllNetworksDetails, InvalidProfileCollapsesEqualOrdersAndIsLogged)
{
    FakeNetworkInventoryProvider provider = typicalMachine();
    provider.profile.output = QStringLiteral("not a property list");
    const LogCapture log;
    const PIFCInterfaceInfoList list = GetPIFInterfaceinfo::getAllNetworksDetails(provider);
    EXPECT_TRUE(log.contains(QStringLiteral("Error: ")));
    // Without orders both ports are 0 and share one slot; the tunnels are 500.
    ASSERT_EQ(list.size(), 2) << describe(list).join(u'\n').toStdString();
    EXPECT_EQ(list[0]->serviceOrder, 0);
    EXPECT_EQ(list[1]->serviceOrder, 500);
    EXPECT_TRUE(list[0]->type.isNull());
}

TEST(AllNetworksDetails, ProviderErrorsAreLoggedAndParsingGoesOn)
{
    FakeNetworkInventoryProvider provider = typicalMachine();
    provider.hardwarePorts = {QString(), QStringLiteral("no ports today")};
    const LogCapture log;
    const PIFCInterfaceInfoList list = GetPIFInterfaceinfo::getAllNetworksDetails(provider);
    EXPECT_TRUE(log.messages().contains(QStringLiteral("error is no ports today")));
    // Without ports every interface takes its profile's name and is active.
    ASSERT_EQ(list.size(), 3);
    EXPECT_EQ(list[0]->displayName, QStringLiteral("WiFi"));
    EXPECT_EQ(list[1]->status, QStringLiteral("active"));
}

TEST(AllNetworksDetails, ProcessWideProviderCanBeReplacedAndRestored)
{
    auto fake = std::make_shared<FakeNetworkInventoryProvider>(typicalMachine());
    const auto previous = GetPIFInterfaceinfo::setProvider(fake);
    const PIFCInterfaceInfoList list = GetPIFInterfaceinfo::getAllNetworksDetails();
    GetPIFInterfaceinfo::setProvider(previous);
    ASSERT_FALSE(list.isEmpty());
    EXPECT_EQ(list.first()->BSDName, QStringLiteral("en1"));
    EXPECT_NE(GetPIFInterfaceinfo::provider(), fake);
}

TEST(InterfaceRecord, NoneAndEmptyPrintDifferently)
{
    PIFCInterfaceInfo record;
    record.BSDName = QStringLiteral("en0");
    record.status = QStringLiteral("");
    record.serviceOrder = -3;
    EXPECT_EQ(record.toString(),
              QStringLiteral("BSDName=en0,DisplayName=(null),MAC=(null),IP=(null), Status=,type=(null),serviceOrder=-3"));
}

} // namespace
