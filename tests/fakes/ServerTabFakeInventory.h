#pragma once

#include "network/NetworkInventoryProvider.h"

#include <QString>
#include <QStringList>

// An inventory provider that describes a machine with the interfaces it is
// given (name, hardware port, address, service order) in the three texts the
// inventory parses.
class ServerTabFakeInventory : public NetworkInventoryProvider
{
public:
    struct Interface
    {
        QString bsdName;
        QString port; // hardware-port and service name ("Wi-Fi", "Ethernet")
        QString address;
        int serviceOrder;
    };

    explicit ServerTabFakeInventory(QList<Interface> interfaces)
        : m_interfaces(std::move(interfaces))
    {
    }

    ProviderOutput configurationListing() override
    {
        QString text = QStringLiteral("lo: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 65536\n"
                                      "\tinet 127.0.0.1 netmask 0xff000000\n");
        int n = 0;
        for (const Interface &i : m_interfaces) {
            text += QStringLiteral("%1: flags=8863<UP,BROADCAST,RUNNING,MULTICAST> mtu 1500\n"
                                   "\tether 02:00:00:00:00:%2\n"
                                   "\tinet %3 netmask 0xffffff00 broadcast 0.0.0.0\n"
                                   "\tstatus: active\n")
                        .arg(i.bsdName)
                        .arg(++n, 2, 10, QLatin1Char('0'))
                        .arg(i.address);
        }
        return {text, {}};
    }

    ProviderOutput hardwarePortListing() override
    {
        QString text;
        for (const Interface &i : m_interfaces)
            text += QStringLiteral("\nHardware Port: %1\nDevice: %2\nEthernet Address: 02:00:00:00:00:00\n")
                        .arg(i.port, i.bsdName);
        return {text, {}};
    }

    ProviderOutput networkProfile() override
    {
        QString items;
        for (const Interface &i : m_interfaces) {
            items += QStringLiteral("<dict><key>_name</key><string>%1</string>"
                                    "<key>interface</key><string>%2</string>"
                                    "<key>spnetwork_service_order</key><integer>%3</integer>"
                                    "<key>type</key><string>Ethernet</string></dict>")
                         .arg(i.port, i.bsdName)
                         .arg(i.serviceOrder);
        }
        return {QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                               "<plist version=\"1.0\"><array><dict><key>_items</key><array>%1</array>"
                               "</dict></array></plist>\n")
                    .arg(items),
                {}};
    }

private:
    QList<Interface> m_interfaces;
};
