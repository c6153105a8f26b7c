#include "discovery/Server.h"

#include "discovery/AvahiConnection.h"
#include "discovery/ServerDelegate.h"
#include "discovery/ServiceBrowser.h"
#include "discovery/ServiceName.h"
#include "discovery/ServicePublisher.h"
#include "discovery/ServiceStreams.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <avahi-common/error.h>

#include <QPointer>
#include <QTimer>

QString ServerError::toString() const
{
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
        .arg(domain)
        .arg(code)
        .arg(userInfo.value(QStringLiteral("message")).toString());
}

Server::Server(QObject *parent)
    : Server(QString(), QStringLiteral("_Server._tcp."), QString(), parent)
{
}

Server::Server(const QString &domain, const QString &protocol, const QString &name, QObject *parent)
    : QObject(parent)
    , m_domain(domain)
    , m_protocol(protocol)
    , m_name(name)
{
    m_connection = new AvahiConnection([this] { return m_browseWanted || m_publishWanted; }, this);
    m_publisher = new ServicePublisher(m_connection, this);
    m_browser = new ServiceBrowser(m_connection, [this] { return ownName(); }, this);
    m_streams = new ServiceStreams(this);

    connect(m_connection, &AvahiConnection::running, this, &Server::republish);
    // The daemon is renaming its host; our records come back when it runs.
    connect(m_connection, &AvahiConnection::renaming, m_publisher, &ServicePublisher::withdraw);
    connect(m_connection, &AvahiConnection::lost, this, &Server::daemonLost);
    connect(m_publisher, &ServicePublisher::established, this, &Server::published);
    connect(m_publisher, &ServicePublisher::failed, this, &Server::publishFailed);
    connect(m_browser, &ServiceBrowser::serviceAdded, this, [this](const NetServicePtr &service, bool moreComing) {
        if (m_delegate)
            m_delegate->serviceAdded(service, moreComing);
    });
    connect(m_browser, &ServiceBrowser::serviceRemoved, this, [this](const NetServicePtr &service, bool moreComing) {
        if (m_delegate)
            m_delegate->serviceRemoved(service, moreComing);
    });
    connect(m_browser, &ServiceBrowser::serviceGone, this, [this](const NetServicePtr &service) {
        if (m_localService && service->name == m_localService->name)
            m_localService.reset();
    });
    connect(m_browser, &ServiceBrowser::resolved, m_streams, &ServiceStreams::connectTo);
    connect(m_streams, &ServiceStreams::opened, this, &Server::streamOpened);
    connect(m_streams, &ServiceStreams::failed, this, &Server::streamFailed);
    connect(m_streams, &ServiceStreams::ended, this, &Server::streamEnded);
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
    // Whatever else the daemon holds for us goes with the connection.
    m_connection->close();
    m_domain.clear();
    m_protocol.clear();
    m_name.clear();
}

quint16 Server::port() const { return m_streams->port(); }
int Server::payloadSize() const { return m_streams->payloadSize(); }
void Server::setPayloadSize(int size) { m_streams->setPayloadSize(size); }
NetServicePtr Server::currentlyResolvingService() const { return m_browser->resolving(); }
bool Server::isPublished() const { return m_publisher->isPublished(); }
bool Server::isBrowsing() const { return m_browser->isBrowsing(); }
bool Server::inputStreamReady() const { return m_streams->inputReady(); }
bool Server::outputStreamReady() const { return m_streams->outputReady(); }
bool Server::outputStreamHasSpace() const { return m_streams->outputHasSpace(); }

QString Server::avahiType() const
{
    QString type = m_protocol;
    while (type.endsWith(QLatin1Char('.')))
        type.chop(1);
    return type;
}

bool Server::start(ServerError *error)
{
    if (!m_streams->listen(error))
        return false;
    if (!publishNetService(error)) {
        // Nothing is advertised, so nothing should listen either.
        m_streams->closeListener();
        return false;
    }
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

    int avahiError = 0;
    if (!m_connection->open(&avahiError)) {
        if (error)
            *error = ServerError{AvahiErrorDomain, avahiError,
                                 {{QStringLiteral("message"), QString::fromUtf8(avahi_strerror(avahiError))}}};
        return false;
    }
    m_publishWanted = true;
    if (!m_connection->isRunning())
        return true; // published once the daemon is ready (republish)

    const int result = m_publisher->publish(m_iPerfIP, avahiType(), m_domain, port());
    // Peers are listed whether or not our own name could be published.
    if (result != AVAHI_OK)
        browse();
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

void Server::republish()
{
    if (m_publishWanted && !m_publisher->isPublished()) {
        const int result = m_publisher->publish(m_iPerfIP, avahiType(), m_domain, port());
        if (result != AVAHI_OK) {
            m_publishWanted = false;
            m_browseWanted = true;
            TW_LOG(QStringLiteral("Server: cannot publish \"%1\": %2")
                       .arg(m_iPerfIP, QString::fromUtf8(avahi_strerror(result))));
            QTimer::singleShot(0, this, [this, result] { reportDidNotStart(result); });
        }
    }
    if (m_browseWanted)
        m_browser->browse(avahiType());
}

void Server::published()
{
    auto service = std::make_shared<NetService>();
    service->name = m_iPerfIP;
    service->type = avahiType();
    service->domain = QStringLiteral("local");
    m_localService = service;
    m_name = service->name;
    browse();
}

void Server::publishFailed(int avahiError)
{
    m_publishWanted = false;
    browse();
    reportDidNotStart(avahiError);
}

void Server::daemonLost()
{
    const bool wasBrowsing = m_browser->isBrowsing() || m_browseWanted;
    const bool wasPublishing = m_publisher->isPublished() || m_publishWanted;
    m_browser->connectionLost();
    m_publisher->forget();
    m_localService.reset();
    m_browseWanted = wasBrowsing;
    m_publishWanted = wasPublishing && m_streams->isListening();
    if (m_browseWanted || m_publishWanted)
        m_connection->reconnectSoon();
}

void Server::browse()
{
    if (!m_connection->client())
        return;
    m_browseWanted = true;
    m_browser->browse(avahiType());
}

void Server::reportDidNotStart(int avahiError)
{
    if (m_delegate)
        m_delegate->serverDidNotStart(this, {{QStringLiteral("domain"), AvahiErrorDomain},
                                             {QStringLiteral("code"), avahiError},
                                             {QStringLiteral("message"), QString::fromUtf8(avahi_strerror(avahiError))}});
}

void Server::stopNetService()
{
    m_publishWanted = false;
    m_publisher->withdraw();
}

void Server::stop()
{
    stopNetService();
    m_streams->closeListener();
    m_streams->closeStreams();
    if (m_delegate)
        m_delegate->serverStopped(this);
}

void Server::stopBrowser()
{
    m_browser->stop();
    m_browseWanted = false;
    m_localService.reset();
}

QString Server::ownName() const
{
    if (m_localService)
        return m_localService->name;
    // Our own service may be reported before its publication is confirmed.
    return m_publisher->isPublished() ? m_iPerfIP : QString();
}

void Server::streamOpened()
{
    QPointer<Server> self(this);
    if (m_delegate)
        m_delegate->serverRemoteConnectionComplete(this);
    if (self)
        stopNetService();
}

void Server::streamFailed(const QVariantMap &info)
{
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
    m_streams->closeStreams();
    if (m_streams->isListening()) {
        ServerError error;
        if (!publishNetService(&error))
            TW_LOG(QStringLiteral("Server: cannot publish again: %1").arg(error.toString()));
    }
}

bool Server::sendData(const QByteArray &data, ServerError *error)
{
    return m_streams->send(data, error);
}

void Server::connectToRemoteService(const NetServicePtr &service)
{
    m_browser->resolve(service);
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
