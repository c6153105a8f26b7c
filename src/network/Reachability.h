#pragma once

#include "network/ReachabilitySource.h"

#include <QString>

#include <functional>
#include <memory>
#include <mutex>

// Watches whether one host can be reached and calls a handler when that
// changes. Handlers run on the source's own thread (the monitor's, for the
// real source); "kReachabilityChangedNotification" follows every change on
// the main thread, with the monitor as "object" (a void pointer).
// A started monitor keeps itself alive until stopNotifier.
class Reachability : public std::enable_shared_from_this<Reachability>
{
public:
    using Block = std::function<void(Reachability *reachability)>;

    enum NetworkStatus { NotReachable = 0, ReachableViaWWAN = 1, ReachableViaWiFi = 2 };

    static const QString kReachabilityChangedNotification;

    // A monitor of the host over rtnetlink; none for an empty host name.
    static std::shared_ptr<Reachability> reachabilityWithHostname(const QString &hostname);
    // A monitor over a source of one's own (a fake in tests); none without one.
    static std::shared_ptr<Reachability> reachabilityWithSource(std::unique_ptr<ReachabilitySource> source);

    ~Reachability();
    Reachability(const Reachability &) = delete;
    Reachability &operator=(const Reachability &) = delete;

    void setReachableBlock(Block block);
    void setUnreachableBlock(Block block);

    // Starts the source; false (and nothing kept) when it cannot start.
    bool startNotifier();
    // Stops the source; no handler starts after it returns.
    void stopNotifier();

    // Reachable bit set, and not both connection-required and transient.
    static bool isReachableWithFlags(ReachabilityFlags flags);

    bool isReachable();
    bool isReachableViaWiFi();
    NetworkStatus currentReachabilityStatus();
    // "WiFi", "Cellular" or "No Connection".
    QString currentReachabilityString();
    ReachabilityFlags reachabilityFlags();

    // Kept for callers that distinguish cellular links; nothing here sets or reads it.
    bool reachableOnWWAN = true;

private:
    explicit Reachability(std::unique_ptr<ReachabilitySource> source);
    void reachabilityChanged(ReachabilityFlags flags);

    std::unique_ptr<ReachabilitySource> reachabilityRef;  // where changes come from
    std::mutex m_blockMutex;                              // handlers are set on one thread, called on another
    Block reachableBlock;                                 // on becoming (or being found) reachable
    Block unreachableBlock;                               // on becoming unreachable
    std::shared_ptr<Reachability> reachabilityObject;     // self, while the notifier runs
};
