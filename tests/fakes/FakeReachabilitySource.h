#pragma once

#include "network/ReachabilitySource.h"

#include <memory>
#include <mutex>

// The test's handle on a FakeReachabilitySource, kept after the source itself
// has been handed to a Reachability (or to ReachabilityCheck::checkReachability).
class FakeReachabilityControl
{
public:
    // Sets the flags; while started, reports them to the monitor at once, on
    // the calling thread, when they differ from the last ones reported.
    void setFlags(ReachabilityFlags flags)
    {
        ReachabilitySource::ChangeHandler handler;
        {
            std::lock_guard lock(m_mutex);
            const bool changed = flags != m_flags;
            m_flags = flags;
            if (!m_started || !changed)
                return;
            handler = m_handler;
        }
        handler(flags);
    }
    // Whether start() is refused.
    void setRefuseStart(bool refuse)
    {
        std::lock_guard lock(m_mutex);
        m_refuseStart = refuse;
    }
    bool started() const
    {
        std::lock_guard lock(m_mutex);
        return m_started;
    }

private:
    friend class FakeReachabilitySource;
    mutable std::mutex m_mutex;
    ReachabilitySource::ChangeHandler m_handler;
    ReachabilityFlags m_flags = 0;
    bool m_started = false;
    bool m_refuseStart = false;
};

// A reachability source the test drives through its control. Like the real
// one it reports the current flags once at start.
class FakeReachabilitySource : public ReachabilitySource
{
public:
    explicit FakeReachabilitySource(std::shared_ptr<FakeReachabilityControl> control)
        : m_control(std::move(control))
    {
    }
    ~FakeReachabilitySource() override { stop(); }

    bool start(ChangeHandler handler) override
    {
        ReachabilityFlags flags;
        {
            std::lock_guard lock(m_control->m_mutex);
            if (m_control->m_refuseStart)
                return false;
            m_control->m_handler = handler;
            m_control->m_started = true;
            flags = m_control->m_flags;
        }
        handler(flags);
        return true;
    }
    void stop() override
    {
        std::lock_guard lock(m_control->m_mutex);
        m_control->m_started = false;
        m_control->m_handler = nullptr;
    }
    ReachabilityFlags currentFlags() override
    {
        std::lock_guard lock(m_control->m_mutex);
        return m_control->m_flags;
    }

private:
    std::shared_ptr<FakeReachabilityControl> m_control;
};
