#pragma once

#include "network/NetworkInventoryProvider.h"
#include "network/RouteTable.h"

#include <QList>
#include <QString>

// One IPv4 address of an interface.
struct LinuxIpv4Address
{
    QString address;   // dotted form
    quint32 netmask = 0; // host byte order
    QString broadcast; // dotted form, empty when the link has none
};

// One interface as Linux reports it: the raw material of the three texts.
struct LinuxInterface
{
    QString name;                   // kernel interface name
    int index = 0;                  // interface index (listing order)
    unsigned flags = 0;             // IFF_* flags from getifaddrs
    int mtu = 0;                    // /sys/class/net/NAME/mtu
    int hardwareType = -1;          // ARPHRD_* from /sys/class/net/NAME/type
    QString mac;                    // "aa:bb:cc:dd:ee:ff"; empty when the link has none
    QList<LinuxIpv4Address> ipv4;   // in the order the kernel lists them
    QStringList ipv6;               // IPv6 addresses as text
    QString operstate;              // /sys/class/net/NAME/operstate
    int carrier = -1;               // /sys/class/net/NAME/carrier; -1 when unreadable
    bool hasDevice = false;         // /sys/class/net/NAME/device exists
    bool wireless = false;          // /sys/class/net/NAME/wireless or phy80211 exists
    bool tunnel = false;            // a tun or tap device (/sys/class/net/NAME/tun_flags exists)
};

// The three inventory texts built from getifaddrs, /sys/class/net and the
// routing table. /sys/class/net shows the network namespace sysfs was
// mounted in, so a process inside another namespace needs its own mount
// (as "ip netns exec" gives it).
class LinuxInventoryProvider : public NetworkInventoryProvider
{
public:
    ProviderOutput configurationListing() override;
    ProviderOutput hardwarePortListing() override;
    ProviderOutput networkProfile() override;

    // The interfaces of this system in index order; empty with the reason
    // in error when they cannot be listed.
    static QList<LinuxInterface> interfaces(QString *error);

    // The texts for given interfaces (and, for the profile, the default
    // routes and the index of the interface the kernel reaches the internet
    // through, 0 when none).
    static QString configurationListingFor(const QList<LinuxInterface> &interfaces);
    static QString hardwarePortListingFor(const QList<LinuxInterface> &interfaces);
    static QByteArray networkProfileFor(const QList<LinuxInterface> &interfaces, const QList<DefaultRoute> &routes,
                                        int primaryIndex);
};
