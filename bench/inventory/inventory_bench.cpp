// Times getAllNetworksDetails over 200 calls on this machine (the server tab
// calls it on every refresh, the client tab on every run) and prints the
// median, the 95th percentile and the cost of each of the three texts.
#include "network/GetPIFInterfaceinfo.h"
#include "network/LinuxInventoryProvider.h"

#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int kCalls = 200;

struct Figures
{
    double median;
    double p95;
};

Figures time(const std::function<void()> &work)
{
    std::vector<double> ms;
    ms.reserve(kCalls);
    for (int i = 0; i < kCalls; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        ms.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(ms.begin(), ms.end());
    return {ms[ms.size() / 2], ms[size_t(ms.size() * 0.95)]};
}

} // namespace

int main()
{
    LinuxInventoryProvider provider;
    qsizetype interfaces = 0;
    const Figures all = time([&] { interfaces = GetPIFInterfaceinfo::getAllNetworksDetails().size(); });
    const Figures configuration = time([&] { provider.configurationListing(); });
    const Figures ports = time([&] { provider.hardwarePortListing(); });
    const Figures profile = time([&] { provider.networkProfile(); });

    std::printf("getAllNetworksDetails: %d calls, %lld interfaces listed\n", kCalls, static_cast<long long>(interfaces));
    std::printf("  median %.3f ms, p95 %.3f ms (target: median under 5 ms)\n", all.median, all.p95);
    std::printf("  configuration listing median %.3f ms\n", configuration.median);
    std::printf("  hardware-port listing median %.3f ms\n", ports.median);
    std::printf("  network profile       median %.3f ms\n", profile.median);
    return all.median < 5.0 ? 0 : 1;
}
