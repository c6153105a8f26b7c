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
    quint32 table = 0;     // routing table (254 is the main one)
};

// What the kernel answers for one destination.
struct RouteAnswer
{
    int type = 0;           // RTN_UNICAST, RTN_LOCAL, RTN_UNREACHABLE, ...
    int interfaceIndex = 0; // outgoing interface; 0 when none
    QString source;         // the source address it would pick; "" when none
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

    // The kernel's routing decision for the address, policy rules and all;
    // none when it has no route or cannot be asked.
    static std::optional<RouteAnswer> lookUp(const QHostAddress &address);

    // The decision for an address on the internet: the interface the kernel
    // would use to reach it is the primary one. Nothing is sent.
    static std::optional<RouteAnswer> internetRoute();
};
