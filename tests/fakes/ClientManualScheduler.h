#pragma once

#include "client/DelayScheduler.h"

#include <QList>
#include <QPointer>

// Delayed calls that run only when a test fires them, so tests control time.
class ClientManualScheduler : public DelayScheduler
{
public:
    void schedule(std::chrono::milliseconds delay, QObject *context, std::function<void()> action) override
    {
        delays << delay, calls << [context = QPointer<QObject>(context), action] { return context && (action(), true); };
    }

    QList<std::chrono::milliseconds> delays; // as asked for, in scheduling order
    QList<std::function<bool()>> calls;      // each runs its action and answers whether its context still lived
};
