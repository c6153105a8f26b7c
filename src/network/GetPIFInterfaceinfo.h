#pragma once

#include "network/NetworkInventoryProvider.h"
#include "network/PIFCInterfaceInfo.h"

#include <QMap>
#include <QStringList>
#include <QVariantMap>

#include <memory>

// BSD name → record; the records are shared, so merging updates them in place.
using InterfaceMap = QMap<QString, PIFCInterfaceInfoPtr>;
// BSD name → the network profile's item for it.
using ProfileMap = QMap<QString, QVariantMap>;

// The interface inventory: which interfaces carry an IPv4 address and which
// one is primary. Stateless: every call reads the three texts afresh. The
// texts come from the process-wide provider (the Linux one unless replaced)
// or from a provider handed in. Safe on any thread.
class GetPIFInterfaceinfo
{
public:
    // Records ascending by service order, primary first; empty when no
    // interface has a usable IPv4 address.
    static PIFCInterfaceInfoList getAllNetworksDetails();
    static PIFCInterfaceInfoList getAllNetworksDetails(NetworkInventoryProvider &provider);

    // The IPv4 address of every merged record, unsorted and unrenamed.
    static QStringList getListOfNetworksDetails();
    static QStringList getListOfNetworksDetails(NetworkInventoryProvider &provider);

    // The configuration map from the provider's configuration listing.
    static InterfaceMap executeAndParseIfconfigCommand();
    static InterfaceMap executeAndParseIfconfigCommand(NetworkInventoryProvider &provider);
    // The profile map from the provider's network profile.
    static ProfileMap executeAndParseSystemProfilerCommand();
    static ProfileMap executeAndParseSystemProfilerCommand(NetworkInventoryProvider &provider);
    // The merged map from the provider's hardware-port listing.
    static InterfaceMap executeAndParseNetworksetupCommand(const InterfaceMap &ifconfigInterfaces,
                                                           const ProfileMap &systemProfilerInterfaces);
    static InterfaceMap executeAndParseNetworksetupCommand(NetworkInventoryProvider &provider,
                                                           const InterfaceMap &ifconfigInterfaces,
                                                           const ProfileMap &systemProfilerInterfaces);

    // The parsers on their own, for texts already at hand.
    static InterfaceMap parseIfconfigOutput(const QString &output);
    static ProfileMap parseSystemProfilerOutput(const QString &output);
    static InterfaceMap parseNetworksetupOutput(const QString &output, const InterfaceMap &ifconfigInterfaces,
                                                const ProfileMap &systemProfilerInterfaces);
    // Naming ("VPN", "WiFi"), the 500 order of nameless interfaces, the
    // collapse of equal orders and the sort, applied to a merged map.
    static PIFCInterfaceInfoList orderedByServiceOrder(const InterfaceMap &merged);

    // Replaces the process-wide provider (another area's tests hand in a
    // fake inventory); nullptr restores the Linux one. Answers the previous.
    static std::shared_ptr<NetworkInventoryProvider> setProvider(std::shared_ptr<NetworkInventoryProvider> provider);
    static std::shared_ptr<NetworkInventoryProvider> provider();
};
