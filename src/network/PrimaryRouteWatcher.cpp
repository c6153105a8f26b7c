#include "network/PrimaryRouteWatcher.h"

#include "network/RouteTable.h"
#include "shell/Logger.h"
#include "shell/NotificationCenter.h"

#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
// A cable plugged in changes links, addresses and routes within a moment;
// one look-up after they settle.
constexpr int kSettleMs = 300;
} // namespace

PrimaryRouteWatcher::PrimaryRouteWatcher(QObject *parent)
    : QObject(parent)
    , m_settleTimer(new QTimer(this))
{
    m_settleTimer->setSingleShot(true);
    m_settleTimer->setInterval(kSettleMs);
    connect(m_settleTimer, &QTimer::timeout, this, &PrimaryRouteWatcher::settle);
}

PrimaryRouteWatcher::~PrimaryRouteWatcher()
{
    delete m_notifier;
    if (m_fd >= 0)
        ::close(m_fd);
}

bool PrimaryRouteWatcher::start()
{
    if (m_fd >= 0)
        return true;
    m_fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (m_fd < 0)
        return false;
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    if (::bind(m_fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0) {
        ::close(m_fd);
        m_fd = -1;
        return false;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read);
    connect(m_notifier, &QSocketNotifier::activated, this, &PrimaryRouteWatcher::drain);
    m_primary = currentPrimary();
    return true;
}

QString PrimaryRouteWatcher::currentPrimary()
{
    const std::optional<RouteAnswer> route = RouteTable::internetRoute();
    return route ? QStringLiteral("%1 %2").arg(route->interfaceIndex).arg(route->source) : QString();
}

void PrimaryRouteWatcher::drain()
{
    // The messages only wake us; what they say is asked again in settle().
    // An overrun (ENOBUFS) means changes were missed: a look-up covers it.
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (n <= 0 && !(n < 0 && (errno == ENOBUFS || errno == EINTR)))
            break;
    }
    m_settleTimer->start();
}

void PrimaryRouteWatcher::settle()
{
    const QString primary = currentPrimary();
    if (primary == m_primary)
        return;
    TW_LOG(QStringLiteral("PrimaryRouteWatcher: the internet is now reached through \"%1\" (was \"%2\")")
               .arg(primary, m_primary));
    m_primary = primary;
    NotificationCenter::defaultCenter().post(ChangedNotification, {});
}
