#include "NetworkTestSupport.h"
#include "common/TestEnvironment.h"
#include "network/GetPIFInterfaceinfo.h"
#include "network/LinuxInventoryProvider.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/socket.h>

namespace {

LinuxInterface makeInterface(const QString &name, int index, bool device, bool wireless = false)
{
    LinuxInterface interface;
    interface.name = name;
    interface.index = index;
    interface.flags = IFF_UP | IFF_BROADCAST | IFF_RUNNING | IFF_MULTICAST;
    interface.mtu = 1500;
    interface.hardwareType = ARPHRD_ETHER;
    interface.mac = QStringLiteral("02:00:00:00:00:%1").arg(index, 2, 10, QLatin1Char('0'));
    interface.operstate = QStringLiteral("up");
    interface.carrier = 1;
    interface.hasDevice = device;
    interface.wireless = wireless;
    return interface;
}

LinuxInterface loopback()
{
    LinuxInterface lo;
    lo.name = QStringLiteral("lo");
    lo.index = 1;
    lo.flags = IFF_UP | IFF_LOOPBACK | IFF_RUNNING;
    lo.mtu = 65536;
    lo.hardwareType = ARPHRD_LOOPBACK;
    lo.operstate = QStringLiteral("unknown");
    lo.ipv4 = {{QStringLiteral("127.0.0.1"), 0xff000000, QString()}};
    return lo;
}

// The listing the provider writes is read back by the parser as intended:
// last IPv4 address, MAC, status from operstate and carrier.
TEST(LinuxConfigurationListing, ParsesBackIntoTheInterfacesWithIpv4)
{
    LinuxInterface wired = makeInterface(QStringLiteral("eth0"), 2, true);
    wired.ipv4 = {{QStringLiteral("192.168.7.2"), 0xffffff00, QStringLiteral("192.168.7.255")},
                  {QStringLiteral("192.168.7.3"), 0xffffff00, QStringLiteral("192.168.7.255")}};
    wired.ipv6 = {QStringLiteral("fe80::1")};
    LinuxInterface down = makeInterface(QStringLiteral("eth1"), 3, true);
    down.operstate = QStringLiteral("down");
    down.ipv4 = {{QStringLiteral("10.3.0.1"), 0xffff0000, QString()}};
    LinuxInterface tunnel = makeInterface(QStringLiteral("tun0"), 4, false);
    tunnel.mac.clear();
    tunnel.operstate = QStringLiteral("unknown");
    tunnel.ipv4 = {{QStringLiteral("10.8.0.2"), 0xffffffff, QString()}};
    LinuxInterface ipv6Only = makeInterface(QStringLiteral("eth2"), 5, true);
    ipv6Only.ipv6 = {QStringLiteral("fd00::5")};

    const QString listing = LinuxInventoryProvider::configurationListingFor({loopback(), wired, down, tunnel, ipv6Only});
    EXPECT_TRUE(listing.contains(QStringLiteral("\tinet 192.168.7.3 netmask 0xffffff00 broadcast 192.168.7.255\n")));
    const InterfaceMap map = GetPIFInterfaceinfo::parseIfconfigOutput(listing);
    ASSERT_EQ(map.keys(), (QStringList{QStringLiteral("eth0"), QStringLiteral("eth1"), QStringLiteral("tun0")}));
    EXPECT_EQ(map["eth0"]->IPAdress, QStringLiteral("192.168.7.3"));
    EXPECT_EQ(map["eth0"]->MacAdress, QStringLiteral("02:00:00:00:00:02"));
    EXPECT_EQ(map["eth0"]->status, QStringLiteral("active"));
    EXPECT_EQ(map["eth1"]->status, QStringLiteral("inactive"));
    EXPECT_EQ(map["tun0"]->MacAdress, QStringLiteral(""));
    // A link in "unknown" state counts as active only with a carrier.
    EXPECT_EQ(map["tun0"]->status, QStringLiteral("active"));
}

TEST(LinuxHardwarePorts, ListOnlyDeviceBackedInterfacesNamedByKind)
{
    const QString listing = LinuxInventoryProvider::hardwarePortListingFor(
        {loopback(), makeInterface(QStringLiteral("eth0"), 2, true), makeInterface(QStringLiteral("wlan0"), 3, true, true),
         makeInterface(QStringLiteral("veth0"), 4, false)});
    EXPECT_EQ(listing, QStringLiteral("\nHardware Port: Ethernet\nDevice: eth0\nEthernet Address: 02:00:00:00:00:02\n"
                                      "\nHardware Port: Wi-Fi\nDevice: wlan0\nEthernet Address: 02:00:00:00:00:03\n"));
}

TEST(LinuxNetworkProfile, RanksByDefaultRouteMetricThenInterfacesWithoutRoute)
{
    const LinuxInterface wired = makeInterface(QStringLiteral("eth0"), 2, true);
    const LinuxInterface wifi = makeInterface(QStringLiteral("wlan0"), 3, true, true);
    LinuxInterface vpn = makeInterface(QStringLiteral("wg0"), 4, false);
    vpn.hardwareType = ARPHRD_NONE;
    const LinuxInterface bridge = makeInterface(QStringLiteral("docker0"), 5, false);
    const LinuxInterface unplugged = makeInterface(QStringLiteral("eth1"), 6, true);
    const QList<DefaultRoute> routes = {{AF_INET, 2, 600}, {AF_INET, 3, 100}, {AF_INET6, 4, 50}, {AF_INET6, 2, 10}};

    const ProfileMap profile = GetPIFInterfaceinfo::parseSystemProfilerOutput(QString::fromUtf8(
        LinuxInventoryProvider::networkProfileFor({loopback(), wired, wifi, vpn, bridge, unplugged}, routes)));

    const auto order = [&](const char *name) {
        return profile.value(QString::fromLatin1(name)).value(QStringLiteral("spnetwork_service_order")).toLongLong();
    };
    // IPv4 default routes rank first (lowest metric primary), then IPv6-only
    // ones, then device-backed interfaces without any; other links stay out.
    EXPECT_EQ(order("wlan0"), 0);
    EXPECT_EQ(order("eth0"), 1);
    EXPECT_EQ(order("wg0"), 2);
    EXPECT_EQ(order("eth1"), 3);
    EXPECT_FALSE(profile.contains(QStringLiteral("docker0")));
    EXPECT_FALSE(profile.contains(QStringLiteral("lo")));
    EXPECT_EQ(profile.value(QStringLiteral("wlan0")).value(QStringLiteral("type")).toString(), QStringLiteral("AirPort"));
    EXPECT_EQ(profile.value(QStringLiteral("wg0")).value(QStringLiteral("type")).toString(), QStringLiteral("VPN"));
    EXPECT_EQ(profile.value(QStringLiteral("wg0")).value(QStringLiteral("_name")).toString(), QStringLiteral("wg0"));
}

// Inside a namespace of its own: one link with two IPv4 addresses and the
// default route, one with a single IPv4 address and no route, one with IPv6
// only. The probe runs under "ip netns exec", which mounts the namespace's
// own /sys.
TEST(LinuxInventory, NamespaceListsExactlyTheIpv4InterfacesPrimaryFirst)
{
    QString reason;
    const std::unique_ptr<TestNamespace> space = TestNamespace::create(QStringLiteral("inv"), &reason);
    if (!space)
        GTEST_SKIP() << "cannot create a network namespace: " << reason.toStdString();
    const QStringList setup[] = {
        {"link", "add", "tw0", "type", "veth", "peer", "name", "tw0p"},
        {"link", "add", "tw1", "type", "veth", "peer", "name", "tw1p"},
        {"link", "add", "tw6", "type", "veth", "peer", "name", "tw6p"},
        {"addr", "add", "10.201.0.1/24", "dev", "tw0"},
        {"addr", "add", "10.201.0.2/24", "dev", "tw0"},
        {"addr", "add", "10.202.0.1/24", "dev", "tw1"},
        {"addr", "add", "fd00:77::1/64", "dev", "tw6", "nodad"},
        {"link", "set", "tw0", "up"}, {"link", "set", "tw0p", "up"},
        {"link", "set", "tw1", "up"}, {"link", "set", "tw1p", "up"},
        {"link", "set", "tw6", "up"}, {"link", "set", "tw6p", "up"},
        {"route", "add", "default", "via", "10.201.0.254", "dev", "tw0"},
    };
    for (const QStringList &command : setup)
        ASSERT_TRUE(space->ip(command)) << command.join(u' ').toStdString();

    const std::optional<QString> output =
        space->exec({TestEnvironment::binDir() + QStringLiteral("/network_inventory_probe")});
    ASSERT_TRUE(output.has_value());
    QStringList lines = output->split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << output->toStdString();
    EXPECT_EQ(lines[2], QStringLiteral("addresses:10.201.0.2,10.202.0.1"));

    const QStringList primary = lines[0].split(u'|');
    EXPECT_EQ(primary.mid(0, 6), (QStringList{QStringLiteral("tw0"), QStringLiteral("10.201.0.2"), QStringLiteral("tw0"),
                                              QStringLiteral("0"), QStringLiteral("active"), QStringLiteral("Ethernet")}));
    EXPECT_EQ(primary.value(6).size(), 17) << "the veth's MAC";
    // The link without a default route has no network service: a nameless
    // interface, listed last.
    EXPECT_EQ(lines[1].section(u'|', 0, 5), QStringLiteral("tw1|10.202.0.1|VPN|500|active|(null)"));
}

} // namespace
