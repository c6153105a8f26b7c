#pragma once

#include "network/WiFiInterface.h"
#include "records/PerfResult.h"

#include <QMap>
#include <QString>

// Stamps results with the Wi-Fi link's state, and the text-based reader of
// the same data. The client tab opens its current interface with
// Nl80211Interface::interfaceWithName (the first inventory entry's BSD name)
// and calls populateWiFiInterfaceInfo for results over "WiFi".
class WiFiLinkInformation
{
public:
    // Writes the ten link fields of the result from the interface as it is
    // now, in the order mode, security, PHY mode, SSID, channel, BSSID,
    // rate, RSSI, noise, power; leaves the result untouched without an
    // interface. Answers the same result.
    static PerfResult &populateWiFiInterfaceInfo(PerfResult &result, WiFiInterface *currentInterface);
    static PerfResultPtr populateWiFiInterfaceInfo(const PerfResultPtr &result, WiFiInterface *currentInterface);

    // The SSID, or "" when there is none.
    static QString normalizeSSID(const QString &ssid);
    // Parts of one character get a leading "0", then upper case:
    // "0:1b:2c:3:4d:e" → "00:1B:2C:03:4D:0E"; none gives "".
    static QString normalizeMAC(const QString &mac);

    // The text-based reader: runs the Wi-Fi status command and picks its
    // values. They are held only while it runs (nothing reads them).
    static void executeAirPortCommand();
    // The values the reader takes from the command's output, by marker
    // ("MCS:", "agrCtlNoise:", "agrCtlRSSI:", "lastTxRate:", "SSID:",
    // "BSSID:", "link auth:", "channel:").
    static QMap<QString, QString> parseAirPortOutput(const QString &output);
};
