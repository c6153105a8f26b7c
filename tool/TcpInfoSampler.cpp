#include "TcpInfoSampler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include <dirent.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Connections that have moved less than this either way are too young to
// tell sending from receiving (the client's cookie alone is 37 bytes).
constexpr unsigned long long kClassifiedBytes = 4096;
constexpr int kEstablished = 1; // TCP_ESTABLISHED

// Sends one dump request for established TCP sockets of a family and hands
// each answer's inode and tcp_info on.
template <typename Each>
void dump(int netlink, unsigned char family, Each &&each)
{
    struct
    {
        nlmsghdr header;
        inet_diag_req_v2 request;
    } message{};
    message.header.nlmsg_len = sizeof message;
    message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.request.sdiag_family = family;
    message.request.sdiag_protocol = IPPROTO_TCP;
    message.request.idiag_states = 1U << kEstablished;
    message.request.idiag_ext = 1U << (INET_DIAG_INFO - 1);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (sendto(netlink, &message, sizeof message, 0, reinterpret_cast<sockaddr *>(&kernel), sizeof kernel) < 0)
        return;
    alignas(nlmsghdr) char buffer[32768];
    for (;;) {
        const ssize_t n = recv(netlink, buffer, sizeof buffer, 0);
        if (n <= 0)
            return;
        auto length = static_cast<unsigned int>(n);
        for (auto *h = reinterpret_cast<nlmsghdr *>(buffer); NLMSG_OK(h, length); h = NLMSG_NEXT(h, length)) {
            if (h->nlmsg_type == NLMSG_DONE || h->nlmsg_type == NLMSG_ERROR)
                return;
            if (h->nlmsg_type != SOCK_DIAG_BY_FAMILY || h->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
                continue;
            const auto *msg = static_cast<const inet_diag_msg *>(NLMSG_DATA(h));
            auto rest = static_cast<int>(h->nlmsg_len - NLMSG_LENGTH(sizeof(inet_diag_msg)));
            for (auto *a = reinterpret_cast<rtattr *>(const_cast<inet_diag_msg *>(msg) + 1); RTA_OK(a, rest);
                 a = RTA_NEXT(a, rest)) {
                if (a->rta_type != INET_DIAG_INFO)
                    continue;
                // Older kernels give a shorter tcp_info: the rest reads 0.
                tcp_info info{};
                std::memcpy(&info, RTA_DATA(a), std::min<std::size_t>(RTA_PAYLOAD(a), sizeof info));
                each(msg->idiag_inode, info);
            }
        }
    }
}

} // namespace

TcpInfoSampler::TcpInfoSampler(pid_t process)
    : m_process(process)
    , m_netlink(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG))
{
    // A reply that never comes must not hold up the launcher's loop.
    timeval wait{0, 200000};
    if (m_netlink >= 0)
        setsockopt(m_netlink, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
}

TcpInfoSampler::~TcpInfoSampler()
{
    if (m_netlink >= 0)
        close(m_netlink);
}

std::vector<unsigned long> TcpInfoSampler::dataSockets() const
{
    const std::string folder = "/proc/" + std::to_string(m_process) + "/fd";
    std::vector<std::pair<int, unsigned long>> sockets; // descriptor, inode
    DIR *dir = opendir(folder.c_str());
    if (dir == nullptr)
        return {};
    while (const dirent *entry = readdir(dir)) {
        char target[64];
        const std::string link = folder + "/" + entry->d_name;
        const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        if (n <= 0)
            continue;
        target[n] = '\0';
        unsigned long inode = 0;
        if (std::sscanf(target, "socket:[%lu]", &inode) == 1)
            sockets.emplace_back(std::atoi(entry->d_name), inode);
    }
    closedir(dir);
    std::sort(sockets.begin(), sockets.end());
    std::vector<unsigned long> inodes;
    for (std::size_t i = 1; i < sockets.size(); ++i)
        inodes.push_back(sockets[i].second);
    return inodes;
}

void TcpInfoSampler::sample()
{
    if (m_netlink < 0)
        return;
    const std::vector<unsigned long> inodes = dataSockets();
    if (inodes.empty())
        return;
    double sumUs[2] = {0, 0};
    long count[2] = {0, 0};
    auto each = [&](unsigned long inode, const tcp_info &info) {
        if (std::find(inodes.begin(), inodes.end(), inode) == inodes.end())
            return;
        if (info.tcpi_bytes_acked > info.tcpi_bytes_received && info.tcpi_bytes_acked > kClassifiedBytes && info.tcpi_rtt > 0) {
            sumUs[1] += info.tcpi_rtt;
            ++count[1];
        } else if (info.tcpi_bytes_received > info.tcpi_bytes_acked && info.tcpi_bytes_received > kClassifiedBytes
                   && info.tcpi_rcv_rtt > 0) {
            sumUs[0] += info.tcpi_rcv_rtt;
            ++count[0];
        }
    };
    dump(m_netlink, AF_INET, each);
    dump(m_netlink, AF_INET6, each);
    for (int way = 0; way < 2; ++way) {
        if (count[way] > 0)
            m_samplesUs[way].push_back(sumUs[way] / static_cast<double>(count[way]));
    }
}

std::optional<double> TcpInfoSampler::take(bool up)
{
    std::vector<double> &samples = m_samplesUs[up ? 1 : 0];
    if (samples.empty())
        sample();
    if (samples.empty())
        return std::nullopt;
    // The median: a delayed acknowledgement or a recovery lifts the
    // smoothed RTT for a moment, not the interval's figure.
    std::nth_element(samples.begin(), samples.begin() + std::ptrdiff_t(samples.size() / 2), samples.end());
    const double ms = samples[samples.size() / 2] / 1000.0;
    samples.clear();
    return ms;
}
