#pragma once

#include <QString>

// The ten values of a Wi-Fi link at one moment, in the codes the result
// records and the detail view use. A default-constructed state is what a
// non-wireless, absent or unassociated interface gives: no values.
struct WiFiLinkState
{
    qint64 interfaceMode = 0;  // 0 none, 1 station, 2 IBSS, 3 host access point
    qint64 security = 0;       // 0 open, 1 WEP, 2 WPA, 3 WPA/WPA2, 4 WPA2, 7/8/9 enterprise, 11.. WPA3
    qint64 activePHYMode = 0;  // 0 none, 1 a, 2 b, 3 g, 4 n, 5 ac, 6 ax, 7 be
    QString ssid;              // network name; none when not associated
    quint64 channelNumber = 0; // channel of the operating frequency; 0 when unknown
    QString bssid;             // access point address "aa:bb:..."; none when not associated
    double transmitRate = 0;   // last transmit bit rate, Mbit/s
    qint64 rssiValue = 0;      // signal of the access point, dBm
    qint64 noiseMeasurement = 0; // noise on the channel in use, dBm; 0 when the driver gives none
    qint64 transmitPower = 0;  // transmit power, mW
};
