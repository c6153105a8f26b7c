// delayline TUN MILLISECONDS: writes every packet read from the TUN device back into it that much later,
// so a namespace routing what it forwards through the device delays each packet by a fixed time (the
// test kernels have no netem). Ends with its parent.
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
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    using Clock = std::chrono::steady_clock;
    const int tun = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
    ifreq request{};
    request.ifr_flags = IFF_TUN | IFF_NO_PI;
    std::strncpy(request.ifr_name, argc == 3 ? argv[1] : "", IFNAMSIZ - 1);
    if (argc != 3 || prctl(PR_SET_PDEATHSIG, SIGTERM) != 0 || ioctl(tun, TUNSETIFF, &request) != 0 || fcntl(tun, F_SETFL, O_NONBLOCK) != 0)
        return std::perror("delayline"), 1;
    const auto delay = std::chrono::milliseconds(std::atoi(argv[2]));
    std::puts("ready"), std::fflush(stdout);
    std::deque<std::pair<Clock::time_point, std::string>> line;
    for (char buffer[65536];;) {
        pollfd readable{tun, POLLIN, 0};
        const auto wait = line.empty() ? 0 : std::max<long long>(0, std::chrono::nanoseconds(line.front().first - Clock::now()).count());
        const timespec due{time_t(wait / 1000000000), long(wait % 1000000000)};
        ppoll(&readable, 1, line.empty() ? nullptr : &due, nullptr);
        // A full line drops what comes, as a full queue would.
        for (ssize_t n; line.size() < 100000 && (n = read(tun, buffer, sizeof buffer)) > 0;)
            line.emplace_back(Clock::now() + delay, std::string(buffer, std::size_t(n)));
        for (; !line.empty() && line.front().first <= Clock::now(); line.pop_front()) {
            if (write(tun, line.front().second.data(), line.front().second.size()) < 0 && errno != EAGAIN && errno != ENOBUFS)
                return 1;
        }
    }
}
