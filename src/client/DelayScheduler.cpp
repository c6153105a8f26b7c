#include "client/DelayScheduler.h"

#include <QTimer>

void TimerDelayScheduler::schedule(std::chrono::milliseconds delay, QObject *context, std::function<void()> action)
{
    QTimer::singleShot(delay, context, std::move(action));
}
