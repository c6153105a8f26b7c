#pragma once

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QVariantMap>

class QHostAddress;
class QTcpServer;
class QTcpSocket;
struct ServerError;

// The socket behind an advertised service: a TCP listener on a port the
// system chooses, and the one stream pair (a socket both ways) of a peer that
// connected to it or that we connected to. Incoming bytes are read and dropped.
class ServiceStreams : public QObject
{
    Q_OBJECT

public:
    explicit ServiceStreams(QObject *parent = nullptr);

    // Opens a fresh listener on every IPv4 address; false with the error.
    bool listen(ServerError *error);
    void closeListener();
    bool isListening() const { return m_listener != nullptr; }
    quint16 port() const { return m_port; }

    // Opens a stream pair to the address, replacing any other.
    void connectTo(const QHostAddress &address, quint16 port);
    void closeStreams();
    // Writes the bytes in one write to the connected peer.
    bool send(const QByteArray &data, ServerError *error);

    int payloadSize() const { return m_payloadSize; }
    void setPayloadSize(int size) { m_payloadSize = size; }
    bool inputReady() const { return m_inputReady; }
    bool outputReady() const { return m_outputReady; }
    bool outputHasSpace() const { return m_outputHasSpace; }

signals:
    void opened();
    // The stream failed: "code" and "message" of the socket error.
    void failed(const QVariantMap &info);
    // The peer closed the stream in order.
    void ended();

private:
    void adopt(QTcpSocket *socket);
    void markOpen();
    void readAndDrop();

    QTcpServer *m_listener = nullptr;
    quint16 m_port = 0;
    int m_payloadSize = 128;
    QPointer<QTcpSocket> m_stream;
    QByteArray m_received;                      // read and dropped
    bool m_inputReady = false;
    bool m_outputReady = false;
    bool m_outputHasSpace = false;
};
