#include "Tidewave/SingleInstance.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

namespace {
// How long a later copy waits for the running one to answer.
constexpr int kAnswerMs = 1000;
const QByteArray kRaise = QByteArrayLiteral("raise\n");
} // namespace

QString SingleInstance::socketPathForSession()
{
    QString display = qEnvironmentVariable("WAYLAND_DISPLAY", qEnvironmentVariable("DISPLAY"));
    for (QChar &c : display) {
        if (!c.isLetterOrNumber() && c != QLatin1Char('.') && c != QLatin1Char('-'))
            c = QLatin1Char('_');
    }
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString folder = runtime.isEmpty() ? QDir::tempPath() : runtime;
    return QStringLiteral("%1/tidewave-%2-%3.socket").arg(folder).arg(::getuid()).arg(display);
}

SingleInstance::SingleInstance(const QString &socketPath, QObject *parent)
    : QObject(parent)
    , m_path(socketPath)
{
}

SingleInstance::~SingleInstance()
{
    if (m_server)
        m_server->close();
}

bool SingleInstance::askRunningCopy()
{
    QLocalSocket socket;
    socket.connectToServer(m_path);
    if (!socket.waitForConnected(kAnswerMs))
        return false;
    socket.write(kRaise);
    socket.waitForBytesWritten(kAnswerMs);
    socket.disconnectFromServer();
    return true;
}

bool SingleInstance::claim()
{
    if (askRunningCopy())
        return false;
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->readAll().contains(kRaise))
                    emit raiseRequested();
            });
        }
    });
    if (m_server->listen(m_path))
        return true;
    // Nobody answered, so a socket file left there is a dead copy's.
    QLocalServer::removeServer(m_path);
    if (m_server->listen(m_path))
        return true;
    // Another copy started listening in between: it is the one.
    if (askRunningCopy())
        return false;
    // No socket can be had at all; run rather than refuse to start.
    return true;
}
