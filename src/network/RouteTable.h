#pragma once

#include <QHostAddress>
#include <QList>

#include <optional>

// One default route as the kernel's routing table holds it.
struct DefaultRoute
{
    int family = 0;        // AF_INET or AF_INET6
    int interfaceIndex = 0; // outgoing interface
    quint32 metric = 0;    // route priority; lower is preferred
};

// Reads the routing table of the calling thread's network namespace over
// rtnetlink. No packet leaves the machine: these are table look-ups only.
class RouteTable
{
public:
    // Every unicast default route (IPv4 and IPv6, every table but the local
    // one), one entry per outgoing interface of multipath routes; none when
    // the table cannot be read.
    static std::optional<QList<DefaultRoute>> defaultRoutes();

    // Whether the kernel has a unicast or local route to the address (the
    // look-up "ip route get" makes).
    static bool routeExistsTo(const QHostAddress &address);
};
