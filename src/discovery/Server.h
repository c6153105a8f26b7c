#pragma once

#include "discovery/NetService.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <memory>

class AvahiQtPoll;
class ServerDelegate;
class QTcpServer;
class QTcpSocket;
class QTimer;
struct AvahiClient;
struct AvahiEntryGroup;
struct AvahiServiceBrowser;
struct AvahiServiceResolver;

// An error of the Bonjour service object.
struct ServerError
{
    QString domain;       // "ServerErrorDomain", or "Avahi" for the daemon's own errors
    int code = 0;         // see Server::ErrorCode; Avahi's error number for "Avahi"
    QVariantMap userInfo; // "message" and, for stream errors, the socket error "code"

    QString toString() const;
};

// Advertises this computer as a DNS-SD service whose instance name carries
// what a peer needs to test against it, and browses for the same type. Behind
// the advertisement is a TCP listening socket on a system-chosen port; a peer
// that connects gets a stream pair whose incoming bytes are dropped, and the
// advertisement is withdrawn while it stays connected.
//
// Runs on the thread that creates it (the main thread) through the Qt event
// loop; talks to avahi-daemon over D-Bus. Without the daemon, start() fails
// with a logged error; a daemon that goes away while we publish is waited for
// and the service republished when it returns.
class Server : public QObject
{
    Q_OBJECT

public:
    static inline const QString ErrorDomain = QStringLiteral("ServerErrorDomain");
    static inline const QString AvahiErrorDomain = QStringLiteral("Avahi");
    enum ErrorCode {
        BindFailed = 1,     // the listening socket could not be bound
        CreateFailed = 3,   // the listening socket could not be created
        WriteFailed = 4,    // a write failed, or the output stream had no space
        NothingWritten = 5, // a write wrote nothing
    };

    // Type "_Server._tcp.", default domain, empty name.
    explicit Server(QObject *parent = nullptr);
    Server(const QString &domain, const QString &protocol, const QString &name, QObject *parent = nullptr);
    // Type "_<protocolWord>._tcp." publishing the instance name `options`.
    static std::unique_ptr<Server> withProtocol(const QString &protocolWord, const QString &options);
    // Teardown: stop(), stopBrowser(), and the names cleared.
    ~Server() override;

    // Opens the listening socket and publishes; false with the error when the
    // socket cannot be made or the service cannot be registered. A name
    // collision is reported later through serverDidNotStart.
    bool start(ServerError *error = nullptr);
    // Withdraws the advertisement, closes the socket and streams, tells the
    // delegate serverStopped. The browser keeps running.
    void stop();
    // Stops browsing; forgets the local service and any resolve in progress.
    void stopBrowser();
    // Writes the bytes in one write to the connected peer.
    bool sendData(const QByteArray &data, ServerError *error = nullptr);
    // Resolves a discovered service (2.0 s time-out) and opens a stream pair
    // to it.
    void connectToRemoteService(const NetServicePtr &service);
    // The service's first resolved address as text, "" when none.
    static QString getAddress(const NetServicePtr &service);

    ServerDelegate *delegate() const { return m_delegate; }
    void setDelegate(ServerDelegate *delegate) { m_delegate = delegate; }

    QString domain() const { return m_domain; }          // "" = the default domain
    QString protocol() const { return m_protocol; }      // "_TidewaveServer._tcp."
    QString name() const { return m_name; }              // name as registered (set on publish)
    QString iPerfIP() const { return m_iPerfIP; }        // instance name to publish
    void setIPerfIP(const QString &name) { m_iPerfIP = name; }
    QString iPerfport() const { return m_iPerfport; }    // kept for compatibility; unused
    void setIPerfport(const QString &port) { m_iPerfport = port; }
    quint16 port() const { return m_port; }              // port of the listening socket
    int payloadSize() const { return m_payloadSize; }    // read chunk size
    void setPayloadSize(int size) { m_payloadSize = size; }
    NetServicePtr localService() const { return m_localService; }
    NetServicePtr currentlyResolvingService() const { return m_currentlyResolvingService; }
    bool isPublished() const { return m_group != nullptr; }
    bool isBrowsing() const { return m_browser != nullptr; }
    bool inputStreamReady() const { return m_inputStreamReady; }
    bool outputStreamReady() const { return m_outputStreamReady; }
    bool outputStreamHasSpace() const { return m_outputStreamHasSpace; }

private:
    struct BrowserEvent
    {
        bool added = false;
        NetServicePtr service;
    };

    bool ensureClient(ServerError *error);
    void scheduleReconnect(int delayMs);
    void scheduleFlush();
    void dropClient();
    void reconnect();
    bool publishNetService(ServerError *error);
    void stopNetService();
    void searchForServicesOfType(const QString &type);
    void connectedToStream(QTcpSocket *socket);
    void stopStreams();
    void acceptConnection();
    void streamOpened();
    void streamReadable();
    void streamError();
    void streamEnded();
    void stopResolving();
    void resolveTimedOut();
    void flushBrowserEvents();
    void forgetBrowsedServices(bool reportRemovals);

    // Avahi's callbacks enter through this (defined with Avahi's own types).
    friend struct AvahiGlue;
    void clientStateChanged(AvahiClient *client, int state);
    void groupStateChanged(AvahiEntryGroup *group, int state);
    void browseEvent(int interface, int protocol, int event, const char *name, const char *type, const char *domain);
    void resolveEvent(AvahiServiceResolver *resolver, int interface, int event, const char *hostName,
                      const QString &address, quint16 port);
    int publishWithClient();
    void reportDidNotStart(int avahiError);
    QString ownName() const;
    QVariantMap avahiErrorDict(int avahiError) const;

    QString m_domain;
    QString m_protocol;
    QString m_name;
    QString m_iPerfIP;
    QString m_iPerfport;
    quint16 m_port = 0;
    int m_payloadSize = 128;
    ServerDelegate *m_delegate = nullptr;

    std::unique_ptr<AvahiQtPoll> m_poll;
    AvahiClient *m_client = nullptr;
    AvahiEntryGroup *m_group = nullptr;         // the published service
    AvahiServiceBrowser *m_browser = nullptr;
    AvahiServiceResolver *m_resolver = nullptr;
    QTimer *m_resolveTimer = nullptr;           // 2.0 s limit on a resolve
    QTimer *m_reconnectTimer = nullptr;         // retries while avahi-daemon is gone
    QTimer *m_settleTimer = nullptr;            // ends a first batch that never announced its end
    QList<AvahiClient *> m_deadClients;         // failed clients, freed outside their callback
    bool m_publishWanted = false;               // publish again once the daemon is back
    bool m_browseWanted = false;                // browse again once the daemon is back

    NetServicePtr m_localService;
    NetServicePtr m_currentlyResolvingService;
    QList<NetServicePtr> m_browsed;             // services the current browser reports
    QList<BrowserEvent> m_pendingEvents;        // browser events not yet told to the delegate
    bool m_browserSettled = false;              // the browser's first batch has ended
    bool m_flushScheduled = false;
    int m_flushPostponed = 0;
    quint64 m_browserGeneration = 0;            // changes whenever the browser is dropped

    QTcpServer *m_listener = nullptr;
    QPointer<QTcpSocket> m_stream;              // the connected pair (one socket both ways)
    QByteArray m_received;                      // read and dropped
    bool m_inputStreamReady = false;
    bool m_outputStreamReady = false;
    bool m_outputStreamHasSpace = false;
};
