#pragma once

#include "discovery/ServerDelegate.h"

#include <QList>
#include <QStringList>
#include <QVariantMap>

// Records every event a Server reports, in order.
class RecordingDelegate : public ServerDelegate
{
public:
    struct BrowseEvent
    {
        bool added = false;
        QString name;
        bool moreComing = false;
    };

    QList<BrowseEvent> browseEvents;
    QList<NetServicePtr> present; // services added and not removed since
    int connectionsCompleted = 0;
    int stopped = 0;
    QList<QVariantMap> didNotStart;
    QList<QVariantMap> lostConnections;

    void serviceAdded(const NetServicePtr &service, bool moreComing) override
    {
        browseEvents.append({true, service->name, moreComing});
        present.append(service);
    }
    void serviceRemoved(const NetServicePtr &service, bool moreComing) override
    {
        browseEvents.append({false, service->name, moreComing});
        present.removeIf([&](const NetServicePtr &listed) { return listed->isEqual(*service); });
    }
    void serverRemoteConnectionComplete(Server *) override { ++connectionsCompleted; }
    void serverStopped(Server *) override { ++stopped; }
    void serverDidNotStart(Server *, const QVariantMap &errorDict) override { didNotStart.append(errorDict); }
    void serverLostConnection(Server *, const QVariantMap &userInfo) override { lostConnections.append(userInfo); }

    QStringList presentNames() const
    {
        QStringList names;
        for (const NetServicePtr &service : present)
            names.append(service->name);
        return names;
    }
    NetServicePtr presentNamed(const QString &name) const
    {
        for (const NetServicePtr &service : present) {
            if (service->name == name)
                return service;
        }
        return nullptr;
    }
};
