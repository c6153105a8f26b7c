#include "discovery/ServerDelegate.h"

void ServerDelegate::serviceAdded(const NetServicePtr &, bool) {}
void ServerDelegate::serviceRemoved(const NetServicePtr &, bool) {}
void ServerDelegate::serverRemoteConnectionComplete(Server *) {}
void ServerDelegate::serverStopped(Server *) {}
void ServerDelegate::serverDidNotStart(Server *, const QVariantMap &) {}
void ServerDelegate::serverLostConnection(Server *, const QVariantMap &) {}
