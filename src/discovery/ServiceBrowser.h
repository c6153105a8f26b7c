#pragma once

#include "discovery/NetService.h"

#include <QHostAddress>
#include <QList>
#include <QObject>

#include <functional>

class AvahiConnection;
class QTimer;
struct AvahiServiceBrowser;
struct AvahiServiceResolver;

// Browses avahi-daemon for one service type and hands the services over in
// batches: nothing before the daemon's first batch has ended, then each
// change, with "more coming" on all but the last event of a batch. Also
// resolves one service at a time to an address and port.
class ServiceBrowser : public QObject
{
    Q_OBJECT

public:
    // `ownName` names our own service, which is never handed over as added.
    ServiceBrowser(AvahiConnection *connection, std::function<QString()> ownName, QObject *parent = nullptr);

    // Starts browsing for the type (while the daemon runs); a browser that
    // already runs stays, since a fresh one would report every peer again.
    void browse(const QString &type);
    // Stops browsing and any resolve; forgets every service.
    void stop();
    bool isBrowsing() const { return m_browser != nullptr; }
    // The connection went, and the browser and resolver with it: every
    // service seen is handed over as removed.
    void connectionLost();

    // Resolves the service (2.0 s limit); resolved() tells where it is.
    void resolve(const NetServicePtr &service);
    NetServicePtr resolving() const { return m_resolving; }

signals:
    void serviceAdded(const NetServicePtr &service, bool moreComing);
    void serviceRemoved(const NetServicePtr &service, bool moreComing);
    // A service no longer seen anywhere (before it is handed over).
    void serviceGone(const NetServicePtr &service);
    void resolved(const QHostAddress &address, quint16 port);

private:
    struct Event
    {
        bool added = false;
        NetServicePtr service;
    };

    friend struct ServiceBrowserGlue;
    void browseEvent(int interface, int protocol, int event, const char *name, const char *type, const char *domain);
    void resolveEvent(AvahiServiceResolver *resolver, int interface, int event, const char *hostName,
                      const QString &address, quint16 port);
    void scheduleFlush();
    void flush();
    void stopResolving();

    AvahiConnection *m_connection;
    std::function<QString()> m_ownName;
    AvahiServiceBrowser *m_browser = nullptr;
    AvahiServiceResolver *m_resolver = nullptr;
    NetServicePtr m_resolving;
    QTimer *m_resolveTimer = nullptr;           // 2.0 s limit on a resolve
    QTimer *m_settleTimer = nullptr;            // ends a first batch that never announced its end
    QList<NetServicePtr> m_browsed;             // services the current browser reports
    QList<Event> m_pending;                     // events not yet handed over
    bool m_settled = false;                     // the browser's first batch has ended
    bool m_flushScheduled = false;
    int m_flushPostponed = 0;
    quint64 m_generation = 0;                   // changes whenever the browser is dropped
};
