#pragma once

#include "common/TestEnvironment.h"
#include "network/NetworkTestSupport.h"

#include <QProcess>

#include <fcntl.h>
#include <sched.h>

// A path between two namespaces of the test's own: "near" (10.213.1.1, where the client runs) and
// "far" (10.213.2.1), routed through a third whose delay line holds every packet `delayMs`. Each
// direction may have a rate (Mbit/s, 0: none); nftables at both ends drop the given share of
// arriving TCP data segments and of UDP data datagrams (iperf3's small handshakes pass). On a delayed path the
// ends acknowledge at once (delayed ACKs, with the few segments in flight of a lossy path, would lift the RTT).
struct TestPath
{
    TestPath(const QString &tag, int delayMs, int upMbit, int downMbit, int tcpLossPercent = 0, int udpLossPercent = 0)
        : near(tag + "n"), middle(tag + "m"), far(tag + "f")
    {
        const QString id = QString::number(getpid() % 100000), a = "tpa" + id, b = "tpb" + id;
        QString failed;
        for (const auto &[end, peer] : {std::pair{&near, a}, {&far, b}})
            ready = ready && TestNamespace::run({"ip", "link", "add", peer, "netns", end->name, "type", "veth", "peer", "name", peer + "m", "netns", middle.name});
        const QString quickAck = delayMs > 0 ? " quickack 1" : "";
        failed += near.ip("addr add 10.213.1.1/24 dev " + a + ";link set " + a + " up;route add default via 10.213.1.254" + quickAck);
        failed += far.ip("addr add 10.213.2.1/24 dev " + b + ";link set " + b + " up;route add default via 10.213.2.254" + quickAck);
        // What comes in from either side goes through the delay line, and from it by destination.
        failed += middle.ip("addr add 10.213.1.254/24 dev " + a + "m;link set " + a + "m up;addr add 10.213.2.254/24 dev " + b + "m;link set " + b
                            + "m up;tuntap add dev tpd mode tun;link set tpd up;rule add iif " + a + "m lookup 100;rule add iif " + b
                            + "m lookup 100;route add default dev tpd table 100");
        ready = ready && failed.isEmpty() && inside(middle, {"sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv4.conf.all.rp_filter=0", "net.ipv4.conf.tpd.rp_filter=0"});
        // The rate (htb) lets small packets (the other direction's acknowledgements) go first, as
        // otherwise a two-way test's ACKs queue behind the other direction's data.
        for (const auto &[device, mbit] : {std::pair{b + "m", upMbit}, {a + "m", downMbit}}) {
            const QString tc = QStringLiteral("tc qdisc add dev %1 root handle 1: htb default 2;tc class add dev %1 parent 1: classid 1:9 htb rate %2mbit;"
                                              "tc class add dev %1 parent 1:9 classid 1:1 htb rate 1mbit ceil %2mbit prio 0;tc class add dev %1 parent 1:9 classid 1:2 htb rate %2mbit prio 1;"
                                              "tc filter add dev %1 parent 1: protocol ip prio 1 u32 match u16 0 0xff80 at 2 flowid 1:1").arg(device).arg(mbit);
            for (const QString &command : mbit == 0 ? QStringList() : tc.split(u';'))
                ready = ready && inside(middle, command.split(u' '));
        }
        const QString drop = QStringLiteral("add table inet loss; add chain inet loss input { type filter hook input priority 0; };"
                                            "add rule inet loss input meta l4proto tcp ip length > 200 numgen random mod 100 < %1 drop;"
                                            "add rule inet loss input meta l4proto udp udp length > 100 numgen random mod 100 < %2 drop").arg(tcpLossPercent).arg(udpLossPercent);
        ready = ready && inside(near, {"nft", drop}) && inside(far, {"nft", drop});
        delayLine.start("ip", {"netns", "exec", middle.name, TestEnvironment::binDir() + "/tidewave_delayline", "tpd", QString::number(delayMs)});
        ready = ready && delayLine.waitForReadyRead(5000);
    }
    ~TestPath() { delayLine.kill(), delayLine.waitForFinished(); }
    static bool inside(const TestNamespace &space, const QStringList &command) { return TestNamespace::run(QStringList{"ip", "netns", "exec", space.name} + command); }
    // Runs the function with this thread in the near namespace: the processes it starts are there.
    void fromNear(const std::function<void()> &function) const
    {
        const int home = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), there = ::open(("/run/netns/" + near.name).toUtf8().constData(), O_RDONLY | O_CLOEXEC);
        if (::setns(there, CLONE_NEWNET) == 0)
            function(), ::setns(home, CLONE_NEWNET);
        ::close(home), ::close(there);
    }

    const TestNamespace near, middle, far;
    bool ready = near.created && middle.created && far.created;
    QProcess delayLine;
};
