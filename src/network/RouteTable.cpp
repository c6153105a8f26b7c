#include "network/RouteTable.h"

#include <QtEndian>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// A NETLINK_ROUTE socket that closes itself; receive waits are bounded so a
// silent kernel can never hang a caller.
class RouteSocket
{
public:
    RouteSocket()
    {
        m_fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
        if (m_fd < 0)
            return;
        timeval timeout{1, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        sockaddr_nl local{};
        local.nl_family = AF_NETLINK;
        if (::bind(m_fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }
    ~RouteSocket()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    RouteSocket(const RouteSocket &) = delete;
    RouteSocket &operator=(const RouteSocket &) = delete;

    bool valid() const { return m_fd >= 0; }

    bool send(const void *request, size_t length)
    {
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        return ::sendto(m_fd, request, length, 0, reinterpret_cast<sockaddr *>(&kernel), sizeof kernel)
               == ssize_t(length);
    }

    // Calls visit for every message answering seq until the dump or the
    // single answer ends; false on an error answer or a receive failure.
    template<typename Visit>
    bool receive(quint32 seq, bool dump, Visit visit)
    {
        alignas(nlmsghdr) char buffer[32768];
        for (;;) {
            const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return false;
            }
            int remaining = int(n);
            for (auto *h = reinterpret_cast<nlmsghdr *>(buffer); NLMSG_OK(h, remaining);
                 h = NLMSG_NEXT(h, remaining)) {
                if (h->nlmsg_seq != seq)
                    continue;
                if (h->nlmsg_type == NLMSG_DONE)
                    return true;
                if (h->nlmsg_type == NLMSG_ERROR) {
                    const auto *err = static_cast<const nlmsgerr *>(NLMSG_DATA(h));
                    return err->error == 0;
                }
                visit(h);
                if (!dump)
                    return true;
            }
        }
    }

private:
    int m_fd = -1;
};

quint32 nextSequence()
{
    static std::atomic<quint32> seq{1};
    return seq++;
}

bool isDefaultUnicast(const rtmsg *rt)
{
    return rt->rtm_dst_len == 0 && rt->rtm_type == RTN_UNICAST && rt->rtm_table != RT_TABLE_LOCAL;
}

// A public address the look-up asks about: any address beyond the local
// networks takes the same decision.
const QHostAddress kInternetAddress(QStringLiteral("9.9.9.9"));

void collectDefaultRoute(const nlmsghdr *h, QList<DefaultRoute> &routes)
{
    if (h->nlmsg_type != RTM_NEWROUTE)
        return;
    const auto *rt = static_cast<const rtmsg *>(NLMSG_DATA(h));
    if (!isDefaultUnicast(rt))
        return;
    quint32 metric = 0;
    quint32 table = rt->rtm_table;
    QList<int> interfaces;
    int length = int(RTM_PAYLOAD(h));
    for (auto *a = RTM_RTA(rt); RTA_OK(a, length); a = RTA_NEXT(a, length)) {
        if (a->rta_type == RTA_PRIORITY && RTA_PAYLOAD(a) >= sizeof(quint32))
            std::memcpy(&metric, RTA_DATA(a), sizeof metric);
        else if (a->rta_type == RTA_TABLE && RTA_PAYLOAD(a) >= sizeof(quint32))
            std::memcpy(&table, RTA_DATA(a), sizeof table);
        else if (a->rta_type == RTA_OIF && RTA_PAYLOAD(a) >= sizeof(int))
            interfaces.append(*static_cast<const int *>(RTA_DATA(a)));
        else if (a->rta_type == RTA_MULTIPATH) {
            int hopsLength = int(RTA_PAYLOAD(a));
            auto *hop = static_cast<const rtnexthop *>(RTA_DATA(a));
            while (RTNH_OK(hop, hopsLength)) {
                interfaces.append(hop->rtnh_ifindex);
                hopsLength -= NLMSG_ALIGN(hop->rtnh_len);
                hop = RTNH_NEXT(hop);
            }
        }
    }
    for (int index : interfaces)
        routes.append(DefaultRoute{rt->rtm_family, index, metric, table});
}

} // namespace

std::optional<QList<DefaultRoute>> RouteTable::defaultRoutes()
{
    RouteSocket socket;
    if (!socket.valid())
        return std::nullopt;
    QList<DefaultRoute> routes;
    for (const int family : {AF_INET, AF_INET6}) {
        struct
        {
            nlmsghdr header;
            rtmsg body;
        } request{};
        request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
        request.header.nlmsg_type = RTM_GETROUTE;
        request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        request.header.nlmsg_seq = nextSequence();
        request.body.rtm_family = static_cast<unsigned char>(family);
        if (!socket.send(&request, request.header.nlmsg_len))
            return std::nullopt;
        const bool ok = socket.receive(request.header.nlmsg_seq, true,
                                       [&](const nlmsghdr *h) { collectDefaultRoute(h, routes); });
        // A kernel without IPv6 refuses the second dump; the IPv4 answer stands.
        if (!ok && family == AF_INET)
            return std::nullopt;
    }
    return routes;
}

bool RouteTable::routeExistsTo(const QHostAddress &address)
{
    const std::optional<RouteAnswer> answer = lookUp(address);
    return answer && (answer->type == RTN_UNICAST || answer->type == RTN_LOCAL);
}

std::optional<RouteAnswer> RouteTable::internetRoute()
{
    std::optional<RouteAnswer> answer = lookUp(kInternetAddress);
    if (!answer || answer->type != RTN_UNICAST || answer->interfaceIndex <= 0)
        return std::nullopt;
    return answer;
}

std::optional<RouteAnswer> RouteTable::lookUp(const QHostAddress &address)
{
    const bool v4 = address.protocol() == QAbstractSocket::IPv4Protocol;
    if (!v4 && address.protocol() != QAbstractSocket::IPv6Protocol)
        return std::nullopt;
    RouteSocket socket;
    if (!socket.valid())
        return std::nullopt;

    struct
    {
        nlmsghdr header;
        rtmsg body;
        char attributes[64];
    } request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.header.nlmsg_seq = nextSequence();
    request.body.rtm_family = v4 ? AF_INET : AF_INET6;
    request.body.rtm_dst_len = v4 ? 32 : 128;

    auto *attribute = reinterpret_cast<rtattr *>(reinterpret_cast<char *>(&request) + NLMSG_ALIGN(request.header.nlmsg_len));
    attribute->rta_type = RTA_DST;
    if (v4) {
        const quint32 ip = qToBigEndian(address.toIPv4Address());
        attribute->rta_len = RTA_LENGTH(sizeof ip);
        std::memcpy(RTA_DATA(attribute), &ip, sizeof ip);
    } else {
        const Q_IPV6ADDR ip = address.toIPv6Address();
        attribute->rta_len = RTA_LENGTH(sizeof ip);
        std::memcpy(RTA_DATA(attribute), &ip, sizeof ip);
    }
    request.header.nlmsg_len = NLMSG_ALIGN(request.header.nlmsg_len) + RTA_ALIGN(attribute->rta_len);

    if (!socket.send(&request, request.header.nlmsg_len))
        return std::nullopt;
    std::optional<RouteAnswer> answer;
    socket.receive(request.header.nlmsg_seq, false, [&](const nlmsghdr *h) {
        if (h->nlmsg_type != RTM_NEWROUTE)
            return;
        const auto *rt = static_cast<const rtmsg *>(NLMSG_DATA(h));
        RouteAnswer found;
        found.type = rt->rtm_type;
        int length = int(RTM_PAYLOAD(h));
        for (auto *a = RTM_RTA(rt); RTA_OK(a, length); a = RTA_NEXT(a, length)) {
            if (a->rta_type == RTA_OIF && RTA_PAYLOAD(a) >= sizeof(int)) {
                std::memcpy(&found.interfaceIndex, RTA_DATA(a), sizeof(int));
            } else if (a->rta_type == RTA_PREFSRC && RTA_PAYLOAD(a) == 4) {
                quint32 ip = 0;
                std::memcpy(&ip, RTA_DATA(a), sizeof ip);
                found.source = QHostAddress(qFromBigEndian(ip)).toString();
            } else if (a->rta_type == RTA_PREFSRC && RTA_PAYLOAD(a) == 16) {
                found.source = QHostAddress(static_cast<const quint8 *>(RTA_DATA(a))).toString();
            }
        }
        answer = found;
    });
    return answer;
}
