#include "discovery/AvahiQtPoll.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <poll.h>
#include <sys/time.h>

#include <algorithm>
#include <limits>

// A descriptor Avahi watches. The notifiers are deleted later rather than at
// once, because Avahi may free a watch from inside its own callback.
struct AvahiWatch
{
    AvahiQtPoll *poll = nullptr;
    int fd = -1;
    AvahiWatchEvent wanted{};          // events Avahi asked for
    AvahiWatchEvent happened{};        // events of the callback in progress
    AvahiWatchCallback callback = nullptr;
    void *userdata = nullptr;
    QSocketNotifier *readNotifier = nullptr;
    QSocketNotifier *writeNotifier = nullptr;

    void apply()
    {
        readNotifier->setEnabled(wanted & (AVAHI_WATCH_IN | AVAHI_WATCH_HUP | AVAHI_WATCH_ERR));
        writeNotifier->setEnabled(wanted & AVAHI_WATCH_OUT);
    }

    // Asks the kernel what really happened, so Avahi sees hang-ups and errors
    // too and never a spurious wake-up.
    void dispatch()
    {
        pollfd entry{fd, static_cast<short>(wanted), 0};
        if (::poll(&entry, 1, 0) <= 0 || entry.revents == 0)
            return;
        happened = static_cast<AvahiWatchEvent>(entry.revents);
        callback(this, fd, happened, userdata);
        // `this` may be gone here: Avahi may have freed the watch.
    }

    void release()
    {
        for (QSocketNotifier *notifier : {readNotifier, writeNotifier}) {
            notifier->setEnabled(false);
            QObject::disconnect(notifier, nullptr, nullptr, nullptr);
            notifier->deleteLater();
        }
    }
};

// A wake-up at an absolute time of day, as Avahi gives it.
struct AvahiTimeout
{
    AvahiQtPoll *poll = nullptr;
    AvahiTimeoutCallback callback = nullptr;
    void *userdata = nullptr;
    QTimer *timer = nullptr;
    bool armed = false;
    timeval deadline{};

    void arm(const timeval *tv)
    {
        if (!tv) {
            armed = false;
            timer->stop();
            return;
        }
        armed = true;
        deadline = *tv;
        timer->start(int(std::min<qint64>(millisecondsUntilDeadline(), std::numeric_limits<int>::max())));
    }

    qint64 millisecondsUntilDeadline() const
    {
        timeval now{};
        gettimeofday(&now, nullptr);
        const qint64 micros = (qint64(deadline.tv_sec) - now.tv_sec) * 1000000 + (deadline.tv_usec - now.tv_usec);
        // Round up so the callback never runs before its time.
        return micros <= 0 ? 0 : (micros + 999) / 1000;
    }

    void fire()
    {
        armed = false;
        callback(this, userdata);
        // `this` may be gone here.
    }

    void release()
    {
        timer->stop();
        QObject::disconnect(timer, nullptr, nullptr, nullptr);
        timer->deleteLater();
    }
};

AvahiQtPoll::AvahiQtPoll()
{
    m_api.userdata = this;
    m_api.watch_new = &AvahiQtPoll::watchNew;
    m_api.watch_update = &AvahiQtPoll::watchUpdate;
    m_api.watch_get_events = &AvahiQtPoll::watchGetEvents;
    m_api.watch_free = &AvahiQtPoll::watchFree;
    m_api.timeout_new = &AvahiQtPoll::timeoutNew;
    m_api.timeout_update = &AvahiQtPoll::timeoutUpdate;
    m_api.timeout_free = &AvahiQtPoll::timeoutFree;
}

AvahiQtPoll::~AvahiQtPoll()
{
    // Normally empty: the clients freed their watches. Anything left would
    // otherwise call back into a poll that no longer exists.
    for (AvahiWatch *watch : m_watches) {
        watch->release();
        delete watch;
    }
    for (AvahiTimeout *timeout : m_timeouts) {
        timeout->release();
        delete timeout;
    }
}

bool AvahiQtPoll::hasPendingWork() const
{
    for (const AvahiTimeout *timeout : m_timeouts) {
        if (timeout->armed && timeout->millisecondsUntilDeadline() == 0)
            return true;
    }
    for (const AvahiWatch *watch : m_watches) {
        if (!(watch->wanted & AVAHI_WATCH_IN))
            continue;
        pollfd entry{watch->fd, POLLIN, 0};
        if (::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLIN | POLLHUP | POLLERR)))
            return true;
    }
    return false;
}

AvahiWatch *AvahiQtPoll::watchNew(const AvahiPoll *api, int fd, AvahiWatchEvent event, AvahiWatchCallback callback,
                                  void *userdata)
{
    auto *self = static_cast<AvahiQtPoll *>(api->userdata);
    auto *watch = new AvahiWatch;
    watch->poll = self;
    watch->fd = fd;
    watch->wanted = event;
    watch->callback = callback;
    watch->userdata = userdata;
    watch->readNotifier = new QSocketNotifier(fd, QSocketNotifier::Read);
    watch->writeNotifier = new QSocketNotifier(fd, QSocketNotifier::Write);
    QObject::connect(watch->readNotifier, &QSocketNotifier::activated, watch->readNotifier,
                     [watch] { watch->dispatch(); });
    QObject::connect(watch->writeNotifier, &QSocketNotifier::activated, watch->writeNotifier,
                     [watch] { watch->dispatch(); });
    watch->apply();
    self->m_watches.insert(watch);
    return watch;
}

void AvahiQtPoll::watchUpdate(AvahiWatch *watch, AvahiWatchEvent event)
{
    watch->wanted = event;
    watch->apply();
}

AvahiWatchEvent AvahiQtPoll::watchGetEvents(AvahiWatch *watch)
{
    return watch->happened;
}

void AvahiQtPoll::watchFree(AvahiWatch *watch)
{
    watch->poll->m_watches.erase(watch);
    watch->release();
    delete watch;
}

AvahiTimeout *AvahiQtPoll::timeoutNew(const AvahiPoll *api, const struct timeval *tv, AvahiTimeoutCallback callback,
                                      void *userdata)
{
    auto *self = static_cast<AvahiQtPoll *>(api->userdata);
    auto *timeout = new AvahiTimeout;
    timeout->poll = self;
    timeout->callback = callback;
    timeout->userdata = userdata;
    timeout->timer = new QTimer;
    timeout->timer->setSingleShot(true);
    timeout->timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(timeout->timer, &QTimer::timeout, timeout->timer, [timeout] { timeout->fire(); });
    timeout->arm(tv);
    self->m_timeouts.insert(timeout);
    return timeout;
}

void AvahiQtPoll::timeoutUpdate(AvahiTimeout *timeout, const struct timeval *tv)
{
    timeout->arm(tv);
}

void AvahiQtPoll::timeoutFree(AvahiTimeout *timeout)
{
    timeout->poll->m_timeouts.erase(timeout);
    timeout->release();
    delete timeout;
}
