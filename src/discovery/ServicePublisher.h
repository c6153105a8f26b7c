#pragma once

#include <QObject>
#include <QString>

class AvahiConnection;
struct AvahiEntryGroup;

// The advertisement of one DNS-SD service through avahi-daemon: its entry
// group, and what the daemon says of it.
class ServicePublisher : public QObject
{
    Q_OBJECT

public:
    ServicePublisher(AvahiConnection *connection, QObject *parent = nullptr);

    // Registers the service (the daemon must be running); AVAHI_OK, or
    // Avahi's error number. Replaces an earlier registration.
    int publish(const QString &name, const QString &type, const QString &domain, quint16 port);
    // Withdraws the advertisement.
    void withdraw();
    // The connection went, and the group with it.
    void forget() { m_group = nullptr; }
    bool isPublished() const { return m_group != nullptr; }

signals:
    void established();
    // Refused after registration: a name collision, or the daemon's failure.
    void failed(int avahiError);

private:
    friend struct ServicePublisherGlue;
    void groupStateChanged(AvahiEntryGroup *group, int state);

    AvahiConnection *m_connection;
    AvahiEntryGroup *m_group = nullptr;
};
