#pragma once

#include "records/PerfResult.h"
#include "records/iPerfServerResults.h"

#include <QString>

#include <memory>

// What a PerfServer tells its owner (normally the server tab). Every call
// arrives on the main thread, from the event loop.
//
// The two test callbacks must be implemented. The other three are optional:
// a delegate that does not override one simply misses that event.
//
// The server holds its delegate without owning it. When the delegate object
// is destroyed first, the server notices (see perfServerDelegateLifetime) and
// sends nothing more, so a late tool event after the owner is gone is harmless.
// A callback may call stop() on the server (or even delete it); nothing is
// reported after that. Output that comes before the first incoming connection
// has no test to go to: neither test callback is sent for it.
class PerfServerDelegate
{
public:
    PerfServerDelegate() = default;
    virtual ~PerfServerDelegate() = default;
    PerfServerDelegate(const PerfServerDelegate &) = delete;
    PerfServerDelegate &operator=(const PerfServerDelegate &) = delete;

    // An interval line was handled; the test in progress, which the server
    // keeps filling after this call (the same object every time until the next
    // incoming test).
    virtual void reportIntervalNew(const iPerfServerResultsPtr &test) = 0;

    // An output chunk with the final block (and without "error") was handled.
    virtual void testDidFinished(const iPerfServerResultsPtr &test) = 0;

    // Optional. The tool cannot listen because the port is in use: the tool's
    // whole output chunk. The server keeps relaunching the tool until it is
    // stopped, so the owner is expected to call stop().
    virtual void serverError(const QString & /*message*/) {}

    // Optional. Relayed from PerfServer::reportIntervals(); the parser never
    // sends it.
    virtual void reportInterval(const PerfResultList & /*results*/) {}

    // Optional. Relayed from PerfServer::testFinished(); the parser never
    // sends it.
    virtual void testDidFinishedWithServerLog(const PerfResultList & /*results*/) {}

    // Expires when this delegate is destroyed; the server checks it before
    // every call.
    std::weak_ptr<const void> perfServerDelegateLifetime() const { return m_lifetime; }

private:
    std::shared_ptr<const char> m_lifetime = std::make_shared<const char>('\0');
};
