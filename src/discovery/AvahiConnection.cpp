#include "discovery/AvahiConnection.h"

#include "discovery/AvahiQtPoll.h"
#include "shell/Logger.h"

#include <avahi-client/client.h>
#include <avahi-common/error.h>

#include <QTimer>

namespace {

// Pause between attempts to reach a D-Bus system bus that has gone away.
constexpr int kReconnectRetryMs = 2000;

} // namespace

// Trampoline with Avahi's exact callback type.
struct AvahiConnectionGlue
{
    static void client(AvahiClient *client, AvahiClientState state, void *userdata)
    {
        static_cast<AvahiConnection *>(userdata)->stateChanged(client, state);
    }
};

AvahiConnection::AvahiConnection(std::function<bool()> wanted, QObject *parent)
    : QObject(parent)
    , m_wanted(std::move(wanted))
    , m_poll(std::make_unique<AvahiQtPoll>())
{
    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setSingleShot(true);
    connect(m_reconnectTimer, &QTimer::timeout, this, &AvahiConnection::reconnect);
}

AvahiConnection::~AvahiConnection()
{
    m_reconnectTimer->stop();
    close();
    for (AvahiClient *client : std::as_const(m_deadClients))
        avahi_client_free(client);
}

bool AvahiConnection::open(int *avahiError)
{
    if (m_client)
        return true;
    int error = 0;
    AvahiClient *client = avahi_client_new(m_poll->api(), AvahiClientFlags(0), &AvahiConnectionGlue::client, this, &error);
    if (!client) {
        TW_LOG(QStringLiteral("Server: avahi-daemon is not available, cannot publish or browse: %1")
                   .arg(QString::fromUtf8(avahi_strerror(error))));
        if (avahiError)
            *avahiError = error;
        return false;
    }
    m_client = client;
    return true;
}

bool AvahiConnection::isRunning() const
{
    return m_client && avahi_client_get_state(m_client) == AVAHI_CLIENT_S_RUNNING;
}

QString AvahiConnection::lastError() const
{
    return QString::fromUtf8(avahi_strerror(m_client ? avahi_client_errno(m_client) : AVAHI_ERR_DISCONNECTED));
}

bool AvahiConnection::hasPendingWork() const
{
    return m_poll->hasPendingWork();
}

void AvahiConnection::close()
{
    if (m_client)
        avahi_client_free(m_client);
    m_client = nullptr;
}

void AvahiConnection::stateChanged(AvahiClient *client, int state)
{
    if (m_client && client != m_client)
        return;
    switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
        m_client = client; // may still be inside avahi_client_new
        emit running();
        break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
        emit renaming();
        break;
    case AVAHI_CLIENT_FAILURE:
        TW_LOG(QStringLiteral("Server: lost the connection to avahi-daemon: %1")
                   .arg(QString::fromUtf8(avahi_strerror(avahi_client_errno(client)))));
        m_client = nullptr;
        // Freeing a client inside its own callback is not allowed.
        m_deadClients.append(client);
        QTimer::singleShot(0, this, [this] {
            for (AvahiClient *dead : std::exchange(m_deadClients, {}))
                avahi_client_free(dead);
        });
        emit lost();
        break;
    default:
        break;
    }
}

void AvahiConnection::reconnectSoon()
{
    m_reconnectTimer->start(0);
}

void AvahiConnection::reconnect()
{
    if (m_client || !m_wanted())
        return;
    int avahiError = 0;
    // Waits in the connecting state until the daemon shows up on the bus.
    AvahiClient *client = avahi_client_new(m_poll->api(), AVAHI_CLIENT_NO_FAIL, &AvahiConnectionGlue::client, this,
                                           &avahiError);
    if (!client) {
        m_reconnectTimer->start(kReconnectRetryMs);
        return;
    }
    m_client = client;
}
