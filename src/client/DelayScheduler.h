#pragma once

#include <QObject>

#include <chrono>
#include <functional>

// Runs an action once after a delay on the main thread. The client tab's
// timers go through it so that tests can control time.
class DelayScheduler
{
public:
    virtual ~DelayScheduler() = default;

    // Schedules the action; it is dropped when the context object is
    // destroyed first. There is deliberately no way to cancel it.
    virtual void schedule(std::chrono::milliseconds delay, QObject *context, std::function<void()> action) = 0;
};

// The real one: a single-shot QTimer.
class TimerDelayScheduler : public DelayScheduler
{
public:
    void schedule(std::chrono::milliseconds delay, QObject *context, std::function<void()> action) override;
};
