#include "network/LinuxInventoryProvider.h"

#include "shell/PropertyList.h"

#include <QFile>
#include <QHash>
#include <QVariantList>
#include <QVariantMap>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include <cstdio>

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if_arp.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <unistd.h>

namespace {

// Small sysfs attribute; the file is read with plain POSIX calls because
// this runs on every inventory refresh and QFile costs more than the read.
QByteArray readSysfs(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return {};
    char buffer[128];
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    ::close(fd);
    if (n <= 0)
        return {};
    return QByteArray(buffer, n).trimmed();
}

bool sysfsExists(const QByteArray &path)
{
    return ::access(path.constData(), F_OK) == 0;
}

QString hardwareAddress(const sockaddr_ll *link)
{
    if (link->sll_halen != 6)
        return {};
    bool allZero = true;
    for (int i = 0; i < 6; ++i)
        allZero = allZero && link->sll_addr[i] == 0;
    if (allZero)
        return {};
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", link->sll_addr[0], link->sll_addr[1],
                  link->sll_addr[2], link->sll_addr[3], link->sll_addr[4], link->sll_addr[5]);
    return QString::fromLatin1(text);
}

QString ipv4Text(const sockaddr *address)
{
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, text, sizeof text);
    return QString::fromLatin1(text);
}

QString flagNames(unsigned flags)
{
    static const std::pair<unsigned, const char *> names[] = {
        {IFF_UP, "UP"},           {IFF_BROADCAST, "BROADCAST"}, {IFF_DEBUG, "DEBUG"},
        {IFF_LOOPBACK, "LOOPBACK"}, {IFF_POINTOPOINT, "POINTOPOINT"}, {IFF_RUNNING, "RUNNING"},
        {IFF_NOARP, "NOARP"},     {IFF_PROMISC, "PROMISC"},     {IFF_ALLMULTI, "ALLMULTI"},
        {IFF_MASTER, "MASTER"},   {IFF_SLAVE, "SLAVE"},         {IFF_MULTICAST, "MULTICAST"},
    };
    QStringList present;
    for (const auto &[bit, name] : names) {
        if (flags & bit)
            present.append(QLatin1String(name));
    }
    return present.join(QLatin1Char(','));
}

// "active" when the link is up, or its state is unknown (dummy, tun) and it
// reports a carrier.
bool linkActive(const LinuxInterface &interface)
{
    if (interface.operstate == QLatin1String("up"))
        return true;
    return interface.operstate == QLatin1String("unknown") && interface.carrier == 1;
}

// tun/tap, PPP and the link types without a hardware header (WireGuard,
// IP tunnels) are the VPNs; bridges and other Ethernet-framed links, with a
// device or not, are Ethernet.
QString profileType(const LinuxInterface &interface)
{
    if (interface.wireless)
        return QStringLiteral("AirPort");
    if (interface.hardwareType == ARPHRD_ETHER && !interface.tunnel)
        return QStringLiteral("Ethernet");
    return QStringLiteral("VPN");
}

} // namespace

QList<LinuxInterface> LinuxInventoryProvider::interfaces(QString *error)
{
    ifaddrs *list = nullptr;
    if (::getifaddrs(&list) != 0) {
        if (error)
            *error = QStringLiteral("getifaddrs failed: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return {};
    }

    QList<LinuxInterface> result;
    QHash<QString, qsizetype> byName;
    const auto entryFor = [&](const ifaddrs *entry) -> LinuxInterface & {
        // An address label such as "eth0:1" belongs to eth0; the listing's
        // reader would cut the name at the colon anyway.
        const QString name = QString::fromUtf8(entry->ifa_name).section(QLatin1Char(':'), 0, 0);
        auto it = byName.constFind(name);
        if (it != byName.cend())
            return result[*it];
        LinuxInterface interface;
        interface.name = name;
        interface.index = int(::if_nametoindex(name.toUtf8().constData()));
        interface.flags = entry->ifa_flags;
        byName.insert(name, result.size());
        result.append(interface);
        return result.last();
    };

    for (const ifaddrs *entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_name)
            continue;
        LinuxInterface &interface = entryFor(entry);
        if (!entry->ifa_addr)
            continue;
        switch (entry->ifa_addr->sa_family) {
        case AF_PACKET:
            interface.mac = hardwareAddress(reinterpret_cast<const sockaddr_ll *>(entry->ifa_addr));
            break;
        case AF_INET: {
            LinuxIpv4Address address;
            address.address = ipv4Text(entry->ifa_addr);
            if (entry->ifa_netmask)
                address.netmask =
                    ntohl(reinterpret_cast<const sockaddr_in *>(entry->ifa_netmask)->sin_addr.s_addr);
            if ((entry->ifa_flags & IFF_BROADCAST) && entry->ifa_broadaddr)
                address.broadcast = ipv4Text(entry->ifa_broadaddr);
            interface.ipv4.append(address);
            break;
        }
        case AF_INET6: {
            char text[INET6_ADDRSTRLEN] = {};
            ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(entry->ifa_addr)->sin6_addr, text,
                        sizeof text);
            interface.ipv6.append(QString::fromLatin1(text));
            break;
        }
        default:
            break;
        }
    }
    ::freeifaddrs(list);

    for (LinuxInterface &interface : result) {
        const QByteArray base = "/sys/class/net/" + interface.name.toUtf8() + '/';
        interface.mtu = readSysfs(base + "mtu").toInt();
        bool ok = false;
        const int type = readSysfs(base + "type").toInt(&ok);
        interface.hardwareType = ok ? type : -1;
        interface.operstate = QString::fromLatin1(readSysfs(base + "operstate"));
        const QByteArray carrier = readSysfs(base + "carrier");
        interface.carrier = carrier.isEmpty() ? -1 : carrier.toInt();
        interface.hasDevice = sysfsExists(base + "device");
        interface.wireless = sysfsExists(base + "wireless") || sysfsExists(base + "phy80211");
        interface.tunnel = sysfsExists(base + "tun_flags");
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const LinuxInterface &a, const LinuxInterface &b) { return a.index < b.index; });
    return result;
}

QString LinuxInventoryProvider::configurationListingFor(const QList<LinuxInterface> &interfaces)
{
    QString text;
    for (const LinuxInterface &interface : interfaces) {
        text += QStringLiteral("%1: flags=%2<%3> mtu %4\n")
                    .arg(interface.name, QString::number(interface.flags, 16), flagNames(interface.flags))
                    .arg(interface.mtu);
        if (!interface.mac.isEmpty())
            text += QStringLiteral("\tether %1\n").arg(interface.mac);
        for (const QString &address : interface.ipv6)
            text += QStringLiteral("\tinet6 %1\n").arg(address);
        for (const LinuxIpv4Address &address : interface.ipv4) {
            text += QStringLiteral("\tinet %1 netmask 0x%2")
                        .arg(address.address)
                        .arg(address.netmask, 8, 16, QLatin1Char('0'));
            if (!address.broadcast.isEmpty())
                text += QStringLiteral(" broadcast %1").arg(address.broadcast);
            text += QLatin1Char('\n');
        }
        if (!(interface.flags & IFF_LOOPBACK))
            text += linkActive(interface) ? QStringLiteral("\tstatus: active\n") : QStringLiteral("\tstatus: inactive\n");
    }
    return text;
}

QString LinuxInventoryProvider::hardwarePortListingFor(const QList<LinuxInterface> &interfaces)
{
    QString text;
    for (const LinuxInterface &interface : interfaces) {
        if (!interface.hasDevice)
            continue;
        text += QStringLiteral("\nHardware Port: %1\nDevice: %2\nEthernet Address: %3\n")
                    .arg(interface.wireless ? QStringLiteral("Wi-Fi") : QStringLiteral("Ethernet"), interface.name,
                         interface.mac.isEmpty() ? QStringLiteral("N/A") : interface.mac);
    }
    return text;
}

QByteArray LinuxInventoryProvider::networkProfileFor(const QList<LinuxInterface> &interfaces,
                                                     const QList<DefaultRoute> &routes, int primaryIndex)
{
    // Every interface with an IPv4 address (and every device-backed one) is
    // a network service of its own. The order: the interface the kernel
    // would reach the internet through, then those with a default route in
    // the main table by metric (IPv4 before IPv6-only), then the rest by
    // name. Default routes of other tables decide nothing by themselves:
    // only a policy rule that the kernel's decision follows makes them count.
    struct Ranked
    {
        const LinuxInterface *interface;
        int routeClass; // 0 primary, 1 IPv4 default route, 2 IPv6 only, 3 none
        quint32 metric;
    };
    QList<Ranked> services;
    for (const LinuxInterface &interface : interfaces) {
        if (interface.flags & IFF_LOOPBACK)
            continue;
        Ranked ranked{&interface, 3, 0};
        for (const DefaultRoute &route : routes) {
            if (route.interfaceIndex != interface.index || route.table != RT_TABLE_MAIN)
                continue;
            const int routeClass = route.family == AF_INET ? 1 : 2;
            if (routeClass < ranked.routeClass || (routeClass == ranked.routeClass && route.metric < ranked.metric)) {
                ranked.routeClass = routeClass;
                ranked.metric = route.metric;
            }
        }
        if (primaryIndex > 0 && interface.index == primaryIndex)
            ranked = Ranked{&interface, 0, 0};
        if (ranked.routeClass == 3 && !interface.hasDevice && interface.ipv4.isEmpty())
            continue;
        services.append(ranked);
    }
    std::stable_sort(services.begin(), services.end(), [](const Ranked &a, const Ranked &b) {
        return std::tie(a.routeClass, a.metric, a.interface->name) < std::tie(b.routeClass, b.metric, b.interface->name);
    });

    QVariantList items;
    qint64 order = 0;
    for (const Ranked &service : services) {
        const LinuxInterface &interface = *service.interface;
        QVariantMap item;
        item.insert(QStringLiteral("_name"), interface.hasDevice
                                                 ? (interface.wireless ? QStringLiteral("Wi-Fi") : QStringLiteral("Ethernet"))
                                                 : interface.name);
        item.insert(QStringLiteral("interface"), interface.name);
        item.insert(QStringLiteral("type"), profileType(interface));
        item.insert(QStringLiteral("spnetwork_service_order"), order++);
        items.append(item);
    }
    QVariantMap root;
    root.insert(QStringLiteral("_dataType"), QStringLiteral("SPNetworkDataType"));
    root.insert(QStringLiteral("_items"), items);
    return PropertyList::toXml(QVariantList{root});
}

ProviderOutput LinuxInventoryProvider::configurationListing()
{
    ProviderOutput result;
    result.output = configurationListingFor(interfaces(&result.error));
    return result;
}

ProviderOutput LinuxInventoryProvider::hardwarePortListing()
{
    ProviderOutput result;
    result.output = hardwarePortListingFor(interfaces(&result.error));
    return result;
}

ProviderOutput LinuxInventoryProvider::networkProfile()
{
    ProviderOutput result;
    const QList<LinuxInterface> list = interfaces(&result.error);
    if (!result.error.isEmpty())
        return result;
    const std::optional<QList<DefaultRoute>> routes = RouteTable::defaultRoutes();
    if (!routes)
        result.error = QStringLiteral("the routing table cannot be read");
    const std::optional<RouteAnswer> internet = RouteTable::internetRoute();
    result.output = QString::fromUtf8(
        networkProfileFor(list, routes.value_or(QList<DefaultRoute>{}), internet ? internet->interfaceIndex : 0));
    return result;
}
