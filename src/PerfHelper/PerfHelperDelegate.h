#pragma once

#include "records/PerfResult.h"

#include <QString>

#include <memory>

// What a PerfHelper passes up to its owner (normally the client tab). Calls
// arrive on the main thread.
//
// Every callback has an empty default body: a delegate that does not
// override one does not answer to it and simply misses that event.
//
// A PerfHelper holds its delegate without owning it. When the delegate object
// is destroyed first, the coordinator notices (see
// perfHelperDelegateLifetime) and calls nothing more. A callback may stop the
// coordinator or drop the last reference to it.
class PerfHelperDelegate
{
public:
    PerfHelperDelegate() = default;
    virtual ~PerfHelperDelegate() = default;
    PerfHelperDelegate(const PerfHelperDelegate &) = delete;
    PerfHelperDelegate &operator=(const PerfHelperDelegate &) = delete;

    // One interval record (final lines come through here too), with
    // interfaceName stamped; null until the local address is known.
    virtual void reportIntervalResults(const PerfResultPtr & /*result*/) {}

    // The test is complete: the last record, with interfaceName stamped.
    virtual void testFinished(const PerfResultPtr & /*result*/) {}

    // The test failed: the failure text, unchanged.
    virtual void testFail(const QString & /*message*/) {}

    // Expires when this delegate is destroyed; the coordinator checks it
    // before every call.
    std::weak_ptr<const void> perfHelperDelegateLifetime() const { return m_lifetime; }

private:
    std::shared_ptr<const char> m_lifetime = std::make_shared<const char>('\0');
};
