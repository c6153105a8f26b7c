#pragma once

#include "network/ReachabilitySource.h"

#include <atomic>
#include <memory>
#include <mutex>

// A reachability source the test drives: it reports the flags it was made
// with when started, and whatever report() is given later. Calls come from
// the thread that calls start() or report().
class AppFakeReachabilitySource : public ReachabilitySource
{
public:
    // Shared with the test, which keeps reporting after the monitor took
    // ownership of the source.
    struct Control
    {
        std::mutex mutex;
        ChangeHandler handler;
        ReachabilityFlags flags = 0;
        std::atomic<bool> started{false};

        void report(ReachabilityFlags newFlags)
        {
            ChangeHandler current;
            {
                std::lock_guard lock(mutex);
                flags = newFlags;
                current = handler;
            }
            if (current)
                current(newFlags);
        }
    };

    explicit AppFakeReachabilitySource(std::shared_ptr<Control> control)
        : m_control(std::move(control))
    {
    }

    bool start(ChangeHandler handler) override
    {
        ReachabilityFlags flags;
        {
            std::lock_guard lock(m_control->mutex);
            m_control->handler = handler;
            flags = m_control->flags;
        }
        m_control->started = true;
        handler(flags);
        return true;
    }

    void stop() override
    {
        std::lock_guard lock(m_control->mutex);
        m_control->handler = nullptr;
    }

    ReachabilityFlags currentFlags() override
    {
        std::lock_guard lock(m_control->mutex);
        return m_control->flags;
    }

private:
    std::shared_ptr<Control> m_control;
};
