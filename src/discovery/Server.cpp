#include "discovery/Server.h"

#include "discovery/AvahiQtPoll.h"
#include "discovery/ServerDelegate.h"
#include "discovery/ServiceName.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/address.h>
#include <avahi-common/error.h>

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kResolveTimeoutMs = 2000;
// Pause between attempts to reach a D-Bus system bus that has gone away.
constexpr int kReconnectRetryMs = 2000;
// Avahi ends a browser's first batch after about a second; this is only a
// safety net should that never come.
constexpr int kSettleFallbackMs = 3000;
// How often delivery waits for Avahi's queued work before giving up waiting.
constexpr int kMaxFlushPostpones = 100;

QString serviceTypeForAvahi(const QString &protocol)
{
    QString type = protocol;
    while (type.endsWith(QLatin1Char('.')))
        type.chop(1);
    return type;
}

ServerError socketError(int code, const QString &what)
{
    return ServerError{Server::ErrorDomain, code,
                       {{QStringLiteral("message"), QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(strerror(errno)))}}};
}

QVariantMap streamErrorInfo(const QTcpSocket *socket)
{
    return {{QStringLiteral("code"), int(socket->error())}, {QStringLiteral("message"), socket->errorString()}};
}

} // namespace

QString ServerError::toString() const
{
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
        .arg(domain)
        .arg(code)
        .arg(userInfo.value(QStringLiteral("message")).toString());
}

// Trampolines with Avahi's exact callback types.
struct AvahiGlue
{
    static void client(AvahiClient *client, AvahiClientState state, void *userdata)
    {
        static_cast<Server *>(userdata)->clientStateChanged(client, state);
    }
    static void group(AvahiEntryGroup *group, AvahiEntryGroupState state, void *userdata)
    {
        static_cast<Server *>(userdata)->groupStateChanged(group, state);
    }
    static void browse(AvahiServiceBrowser *, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                       const char *name, const char *type, const char *domain, AvahiLookupResultFlags, void *userdata)
    {
        static_cast<Server *>(userdata)->browseEvent(interface, protocol, event, name, type, domain);
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
        static_cast<Server *>(userdata)->resolveEvent(resolver, interface, event, hostName, text, port);
    }
};

Server::Server(QObject *parent)
    : Server(QString(), QStringLiteral("_Server._tcp."), QString(), parent)
{
}

Server::Server(const QString &domain, const QString &protocol, const QString &name, QObject *parent)
    : QObject(parent)
    , m_domain(domain)
    , m_protocol(protocol)
    , m_name(name)
    , m_poll(std::make_unique<AvahiQtPoll>())
{
    m_outputStreamHasSpace = false;
    m_payloadSize = 128;

    m_resolveTimer = new QTimer(this);
    m_resolveTimer->setSingleShot(true);
    m_resolveTimer->setInterval(kResolveTimeoutMs);
    connect(m_resolveTimer, &QTimer::timeout, this, &Server::resolveTimedOut);

    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setSingleShot(true);
    connect(m_reconnectTimer, &QTimer::timeout, this, &Server::reconnect);

    m_settleTimer = new QTimer(this);
    m_settleTimer->setSingleShot(true);
    m_settleTimer->setInterval(kSettleFallbackMs);
    connect(m_settleTimer, &QTimer::timeout, this, [this] {
        m_browserSettled = true;
        scheduleFlush();
    });
}

std::unique_ptr<Server> Server::withProtocol(const QString &protocolWord, const QString &options)
{
    auto server = std::make_unique<Server>(QString(), QStringLiteral("_%1._tcp.").arg(protocolWord), QString());
    server->m_iPerfIP = options;
    return server;
}

Server::~Server()
{
    stop();
    stopBrowser();
    m_reconnectTimer->stop();
    dropClient();
    for (AvahiClient *client : std::as_const(m_deadClients))
        avahi_client_free(client);
    m_deadClients.clear();
    m_domain.clear();
    m_protocol.clear();
    m_name.clear();
}

bool Server::start(ServerError *error)
{
    if (m_listener) {
        m_listener->close();
        delete m_listener;
        m_listener = nullptr;
    }

    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        if (error)
            *error = socketError(CreateFailed, QStringLiteral("socket"));
        return false;
    }
    const int reuse = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    // The stream pair carries no data, so the system's buffer sizes stay.

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
        || ::listen(fd, SOMAXCONN) != 0) {
        if (error)
            *error = socketError(BindFailed, QStringLiteral("bind"));
        ::close(fd);
        return false;
    }
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    m_port = ntohs(address.sin_port);

    m_listener = new QTcpServer(this);
    if (!m_listener->setSocketDescriptor(fd)) {
        if (error)
            *error = ServerError{ErrorDomain, CreateFailed, {{QStringLiteral("message"), m_listener->errorString()}}};
        ::close(fd);
        delete m_listener;
        m_listener = nullptr;
        return false;
    }
    connect(m_listener, &QTcpServer::newConnection, this, &Server::acceptConnection);

    if (!publishNetService(error)) {
        // Nothing is advertised, so nothing should listen either.
        m_listener->close();
        delete m_listener;
        m_listener = nullptr;
        return false;
    }
    return true;
}

bool Server::ensureClient(ServerError *error)
{
    if (m_client)
        return true;
    int avahiError = 0;
    AvahiClient *client = avahi_client_new(m_poll->api(), AvahiClientFlags(0), &AvahiGlue::client, this, &avahiError);
    if (!client) {
        const QString message = QString::fromUtf8(avahi_strerror(avahiError));
        TW_LOG(QStringLiteral("Server: avahi-daemon is not available, cannot publish or browse: %1").arg(message));
        if (error)
            *error = ServerError{AvahiErrorDomain, avahiError, {{QStringLiteral("message"), message}}};
        return false;
    }
    m_client = client;
    return true;
}

bool Server::publishNetService(ServerError *error)
{
    m_iPerfIP.replace(QLatin1Char('.'), QLatin1Char('_'));
    const QString fitted = ServiceName::fitToLimit(m_iPerfIP);
    if (fitted != m_iPerfIP) {
        TW_LOG(QStringLiteral("Server: instance name \"%1\" is longer than %2 bytes, publishing \"%3\"")
                   .arg(m_iPerfIP)
                   .arg(ServiceName::MaxInstanceNameBytes)
                   .arg(fitted));
        m_iPerfIP = fitted;
    }
    SettingsStore::standard().synchronize();

    if (!ensureClient(error))
        return false;
    m_publishWanted = true;
    if (avahi_client_get_state(m_client) != AVAHI_CLIENT_S_RUNNING)
        return true; // published once the daemon is ready (clientStateChanged)

    const int result = publishWithClient();
    // Peers are listed whether or not our own name could be published.
    if (result != AVAHI_OK)
        searchForServicesOfType(m_protocol);
    if (result == AVAHI_ERR_COLLISION) {
        // A collision is a refusal to publish, told the delegate as one.
        m_publishWanted = false;
        QTimer::singleShot(0, this, [this, result] { reportDidNotStart(result); });
        return true;
    }
    if (result != AVAHI_OK) {
        m_publishWanted = false;
        const QString message = QString::fromUtf8(avahi_strerror(result));
        TW_LOG(QStringLiteral("Server: cannot publish \"%1\": %2").arg(m_iPerfIP, message));
        if (error)
            *error = ServerError{AvahiErrorDomain, result, {{QStringLiteral("message"), message}}};
        return false;
    }
    return true;
}

int Server::publishWithClient()
{
    if (m_group) {
        avahi_entry_group_free(m_group);
        m_group = nullptr;
    }
    AvahiEntryGroup *group = avahi_entry_group_new(m_client, &AvahiGlue::group, this);
    if (!group)
        return avahi_client_errno(m_client);
    const QByteArray name = m_iPerfIP.toUtf8();
    const QByteArray type = serviceTypeForAvahi(m_protocol).toUtf8();
    const QByteArray domain = m_domain.toUtf8();
    // No AVAHI_PUBLISH_* renaming flag exists: a taken name stays a failure.
    int result = avahi_entry_group_add_service(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0),
                                               name.constData(), type.constData(),
                                               domain.isEmpty() ? nullptr : domain.constData(), nullptr, m_port,
                                               nullptr);
    if (result == AVAHI_OK)
        result = avahi_entry_group_commit(group);
    if (result != AVAHI_OK) {
        avahi_entry_group_free(group);
        return result;
    }
    m_group = group;
    return AVAHI_OK;
}

void Server::reportDidNotStart(int avahiError)
{
    if (m_delegate)
        m_delegate->serverDidNotStart(this, avahiErrorDict(avahiError));
}

QVariantMap Server::avahiErrorDict(int avahiError) const
{
    return {{QStringLiteral("domain"), AvahiErrorDomain},
            {QStringLiteral("code"), avahiError},
            {QStringLiteral("message"), QString::fromUtf8(avahi_strerror(avahiError))}};
}

void Server::stopNetService()
{
    m_publishWanted = false;
    if (m_group) {
        avahi_entry_group_free(m_group);
        m_group = nullptr;
    }
}

void Server::stop()
{
    stopNetService();
    if (m_listener) {
        m_listener->close();
        delete m_listener;
        m_listener = nullptr;
    }
    stopStreams();
    if (m_delegate)
        m_delegate->serverStopped(this);
}

void Server::stopBrowser()
{
    if (m_browser && m_client)
        avahi_service_browser_free(m_browser);
    m_browser = nullptr;
    m_browseWanted = false;
    m_settleTimer->stop();
    m_localService.reset();
    stopResolving();
    m_browsed.clear();
    m_pendingEvents.clear();
    m_browserSettled = false;
    ++m_browserGeneration;
}

void Server::groupStateChanged(AvahiEntryGroup *group, int state)
{
    if (group != m_group)
        return;
    switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED: {
        auto service = std::make_shared<NetService>();
        service->name = m_iPerfIP;
        service->type = serviceTypeForAvahi(m_protocol);
        service->domain = QStringLiteral("local");
        m_localService = service;
        m_name = service->name;
        searchForServicesOfType(m_protocol);
        break;
    }
    case AVAHI_ENTRY_GROUP_COLLISION:
    case AVAHI_ENTRY_GROUP_FAILURE: {
        const int avahiError = state == AVAHI_ENTRY_GROUP_COLLISION ? int(AVAHI_ERR_COLLISION)
                                                                    : avahi_client_errno(m_client);
        avahi_entry_group_free(m_group);
        m_group = nullptr;
        m_publishWanted = false;
        searchForServicesOfType(m_protocol);
        reportDidNotStart(avahiError);
        break;
    }
    default:
        break;
    }
}

void Server::searchForServicesOfType(const QString &type)
{
    // A browser that already runs reports the same services; a fresh one
    // would report every peer a second time.
    if (m_browser || !m_client)
        return;
    m_browseWanted = true;
    const QByteArray avahiType = serviceTypeForAvahi(type).toUtf8();
    m_browser = avahi_service_browser_new(m_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, avahiType.constData(),
                                          "local", AvahiLookupFlags(0), &AvahiGlue::browse, this);
    if (!m_browser) {
        TW_LOG(QStringLiteral("Server: cannot browse for %1: %2")
                   .arg(type, QString::fromUtf8(avahi_strerror(avahi_client_errno(m_client)))));
        return;
    }
    m_browserSettled = false;
    m_settleTimer->start();
}

QString Server::ownName() const
{
    if (m_localService)
        return m_localService->name;
    // Our own service may be reported before its publication is confirmed.
    return m_group ? m_iPerfIP : QString();
}

void Server::browseEvent(int interface, int protocol, int event, const char *name, const char *type,
                         const char *domain)
{
    if (event == AVAHI_BROWSER_ALL_FOR_NOW) {
        m_browserSettled = true;
        m_settleTimer->stop();
        scheduleFlush();
        return;
    }
    if (event == AVAHI_BROWSER_CACHE_EXHAUSTED) {
        scheduleFlush();
        return;
    }
    if (event == AVAHI_BROWSER_FAILURE) {
        TW_LOG(QStringLiteral("Server: browsing failed: %1")
                   .arg(QString::fromUtf8(avahi_strerror(avahi_client_errno(m_client)))));
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
        if (service->name != ownName())
            m_pendingEvents.append({true, service});
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
    if (m_currentlyResolvingService && service->name == m_currentlyResolvingService->name)
        stopResolving();
    else if (m_localService && service->name == m_localService->name)
        m_localService.reset();
    m_pendingEvents.append({false, service});
    scheduleFlush();
}

void Server::scheduleFlush()
{
    if (m_flushScheduled)
        return;
    m_flushScheduled = true;
    QTimer::singleShot(0, this, &Server::flushBrowserEvents);
}

void Server::flushBrowserEvents()
{
    m_flushScheduled = false;
    if (m_pendingEvents.isEmpty() || !m_browserSettled)
        return;
    // Events Avahi has received but not yet handed over belong to this batch.
    if (m_poll->hasPendingWork() && m_flushPostponed < kMaxFlushPostpones) {
        ++m_flushPostponed;
        scheduleFlush();
        return;
    }
    m_flushPostponed = 0;
    const QList<BrowserEvent> events = std::exchange(m_pendingEvents, {});
    const quint64 generation = m_browserGeneration;
    QPointer<Server> self(this);
    for (qsizetype i = 0; i < events.size(); ++i) {
        if (!self || !m_delegate || generation != m_browserGeneration)
            return;
        const bool moreComing = i + 1 < events.size();
        if (events[i].added)
            m_delegate->serviceAdded(events[i].service, moreComing);
        else
            m_delegate->serviceRemoved(events[i].service, moreComing);
    }
}

void Server::clientStateChanged(AvahiClient *client, int state)
{
    if (m_client && client != m_client)
        return;
    switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
        m_client = client; // may still be inside avahi_client_new
        if (m_publishWanted && !m_group) {
            const int result = publishWithClient();
            if (result != AVAHI_OK) {
                m_publishWanted = false;
                m_browseWanted = true;
                TW_LOG(QStringLiteral("Server: cannot publish \"%1\": %2")
                           .arg(m_iPerfIP, QString::fromUtf8(avahi_strerror(result))));
                QTimer::singleShot(0, this, [this, result] { reportDidNotStart(result); });
            }
        }
        if (m_browseWanted && !m_browser)
            searchForServicesOfType(m_protocol);
        break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
        // The daemon is renaming its host; our records come back on RUNNING.
        if (m_group) {
            avahi_entry_group_free(m_group);
            m_group = nullptr;
        }
        break;
    case AVAHI_CLIENT_FAILURE: {
        TW_LOG(QStringLiteral("Server: lost the connection to avahi-daemon: %1")
                   .arg(QString::fromUtf8(avahi_strerror(avahi_client_errno(client)))));
        const bool wasBrowsing = m_browser != nullptr || m_browseWanted;
        const bool wasPublishing = m_group != nullptr || m_publishWanted;
        forgetBrowsedServices(true);
        // The client owns its group, browser and resolver: all go with it.
        m_group = nullptr;
        m_browser = nullptr;
        m_resolver = nullptr;
        m_resolveTimer->stop();
        m_currentlyResolvingService.reset();
        m_localService.reset();
        m_client = nullptr;
        m_deadClients.append(client);
        QTimer::singleShot(0, this, [this] {
            for (AvahiClient *dead : std::exchange(m_deadClients, {}))
                avahi_client_free(dead);
        });
        m_browseWanted = wasBrowsing;
        m_publishWanted = wasPublishing && m_listener;
        if (m_browseWanted || m_publishWanted)
            scheduleReconnect(0);
        break;
    }
    default:
        break;
    }
}

void Server::forgetBrowsedServices(bool reportRemovals)
{
    if (reportRemovals) {
        // Peers are no longer visible to us; they come back with the browser.
        const QString own = ownName();
        for (const NetServicePtr &service : std::as_const(m_browsed)) {
            if (service->name != own)
                m_pendingEvents.append({false, service});
        }
        m_browserSettled = true;
        scheduleFlush();
    }
    m_browsed.clear();
}

void Server::scheduleReconnect(int delayMs)
{
    m_reconnectTimer->start(delayMs);
}

void Server::reconnect()
{
    if (m_client || (!m_browseWanted && !m_publishWanted))
        return;
    int avahiError = 0;
    // Waits in the connecting state until the daemon shows up on the bus.
    AvahiClient *client = avahi_client_new(m_poll->api(), AVAHI_CLIENT_NO_FAIL, &AvahiGlue::client, this, &avahiError);
    if (!client) {
        scheduleReconnect(kReconnectRetryMs);
        return;
    }
    m_client = client;
}

void Server::dropClient()
{
    if (!m_client)
        return;
    // Freeing the client frees its group, browser and resolver.
    avahi_client_free(m_client);
    m_client = nullptr;
    m_group = nullptr;
    m_browser = nullptr;
    m_resolver = nullptr;
}

void Server::acceptConnection()
{
    while (m_listener && m_listener->hasPendingConnections()) {
        QTcpSocket *socket = m_listener->nextPendingConnection();
        connectedToStream(socket);
    }
}

void Server::connectedToStream(QTcpSocket *socket)
{
    stopStreams();
    socket->setParent(this);
    m_stream = socket;
    connect(socket, &QTcpSocket::readyRead, this, &Server::streamReadable);
    connect(socket, &QTcpSocket::connected, this, &Server::streamOpened);
    connect(socket, &QTcpSocket::disconnected, this, &Server::streamEnded);
    connect(socket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        // An orderly close is an end, reported through disconnected().
        if (error != QAbstractSocket::RemoteHostClosedError)
            streamError();
    });
    if (socket->state() == QAbstractSocket::ConnectedState)
        streamOpened();
}

void Server::streamOpened()
{
    m_inputStreamReady = true;
    m_outputStreamReady = true;
    m_outputStreamHasSpace = true;
    QPointer<Server> self(this);
    if (m_delegate)
        m_delegate->serverRemoteConnectionComplete(this);
    if (self)
        stopNetService();
}

void Server::streamReadable()
{
    if (!m_stream)
        return;
    const qint64 chunk = qMax(1, m_payloadSize % 256);
    while (m_stream->bytesAvailable() > 0)
        m_received += m_stream->read(chunk);
    m_received.clear();
}

void Server::streamError()
{
    const QVariantMap info = m_stream ? streamErrorInfo(m_stream) : QVariantMap();
    QPointer<Server> self(this);
    if (m_delegate)
        m_delegate->serverLostConnection(this, info);
    if (self)
        stop();
}

void Server::streamEnded()
{
    QPointer<Server> self(this);
    if (m_delegate)
        m_delegate->serverLostConnection(this, {});
    if (!self)
        return;
    stopStreams();
    if (m_listener) {
        ServerError error;
        if (!publishNetService(&error))
            TW_LOG(QStringLiteral("Server: cannot publish again: %1").arg(error.toString()));
    }
}

void Server::stopStreams()
{
    if (m_stream) {
        disconnect(m_stream, nullptr, this, nullptr);
        m_stream->abort();
        m_stream->deleteLater();
        m_stream = nullptr;
    }
    m_received.clear();
    m_inputStreamReady = false;
    m_outputStreamReady = false;
    m_outputStreamHasSpace = false;
}

bool Server::sendData(const QByteArray &data, ServerError *error)
{
    if (!m_outputStreamHasSpace || !m_stream) {
        if (error)
            *error = ServerError{ErrorDomain, WriteFailed, {{QStringLiteral("message"), QStringLiteral("no connected stream")}}};
        return false;
    }
    const qint64 written = m_stream->write(data);
    if (written == 0) {
        if (error)
            *error = ServerError{ErrorDomain, NothingWritten, streamErrorInfo(m_stream)};
        return false;
    }
    if (written < 0) {
        if (error)
            *error = ServerError{ErrorDomain, WriteFailed, streamErrorInfo(m_stream)};
        return false;
    }
    return true;
}

void Server::connectToRemoteService(const NetServicePtr &service)
{
    stopResolving();
    if (!service)
        return;
    m_currentlyResolvingService = service;
    if (!ensureClient(nullptr) || avahi_client_get_state(m_client) != AVAHI_CLIENT_S_RUNNING) {
        m_currentlyResolvingService.reset();
        return;
    }
    const NetService::Sighting where = service->sightings.value(0, {AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC});
    const QByteArray name = service->name.toUtf8();
    const QByteArray type = service->type.toUtf8();
    const QByteArray domain = service->domain.toUtf8();
    m_resolver = avahi_service_resolver_new(m_client, where.interfaceIndex, where.protocol, name.constData(),
                                            type.constData(), domain.isEmpty() ? nullptr : domain.constData(),
                                            AVAHI_PROTO_UNSPEC, AvahiLookupFlags(0), &AvahiGlue::resolve, this);
    if (!m_resolver) {
        TW_LOG(QStringLiteral("Server: cannot resolve \"%1\": %2")
                   .arg(service->name, QString::fromUtf8(avahi_strerror(avahi_client_errno(m_client)))));
        m_currentlyResolvingService.reset();
        return;
    }
    m_resolveTimer->start();
}

void Server::resolveEvent(AvahiServiceResolver *resolver, int interface, int event, const char *hostName,
                          const QString &address, quint16 port)
{
    if (resolver != m_resolver || !m_currentlyResolvingService)
        return;
    NetServicePtr service = m_currentlyResolvingService;
    if (event != AVAHI_RESOLVER_FOUND) {
        stopResolving();
        return;
    }
    QHostAddress host(address);
    if (host.protocol() == QAbstractSocket::IPv6Protocol && host.isLinkLocal())
        host.setScopeId(QString::number(interface));
    service->hostName = QString::fromUtf8(hostName);
    service->port = port;
    if (!host.isNull() && !service->addresses.contains(host))
        service->addresses.append(host);
    stopResolving();
    if (host.isNull())
        return;
    auto *socket = new QTcpSocket(this);
    connectedToStream(socket);
    socket->connectToHost(host, port);
}

void Server::stopResolving()
{
    m_resolveTimer->stop();
    if (m_resolver && m_client)
        avahi_service_resolver_free(m_resolver);
    m_resolver = nullptr;
    m_currentlyResolvingService.reset();
}

void Server::resolveTimedOut()
{
    if (m_currentlyResolvingService)
        TW_LOG(QStringLiteral("Server: resolving \"%1\" timed out").arg(m_currentlyResolvingService->name));
    stopResolving();
}

QString Server::getAddress(const NetServicePtr &service)
{
    if (!service || service->addresses.isEmpty())
        return QStringLiteral("");
    const QHostAddress &first = service->addresses.first();
    if (first.protocol() == QAbstractSocket::IPv4Protocol || first.protocol() == QAbstractSocket::IPv6Protocol)
        return first.toString();
    return QStringLiteral("");
}
