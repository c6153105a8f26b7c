#pragma once

#include "discovery/NetService.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

class AvahiConnection;
class ServerDelegate;
class ServiceBrowser;
class ServicePublisher;
class ServiceStreams;

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
//
// The jobs are separate parts that this object ties together: the connection
// to the daemon, the publisher, the browser (and resolver), and the streams.
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
    quint16 port() const;                                // port of the listening socket
    int payloadSize() const;                             // read chunk size
    void setPayloadSize(int size);
    NetServicePtr localService() const { return m_localService; }
    NetServicePtr currentlyResolvingService() const;
    bool isPublished() const;
    bool isBrowsing() const;
    bool inputStreamReady() const;
    bool outputStreamReady() const;
    bool outputStreamHasSpace() const;

private:
    bool publishNetService(ServerError *error);
    void stopNetService();
    void republish();
    void browse();
    void published();
    void publishFailed(int avahiError);
    void daemonLost();
    void streamOpened();
    void streamFailed(const QVariantMap &info);
    void streamEnded();
    void reportDidNotStart(int avahiError);
    QString ownName() const;
    QString avahiType() const;

    QString m_domain;
    QString m_protocol;
    QString m_name;
    QString m_iPerfIP;
    QString m_iPerfport;
    ServerDelegate *m_delegate = nullptr;

    // The jobs, each a child of this object.
    AvahiConnection *m_connection = nullptr;
    ServicePublisher *m_publisher = nullptr;
    ServiceBrowser *m_browser = nullptr;
    ServiceStreams *m_streams = nullptr;
    bool m_publishWanted = false;               // publish again once the daemon is back
    bool m_browseWanted = false;                // browse again once the daemon is back
    NetServicePtr m_localService;
};
