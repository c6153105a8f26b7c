#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class AvahiQtPoll;
class QTimer;
struct AvahiClient;

// A Server's one client of avahi-daemon, shared by its publisher and its
// browser. Made on demand; when the daemon (or the system bus under it) goes
// away it is made again, waiting for the daemon, for as long as the owner
// still wants it.
class AvahiConnection : public QObject
{
    Q_OBJECT

public:
    // `wanted` is asked before every attempt to come back.
    explicit AvahiConnection(std::function<bool()> wanted, QObject *parent = nullptr);
    ~AvahiConnection() override;

    // Connects unless connected; false, with Avahi's error number, when the
    // daemon is not there.
    bool open(int *avahiError = nullptr);
    AvahiClient *client() const { return m_client; }
    bool isRunning() const;
    // Avahi's text for the client's last error.
    QString lastError() const;
    // Whether Avahi has events received but not yet handed over.
    bool hasPendingWork() const;
    // Tries to come back after a loss, now and then every few seconds.
    void reconnectSoon();
    // Frees the client, and with it every group, browser and resolver of it.
    void close();

signals:
    // The daemon is ready: publish and browse (again).
    void running();
    // The daemon is renaming its host: published records must go.
    void renaming();
    // The connection is gone, and with it everything made through it.
    void lost();

private:
    friend struct AvahiConnectionGlue;
    void stateChanged(AvahiClient *client, int state);
    void reconnect();

    std::function<bool()> m_wanted;
    std::unique_ptr<AvahiQtPoll> m_poll;
    AvahiClient *m_client = nullptr;
    QTimer *m_reconnectTimer = nullptr;
    QList<AvahiClient *> m_deadClients; // failed clients, freed outside their callback
};
