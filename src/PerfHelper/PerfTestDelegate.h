#pragma once

#include "records/PerfResult.h"

#include <QString>

#include <memory>

// What one PerfTest run tells its owner (normally its PerfHelper). Calls
// arrive on the main thread, in the order the tool's output produced them.
//
// Every callback has an empty default body: a delegate that does not override
// one simply misses that event.
//
// A PerfTest holds its delegate without owning it. When the delegate object
// is destroyed first, the test notices (see perfTestDelegateLifetime) and
// calls nothing more. A callback may stop or even destroy the test; the test
// touches nothing of itself after noticing that.
class PerfTestDelegate
{
public:
    PerfTestDelegate() = default;
    virtual ~PerfTestDelegate() = default;
    PerfTestDelegate(const PerfTestDelegate &) = delete;
    PerfTestDelegate &operator=(const PerfTestDelegate &) = delete;

    // One interval line, or one final line reported as an interval; a fresh
    // record every time.
    virtual void reportInterval(const PerfResultPtr & /*result*/) {}

    // The test is complete; the record of the last result line handled
    // (possibly an empty record when that line had too few fields).
    virtual void testDidFinished(const PerfResultPtr & /*result*/) {}

    // The test failed: the tool's output chunk that holds "error", its
    // standard error at exit, or the no-response time-out text.
    virtual void testDidFail(const QString & /*message*/) {}

    // This computer's address as the tool's connection line gives it.
    virtual void didResolvedLocalIP(const QString & /*address*/) {}

    // Expires when this delegate is destroyed; the test checks it before
    // every call.
    std::weak_ptr<const void> perfTestDelegateLifetime() const { return m_lifetime; }

private:
    std::shared_ptr<const char> m_lifetime = std::make_shared<const char>('\0');
};
