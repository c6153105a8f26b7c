#pragma once

#include <QtGlobal>

#include <functional>

// The reachability bit set: transient connection 0x1, reachable 0x2,
// connection required 0x4.
using ReachabilityFlags = quint32;
constexpr ReachabilityFlags kReachabilityFlagTransientConnection = 0x1;
constexpr ReachabilityFlags kReachabilityFlagReachable = 0x2;
constexpr ReachabilityFlags kReachabilityFlagConnectionRequired = 0x4;

// Where a Reachability monitor's change events come from. The real source
// watches rtnetlink; the application's own end-to-end tests hand in a fake.
class ReachabilitySource
{
public:
    using ChangeHandler = std::function<void(ReachabilityFlags flags)>;

    virtual ~ReachabilitySource() = default;

    // Starts watching. The handler is called once with the flags as they
    // are, then whenever they change; calls come one at a time, from a
    // thread of the source's choosing. False when watching cannot start.
    virtual bool start(ChangeHandler handler) = 0;
    // Stops watching: no handler call begins after it returns (when called
    // from inside the handler, the current call is the last).
    virtual void stop() = 0;
    // The flags as the source last decided them (or decides now, when it
    // is not watching).
    virtual ReachabilityFlags currentFlags() = 0;
};
