#pragma once

#include <optional>
#include <vector>

#include <sys/types.h>

// Round-trip times of one iperf3 client's TCP data connections, read from the
// kernel's tcp_info of its sockets (sock_diag), sampled through each report
// interval so that an interval's figure is not one moment's.
// A connection that has sent more than it received is a sending one (its
// smoothed RTT); one that has received more is a receiving one (the
// receiver's RTT estimate); an interval's figure is the median of its
// samples. The control connection, the first the client
// opens (its lowest descriptor), is left out.
class TcpInfoSampler
{
public:
    explicit TcpInfoSampler(pid_t process);
    ~TcpInfoSampler();
    TcpInfoSampler(const TcpInfoSampler &) = delete;
    TcpInfoSampler &operator=(const TcpInfoSampler &) = delete;

    // Adds one sample of every data connection.
    void sample();
    // The median RTT in ms of the sending (up) or receiving connections since
    // the last call for that direction; with no sample since, one is taken
    // now. Nothing when no such connection has a figure.
    std::optional<double> take(bool up);

private:
    std::vector<unsigned long> dataSockets() const;

    pid_t m_process;
    int m_netlink = -1;
    std::vector<double> m_samplesUs[2]; // since the last take: [0] receiving, [1] sending
};
