#include "discovery/ServiceStreams.h"

#include "discovery/Server.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

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

ServiceStreams::ServiceStreams(QObject *parent)
    : QObject(parent)
{
}

bool ServiceStreams::listen(ServerError *error)
{
    closeListener();
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        if (error)
            *error = socketError(Server::CreateFailed, QStringLiteral("socket"));
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
            *error = socketError(Server::BindFailed, QStringLiteral("bind"));
        ::close(fd);
        return false;
    }
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    m_port = ntohs(address.sin_port);

    m_listener = new QTcpServer(this);
    if (!m_listener->setSocketDescriptor(fd)) {
        if (error)
            *error = ServerError{Server::ErrorDomain, Server::CreateFailed,
                                 {{QStringLiteral("message"), m_listener->errorString()}}};
        ::close(fd);
        closeListener();
        return false;
    }
    connect(m_listener, &QTcpServer::newConnection, this, [this] {
        while (m_listener && m_listener->hasPendingConnections())
            adopt(m_listener->nextPendingConnection());
    });
    return true;
}

void ServiceStreams::closeListener()
{
    if (!m_listener)
        return;
    m_listener->close();
    delete m_listener;
    m_listener = nullptr;
}

void ServiceStreams::connectTo(const QHostAddress &address, quint16 port)
{
    auto *socket = new QTcpSocket(this);
    adopt(socket);
    socket->connectToHost(address, port);
}

void ServiceStreams::adopt(QTcpSocket *socket)
{
    closeStreams();
    socket->setParent(this);
    m_stream = socket;
    connect(socket, &QTcpSocket::readyRead, this, &ServiceStreams::readAndDrop);
    connect(socket, &QTcpSocket::connected, this, &ServiceStreams::markOpen);
    connect(socket, &QTcpSocket::disconnected, this, &ServiceStreams::ended);
    connect(socket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        // An orderly close is an end, reported through disconnected().
        if (error != QAbstractSocket::RemoteHostClosedError)
            emit failed(m_stream ? streamErrorInfo(m_stream) : QVariantMap());
    });
    if (socket->state() == QAbstractSocket::ConnectedState)
        markOpen();
}

void ServiceStreams::markOpen()
{
    m_inputReady = true;
    m_outputReady = true;
    m_outputHasSpace = true;
    emit opened();
}

void ServiceStreams::readAndDrop()
{
    if (!m_stream)
        return;
    const qint64 chunk = qMax(1, m_payloadSize % 256);
    while (m_stream->bytesAvailable() > 0)
        m_received += m_stream->read(chunk);
    m_received.clear();
}

void ServiceStreams::closeStreams()
{
    if (m_stream) {
        disconnect(m_stream, nullptr, this, nullptr);
        m_stream->abort();
        m_stream->deleteLater();
        m_stream = nullptr;
    }
    m_received.clear();
    m_inputReady = false;
    m_outputReady = false;
    m_outputHasSpace = false;
}

bool ServiceStreams::send(const QByteArray &data, ServerError *error)
{
    if (!m_outputHasSpace || !m_stream) {
        if (error)
            *error = ServerError{Server::ErrorDomain, Server::WriteFailed,
                                 {{QStringLiteral("message"), QStringLiteral("no connected stream")}}};
        return false;
    }
    const qint64 written = m_stream->write(data);
    if (written <= 0) {
        if (error)
            *error = ServerError{Server::ErrorDomain, written == 0 ? Server::NothingWritten : Server::WriteFailed,
                                 streamErrorInfo(m_stream)};
        return false;
    }
    return true;
}
