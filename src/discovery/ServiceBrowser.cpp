#include "discovery/ServiceBrowser.h"

#include "discovery/AvahiConnection.h"
#include "shell/Logger.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/address.h>
#include <avahi-common/error.h>

#include <QPointer>
#include <QTimer>

namespace {

constexpr int kResolveTimeoutMs = 2000;
// Avahi ends a browser's first batch after about a second; this is only a
// safety net should that never come.
constexpr int kSettleFallbackMs = 3000;
// How often delivery waits for Avahi's queued work before giving up waiting.
constexpr int kMaxFlushPostpones = 100;

} // namespace

// Trampolines with Avahi's exact callback types.
struct ServiceBrowserGlue
{
    static void browse(AvahiServiceBrowser *, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                       const char *name, const char *type, const char *domain, AvahiLookupResultFlags, void *userdata)
    {
        static_cast<ServiceBrowser *>(userdata)->browseEvent(interface, protocol, event, name, type, domain);
    }
    static void resolve(AvahiServiceResolver *resolver, AvahiIfIndex interface, AvahiProtocol, AvahiResolverEvent event,
                        const char *, const char *, const char *, const char *hostName, const AvahiAddress *address,
                        uint16_t port, AvahiStringList *, AvahiLookupResultFlags, void *userdata)
    {
        QString text;
        if (address) {
            char buffer[AVAHI_ADDRESS_STR_MAX] = {};
            avahi_address_snprint(buffer, sizeof buffer, address);
            text = QString::fromLatin1(buffer);
        }
        static_cast<ServiceBrowser *>(userdata)->resolveEvent(resolver, interface, event, hostName, text, port);
    }
};

ServiceBrowser::ServiceBrowser(AvahiConnection *connection, std::function<QString()> ownName, QObject *parent)
    : QObject(parent)
    , m_connection(connection)
    , m_ownName(std::move(ownName))
{
    m_resolveTimer = new QTimer(this);
    m_resolveTimer->setSingleShot(true);
    m_resolveTimer->setInterval(kResolveTimeoutMs);
    connect(m_resolveTimer, &QTimer::timeout, this, [this] {
        if (m_resolving)
            TW_LOG(QStringLiteral("Server: resolving \"%1\" timed out").arg(m_resolving->name));
        stopResolving();
    });

    m_settleTimer = new QTimer(this);
    m_settleTimer->setSingleShot(true);
    m_settleTimer->setInterval(kSettleFallbackMs);
    connect(m_settleTimer, &QTimer::timeout, this, [this] {
        m_settled = true;
        scheduleFlush();
    });
}

void ServiceBrowser::browse(const QString &type)
{
    AvahiClient *client = m_connection->client();
    if (m_browser || !client)
        return;
    m_browser = avahi_service_browser_new(client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type.toUtf8().constData(),
                                          "local", AvahiLookupFlags(0), &ServiceBrowserGlue::browse, this);
    if (!m_browser) {
        TW_LOG(QStringLiteral("Server: cannot browse for %1: %2").arg(type, m_connection->lastError()));
        return;
    }
    m_settled = false;
    m_settleTimer->start();
}

void ServiceBrowser::stop()
{
    if (m_browser && m_connection->client())
        avahi_service_browser_free(m_browser);
    m_browser = nullptr;
    m_settleTimer->stop();
    stopResolving();
    m_browsed.clear();
    m_pending.clear();
    m_settled = false;
    ++m_generation;
}

void ServiceBrowser::connectionLost()
{
    m_browser = nullptr;
    m_resolver = nullptr;
    stopResolving();
    // Peers are no longer visible to us; they come back with the browser.
    const QString own = m_ownName();
    for (const NetServicePtr &service : std::as_const(m_browsed)) {
        if (service->name != own)
            m_pending.append({false, service});
    }
    m_browsed.clear();
    m_settled = true;
    scheduleFlush();
}

void ServiceBrowser::browseEvent(int interface, int protocol, int event, const char *name, const char *type,
                                 const char *domain)
{
    if (event == AVAHI_BROWSER_ALL_FOR_NOW) {
        m_settled = true;
        m_settleTimer->stop();
        scheduleFlush();
        return;
    }
    if (event == AVAHI_BROWSER_CACHE_EXHAUSTED) {
        scheduleFlush();
        return;
    }
    if (event == AVAHI_BROWSER_FAILURE) {
        TW_LOG(QStringLiteral("Server: browsing failed: %1").arg(m_connection->lastError()));
        return;
    }
    if (event != AVAHI_BROWSER_NEW && event != AVAHI_BROWSER_REMOVE)
        return;

    NetService key;
    key.name = QString::fromUtf8(name);
    key.type = QString::fromUtf8(type);
    key.domain = QString::fromUtf8(domain);
    const NetService::Sighting sighting{interface, protocol};
    auto found = std::find_if(m_browsed.begin(), m_browsed.end(),
                              [&](const NetServicePtr &service) { return service->isEqual(key); });

    if (event == AVAHI_BROWSER_NEW) {
        if (found != m_browsed.end()) {
            if (!(*found)->sightings.contains(sighting))
                (*found)->sightings.append(sighting);
            return;
        }
        auto service = std::make_shared<NetService>(key);
        service->sightings.append(sighting);
        m_browsed.append(service);
        if (service->name != m_ownName())
            m_pending.append({true, service});
        scheduleFlush();
        return;
    }

    if (found == m_browsed.end())
        return;
    NetServicePtr service = *found;
    service->sightings.removeAll(sighting);
    if (!service->sightings.isEmpty())
        return; // still seen elsewhere
    m_browsed.erase(found);
    if (m_resolving && service->name == m_resolving->name)
        stopResolving();
    else
        emit serviceGone(service);
    m_pending.append({false, service});
    scheduleFlush();
}

void ServiceBrowser::scheduleFlush()
{
    if (m_flushScheduled)
        return;
    m_flushScheduled = true;
    QTimer::singleShot(0, this, &ServiceBrowser::flush);
}

void ServiceBrowser::flush()
{
    m_flushScheduled = false;
    if (m_pending.isEmpty() || !m_settled)
        return;
    // Events Avahi has received but not yet handed over belong to this batch.
    if (m_connection->hasPendingWork() && m_flushPostponed < kMaxFlushPostpones) {
        ++m_flushPostponed;
        scheduleFlush();
        return;
    }
    m_flushPostponed = 0;
    const QList<Event> events = std::exchange(m_pending, {});
    const quint64 generation = m_generation;
    QPointer<ServiceBrowser> self(this);
    for (qsizetype i = 0; i < events.size(); ++i) {
        // A receiver may stop the browser, or delete its owner.
        if (!self || generation != m_generation)
            return;
        const bool moreComing = i + 1 < events.size();
        if (events[i].added)
            emit serviceAdded(events[i].service, moreComing);
        else
            emit serviceRemoved(events[i].service, moreComing);
    }
}

void ServiceBrowser::resolve(const NetServicePtr &service)
{
    stopResolving();
    if (!service)
        return;
    if (!m_connection->open() || !m_connection->isRunning())
        return;
    const NetService::Sighting where = service->sightings.value(0, {AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC});
    const QByteArray name = service->name.toUtf8(), type = service->type.toUtf8(), domain = service->domain.toUtf8();
    m_resolver = avahi_service_resolver_new(m_connection->client(), where.interfaceIndex, where.protocol,
                                            name.constData(), type.constData(),
                                            domain.isEmpty() ? nullptr : domain.constData(), AVAHI_PROTO_UNSPEC,
                                            AvahiLookupFlags(0), &ServiceBrowserGlue::resolve, this);
    if (!m_resolver) {
        TW_LOG(QStringLiteral("Server: cannot resolve \"%1\": %2").arg(service->name, m_connection->lastError()));
        return;
    }
    m_resolving = service;
    m_resolveTimer->start();
}

void ServiceBrowser::resolveEvent(AvahiServiceResolver *resolver, int interface, int event, const char *hostName,
                                  const QString &address, quint16 port)
{
    if (resolver != m_resolver || !m_resolving)
        return;
    NetServicePtr service = m_resolving;
    stopResolving();
    if (event != AVAHI_RESOLVER_FOUND)
        return;
    QHostAddress host(address);
    if (host.protocol() == QAbstractSocket::IPv6Protocol && host.isLinkLocal())
        host.setScopeId(QString::number(interface));
    service->hostName = QString::fromUtf8(hostName);
    service->port = port;
    if (!host.isNull() && !service->addresses.contains(host))
        service->addresses.append(host);
    if (!host.isNull())
        emit resolved(host, port);
}

void ServiceBrowser::stopResolving()
{
    m_resolveTimer->stop();
    if (m_resolver && m_connection->client())
        avahi_service_resolver_free(m_resolver);
    m_resolver = nullptr;
    m_resolving.reset();
}
