// delayline TUN MILLISECONDS: attaches to the TUN device TUN of the network
// namespace it runs in and writes every packet it reads from it back into it
// that much later. A namespace that routes what it forwards into the device
// (by input interface) thus delays every packet by a fixed time, which the
// kernels the tests run on cannot do themselves (no netem). Ends with its
// parent or on SIGTERM.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <signal.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    if (argc != 3 || prctl(PR_SET_PDEATHSIG, SIGTERM) != 0)
        return 2;
    const auto delay = std::chrono::milliseconds(std::atoi(argv[2]));
    const int tun = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
    ifreq request{};
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    std::strncpy(request.ifr_name, argv[1], IFNAMSIZ - 1);
    if (tun < 0 || ioctl(tun, TUNSETIFF, &request) != 0 || fcntl(tun, F_SETFL, O_NONBLOCK) != 0) {
        std::perror("delayline");
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    using Clock = std::chrono::steady_clock;
    struct Packet
    {
        Clock::time_point due;
        std::string bytes;
    };
    std::deque<Packet> line;
    for (;;) {
        int wait = -1;
        if (!line.empty())
            wait = std::max(0, int(std::chrono::ceil<std::chrono::milliseconds>(line.front().due - Clock::now()).count()));
        pollfd readable{tun, POLLIN, 0};
        if (wait != 0)
            poll(&readable, 1, wait);
        // A full line drops what comes, as a full queue would.
        for (char buffer[65536]; line.size() < 100000;) {
            const ssize_t n = read(tun, buffer, sizeof buffer);
            if (n <= 0)
                break;
            line.push_back({Clock::now() + delay, std::string(buffer, std::size_t(n))});
        }
        while (!line.empty() && line.front().due <= Clock::now()) {
            if (write(tun, line.front().bytes.data(), line.front().bytes.size()) < 0 && errno != EAGAIN && errno != ENOBUFS)
                return 1;
            line.pop_front();
        }
    }
}
