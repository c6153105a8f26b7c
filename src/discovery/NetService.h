#pragma once

#include <QHostAddress>
#include <QList>
#include <QString>

#include <memory>

// A service found on the network by a browser: what the browser reported,
// and what a resolve added. Shared between the browser and its delegate.
class NetService
{
public:
    // Where the browser saw it; a service seen on several interfaces or
    // over both IP versions is one NetService with several of these.
    struct Sighting
    {
        int interfaceIndex = -1; // kernel interface index
        int protocol = -1;       // Avahi protocol (IPv4 0, IPv6 1)
        bool operator==(const Sighting &) const = default;
    };

    QString name;                // instance name, untrusted text from the network
    QString type;                // service type without trailing dot ("_TidewaveServer._tcp")
    QString domain;              // browse domain ("local")
    QList<Sighting> sightings;   // every place the browser currently reports it
    QString hostName;            // target host, set by a resolve
    quint16 port = 0;            // target port, set by a resolve
    QList<QHostAddress> addresses; // resolved addresses, empty until resolved

    // Same service: same name, type and domain.
    bool isEqual(const NetService &other) const
    {
        return name == other.name && type == other.type && domain == other.domain;
    }
};

using NetServicePtr = std::shared_ptr<NetService>;
