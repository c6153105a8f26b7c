#pragma once

#include "network/ReachabilitySource.h"

#include <QHostAddress>
#include <QList>
#include <QString>

#include <memory>
#include <optional>
#include <thread>

// Watches rtnetlink (links, IPv4/IPv6 addresses, routes) on a thread of its
// own and decides, at start and after every change, whether a route to the
// host exists: a route to one of its resolved addresses, or, while the name
// is not (yet) resolved, any default route. The name is resolved on a
// thread of its own, so a slow resolver never delays a decision: the
// routing table decides first and the resolved addresses refine it.
// The monitor works in the network namespace of the thread that starts it.
class NetlinkReachabilitySource : public ReachabilitySource
{
public:
    // Answers the host's addresses; empty when the name cannot be resolved.
    // May block; it always runs off the monitor thread.
    using Resolver = std::function<QList<QHostAddress>(const QString &host)>;

    // Without a resolver the system's (getaddrinfo) is used.
    explicit NetlinkReachabilitySource(QString host, Resolver resolver = {});
    ~NetlinkReachabilitySource() override;

    bool start(ChangeHandler handler) override;
    void stop() override;
    ReachabilityFlags currentFlags() override;

    // getaddrinfo for TCP over any family the machine has addresses for.
    static QList<QHostAddress> systemResolve(const QString &host);

    // The decision itself, on the calling thread's routing table: reachable
    // when a route exists to one of the addresses; without addresses (none
    // or an empty list), when a default route exists.
    static ReachabilityFlags decide(const std::optional<QList<QHostAddress>> &addresses);

    struct Shared;

private:
    std::shared_ptr<Shared> m_shared;
    std::thread m_thread;
};
