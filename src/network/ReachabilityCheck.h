#pragma once

#include "network/Reachability.h"

#include <memory>

// The start-up wiring of the reachability monitor: logs the two states and
// announces "InternetDidBecomeAvailableOnSystemNotification" on the main
// thread whenever the watched host becomes reachable.
class ReachabilityCheck
{
public:
    // The one public host whose reachability stands for "the internet".
    static const QString kWatchedHost;
    static const QString kInternetDidBecomeAvailableOnSystemNotification;

    // Creates and starts the monitor over the given source, or over
    // rtnetlink for kWatchedHost when none is given. The running monitor
    // keeps itself alive; it is answered so a caller can stop it. None when
    // it cannot be created or started (nothing is ever posted then).
    static std::shared_ptr<Reachability> checkReachability(std::unique_ptr<ReachabilitySource> source = nullptr);
};
