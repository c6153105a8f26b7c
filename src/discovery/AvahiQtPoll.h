#pragma once

#include <avahi-common/watch.h>

#include <QtGlobal>

#include <memory>
#include <set>

// Avahi's main-loop abstraction served by the Qt event loop of the thread that
// creates it: file descriptors through QSocketNotifier, wake-ups through
// QTimer. Everything Avahi does then runs on that thread, without threads of
// its own. Must outlive every Avahi client made with it.
class AvahiQtPoll
{
public:
    AvahiQtPoll();
    ~AvahiQtPoll();

    AvahiQtPoll(const AvahiQtPoll &) = delete;
    AvahiQtPoll &operator=(const AvahiQtPoll &) = delete;

    // The table to hand to avahi_client_new().
    const AvahiPoll *api() const { return &m_api; }

    // Whether Avahi has work waiting right now: a wake-up that is due, or a
    // watched descriptor that is readable. Lets the browser tell whether more
    // events of a batch are still queued.
    bool hasPendingWork() const;

private:
    static AvahiWatch *watchNew(const AvahiPoll *api, int fd, AvahiWatchEvent event, AvahiWatchCallback callback,
                                void *userdata);
    static void watchUpdate(AvahiWatch *watch, AvahiWatchEvent event);
    static AvahiWatchEvent watchGetEvents(AvahiWatch *watch);
    static void watchFree(AvahiWatch *watch);
    static AvahiTimeout *timeoutNew(const AvahiPoll *api, const struct timeval *tv, AvahiTimeoutCallback callback,
                                    void *userdata);
    static void timeoutUpdate(AvahiTimeout *timeout, const struct timeval *tv);
    static void timeoutFree(AvahiTimeout *timeout);

    AvahiPoll m_api{};
    std::set<AvahiWatch *> m_watches;     // live watches, freed with the poll at the latest
    std::set<AvahiTimeout *> m_timeouts;  // live wake-ups
};
