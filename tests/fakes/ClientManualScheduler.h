#pragma once

#include "client/DelayScheduler.h"

#include <QPointer>

#include <chrono>
#include <functional>
#include <vector>

// Delayed calls that run only when a test says so, so tests control time.
class ClientManualScheduler : public DelayScheduler
{
public:
    struct Entry
    {
        std::chrono::milliseconds delay;
        QPointer<QObject> context;
        std::function<void()> action;
        bool fired = false;
    };

    void schedule(std::chrono::milliseconds delay, QObject *context, std::function<void()> action) override
    {
        entries.push_back({delay, context, std::move(action)});
    }

    // Runs the entry at this position (scheduling order) unless it ran
    // already or its context is gone; answers whether it ran.
    bool fire(std::size_t position)
    {
        if (position >= entries.size() || entries[position].fired || !entries[position].context)
            return false;
        entries[position].fired = true;
        auto action = entries[position].action;
        action();
        return true;
    }

    std::vector<Entry> entries;
};
