#pragma once

#include "discovery/NetService.h"

#include <QVariantMap>

class Server;

// Receiver of a Server's events. Every callback does nothing by default, so a
// delegate that does not implement one simply misses that event.
class ServerDelegate
{
public:
    virtual ~ServerDelegate() = default;

    // A peer's service appeared; moreComing is true while further events of
    // the same batch are already queued, false on the last one.
    virtual void serviceAdded(const NetServicePtr &service, bool moreComing);
    // A service disappeared (our own included); moreComing as above.
    virtual void serviceRemoved(const NetServicePtr &service, bool moreComing);
    // A peer connected to the service port and both streams are open.
    virtual void serverRemoteConnectionComplete(Server *server);
    // stop() ran.
    virtual void serverStopped(Server *server);
    // Publishing was refused, for example because the name is taken.
    // errorDict: "domain", "code", "message".
    virtual void serverDidNotStart(Server *server, const QVariantMap &errorDict);
    // The stream connection ended (empty userInfo) or failed ("code",
    // "message" of the socket error).
    virtual void serverLostConnection(Server *server, const QVariantMap &userInfo);
};
