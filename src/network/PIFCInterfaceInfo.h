#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <memory>

// One network interface of this computer, as the inventory merges it from the
// configuration listing, the hardware ports and the network profile.
// A null QString stands for "none".
class PIFCInterfaceInfo
{
public:
    QString BSDName;         // kernel interface name ("eth0"); the merge key
    QString IPAdress;        // last IPv4 address listed for the interface
    QString MacAdress;       // hardware address as the listing printed it
    QString status;          // "active"/"inactive", "" when not listed
    QString type;            // profile "type"; "" or none when unknown
    QString displayName;     // hardware-port or service name, "VPN", "WiFi"
    qint64 serviceOrder = 0; // position in the service order; 0 is first

    // A field that is none prints as "(null)", the way the record always
    // printed a missing value; an empty field prints as nothing.
    QString toString() const
    {
        const auto text = [](const QString &value) {
            return value.isNull() ? QStringLiteral("(null)") : value;
        };
        return QStringLiteral("BSDName=%1,DisplayName=%2,MAC=%3,IP=%4, Status=%5,type=%6,serviceOrder=%7")
            .arg(text(BSDName), text(displayName), text(MacAdress), text(IPAdress), text(status), text(type))
            .arg(serviceOrder);
    }
};

// Records are shared between the inventory's maps and its callers.
using PIFCInterfaceInfoPtr = std::shared_ptr<PIFCInterfaceInfo>;
using PIFCInterfaceInfoList = QList<PIFCInterfaceInfoPtr>;

// Carried in the "message" payload of "updateBonjour".
Q_DECLARE_METATYPE(PIFCInterfaceInfoList)
