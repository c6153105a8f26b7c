#include "network/NetlinkReachabilitySource.h"

#include "network/RouteTable.h"

#include <atomic>
#include <cerrno>
#include <mutex>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

// Everything the monitor thread and resolver threads touch. It outlives the
// source while a resolver is still blocked in its look-up.
struct NetlinkReachabilitySource::Shared
{
    QString host;
    Resolver resolver;
    ChangeHandler handler;
    int netlinkFd = -1; // rtnetlink socket joined to the change groups
    int wakeFd = -1;    // eventfd: stop requested or a resolution finished

    std::mutex mutex;
    std::optional<QList<QHostAddress>> addresses; // none until the first resolution ends
    bool resolving = false;

    std::atomic<bool> stopping{false};
    std::atomic<ReachabilityFlags> flags{0};

    ~Shared()
    {
        if (netlinkFd >= 0)
            ::close(netlinkFd);
        if (wakeFd >= 0)
            ::close(wakeFd);
    }

    void wake() const
    {
        const quint64 one = 1;
        [[maybe_unused]] const ssize_t n = ::write(wakeFd, &one, sizeof one);
    }
};

namespace {

using Shared = NetlinkReachabilitySource::Shared;

void startResolution(const std::shared_ptr<Shared> &shared)
{
    {
        std::lock_guard lock(shared->mutex);
        if (shared->resolving || shared->stopping)
            return;
        shared->resolving = true;
    }
    // Detached: a resolver stuck in its own time-outs must not hold up
    // stopping. It keeps the shared state alive until it returns.
    std::thread([shared] {
        QList<QHostAddress> resolved = shared->resolver(shared->host);
        {
            std::lock_guard lock(shared->mutex);
            shared->addresses = std::move(resolved);
            shared->resolving = false;
        }
        shared->wake();
    }).detach();
}

// Reads every queued change message; their content does not matter, the
// decision is made afresh from the routing table.
void drainChanges(int fd)
{
    alignas(nlmsghdr) char buffer[16384];
    for (int i = 0; i < 4096; ++i) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (n > 0 || (n < 0 && (errno == EINTR || errno == ENOBUFS)))
            continue;
        break;
    }
}

void monitor(std::shared_ptr<Shared> shared)
{
    // The name shows in ps/top and in debuggers, like a dispatch queue's label.
    ::pthread_setname_np(::pthread_self(), "tw-reachability");
    bool first = true;
    ReachabilityFlags last = 0;
    const auto evaluate = [&] {
        std::optional<QList<QHostAddress>> addresses;
        {
            std::lock_guard lock(shared->mutex);
            addresses = shared->addresses;
        }
        const ReachabilityFlags flags = NetlinkReachabilitySource::decide(addresses);
        shared->flags = flags;
        if (!first && flags == last)
            return false;
        first = false;
        last = flags;
        if (!shared->stopping)
            shared->handler(flags);
        return true;
    };

    evaluate();
    startResolution(shared);
    for (;;) {
        pollfd fds[2] = {{shared->wakeFd, POLLIN, 0}, {shared->netlinkFd, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (shared->stopping)
            break;
        if (fds[0].revents & POLLIN) {
            quint64 count = 0;
            [[maybe_unused]] const ssize_t n = ::read(shared->wakeFd, &count, sizeof count);
        }
        const bool networkChanged = fds[1].revents & (POLLIN | POLLERR);
        if (networkChanged)
            drainChanges(shared->netlinkFd);
        const bool flagsChanged = evaluate();
        if (shared->stopping)
            break;
        if (!networkChanged)
            continue;
        bool resolveAgain = flagsChanged;
        {
            std::lock_guard lock(shared->mutex);
            resolveAgain = resolveAgain || !shared->addresses || shared->addresses->isEmpty();
        }
        // A failed look-up is retried once the network changes; so is one
        // made before the network changed state.
        if (resolveAgain)
            startResolution(shared);
    }
}

} // namespace

NetlinkReachabilitySource::NetlinkReachabilitySource(QString host, Resolver resolver)
    : m_shared(std::make_shared<Shared>())
{
    m_shared->host = std::move(host);
    m_shared->resolver = resolver ? std::move(resolver) : Resolver(&NetlinkReachabilitySource::systemResolve);
}

NetlinkReachabilitySource::~NetlinkReachabilitySource()
{
    stop();
}

bool NetlinkReachabilitySource::start(ChangeHandler handler)
{
    if (m_thread.joinable())
        return false;
    // Fresh state for every start, so a stopped monitor can start again.
    auto shared = std::make_shared<Shared>();
    shared->host = m_shared->host;
    shared->resolver = m_shared->resolver;
    shared->handler = std::move(handler);

    shared->netlinkFd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (shared->netlinkFd < 0)
        return false;
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    if (::bind(shared->netlinkFd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0)
        return false;
    shared->wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (shared->wakeFd < 0)
        return false;

    m_shared = shared;
    m_thread = std::thread(monitor, shared);
    return true;
}

void NetlinkReachabilitySource::stop()
{
    if (!m_thread.joinable())
        return;
    m_shared->stopping = true;
    m_shared->wake();
    // Stopped from inside the handler: the monitor ends after this call.
    if (m_thread.get_id() == std::this_thread::get_id())
        m_thread.detach();
    else
        m_thread.join();
}

ReachabilityFlags NetlinkReachabilitySource::currentFlags()
{
    if (m_thread.joinable())
        return m_shared->flags;
    std::optional<QList<QHostAddress>> addresses;
    {
        std::lock_guard lock(m_shared->mutex);
        addresses = m_shared->addresses;
    }
    return decide(addresses);
}

ReachabilityFlags NetlinkReachabilitySource::decide(const std::optional<QList<QHostAddress>> &addresses)
{
    if (addresses && !addresses->isEmpty()) {
        for (const QHostAddress &address : *addresses) {
            if (RouteTable::routeExistsTo(address))
                return kReachabilityFlagReachable;
        }
        return 0;
    }
    const std::optional<QList<DefaultRoute>> routes = RouteTable::defaultRoutes();
    return routes && !routes->isEmpty() ? kReachabilityFlagReachable : 0;
}

QList<QHostAddress> NetlinkReachabilitySource::systemResolve(const QString &host)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo *found = nullptr;
    QList<QHostAddress> addresses;
    if (::getaddrinfo(host.toUtf8().constData(), nullptr, &hints, &found) != 0)
        return addresses;
    for (const addrinfo *entry = found; entry; entry = entry->ai_next) {
        const QHostAddress address(entry->ai_addr);
        if (!address.isNull() && !addresses.contains(address))
            addresses.append(address);
    }
    ::freeaddrinfo(found);
    return addresses;
}
