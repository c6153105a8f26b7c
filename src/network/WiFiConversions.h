#pragma once

#include <QByteArray>
#include <QString>

#include <limits>
#include <optional>

// How a frame was sent, as the station's transmit bit-rate info says.
struct TxRateInfo
{
    enum class Kind { None, Legacy, HT, VHT, HE, EHT };
    Kind kind = Kind::None;      // None when the driver reported no rate
    quint32 bitrate100kbps = 0;  // total bit rate in units of 100 kbit/s
};

// Pure conversions from nl80211 values to the link codes of WiFiLinkState.
namespace WiFiConversions {

// Channel number of a centre frequency in MHz (2.4, 5, 6 and 60 GHz bands);
// 0 for a frequency outside them.
quint64 channelFromFrequency(int megahertz);

// Interface mode code of an nl80211 interface type: station 1, IBSS 2,
// access point 3, anything else 0.
qint64 interfaceModeFromType(int nl80211InterfaceType);

// PHY mode code: EHT 7, HE 6, VHT 5, HT 4; legacy rates give 1 (802.11a) on
// 5/6 GHz, 2 (802.11b) for 1, 2, 5.5 and 11 Mbit/s on 2.4 GHz, else 3 (g);
// 0 when there is no rate.
qint64 phyModeFromRate(const TxRateInfo &rate, int megahertz);

// The bit rate in Mbit/s.
double megabitsFromRate(const TxRateInfo &rate);

// Transmit power in mW (rounded) of a level in mBm (hundredths of a dBm).
qint64 milliwattsFromMbm(int mbm);

// The security code of a BSS from its information elements (RSN and WPA
// elements) and the privacy bit of its capability field.
qint64 securityFromElements(const QByteArray &informationElements, bool privacy);

// The security code the interface reports for a protection it cannot name.
constexpr qint64 kSecurityUnknown = std::numeric_limits<qint64>::max();

// "aa:bb:cc:dd:ee:ff" of a 6-byte hardware address; none for other sizes.
QString macText(const QByteArray &address);

// The SSID element (id 0) of a BSS's information elements; none if absent.
std::optional<QByteArray> ssidFromElements(const QByteArray &informationElements);

} // namespace WiFiConversions
