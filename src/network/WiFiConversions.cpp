#include "network/WiFiConversions.h"

#include <cmath>

#include <linux/nl80211.h>

namespace WiFiConversions {

quint64 channelFromFrequency(int megahertz)
{
    if (megahertz == 2484)
        return 14;
    if (megahertz >= 2412 && megahertz < 2484)
        return quint64(megahertz - 2407) / 5;
    // Japan's 4.9 GHz channels are numbered from 4000 MHz.
    if (megahertz >= 4910 && megahertz <= 4980)
        return quint64(megahertz - 4000) / 5;
    if (megahertz >= 5150 && megahertz <= 5895)
        return quint64(megahertz - 5000) / 5;
    if (megahertz == 5935)
        return 2;
    if (megahertz >= 5955 && megahertz <= 7115)
        return quint64(megahertz - 5950) / 5;
    if (megahertz >= 58320 && megahertz <= 70200)
        return quint64(megahertz - 56160) / 2160;
    return 0;
}

qint64 interfaceModeFromType(int nl80211InterfaceType)
{
    switch (nl80211InterfaceType) {
    case NL80211_IFTYPE_STATION:
        return 1;
    case NL80211_IFTYPE_ADHOC:
        return 2;
    case NL80211_IFTYPE_AP:
        return 3;
    default:
        return 0;
    }
}

qint64 phyModeFromRate(const TxRateInfo &rate, int megahertz)
{
    switch (rate.kind) {
    case TxRateInfo::Kind::None:
        return 0;
    case TxRateInfo::Kind::EHT:
        return 7;
    case TxRateInfo::Kind::HE:
        return 6;
    case TxRateInfo::Kind::VHT:
        return 5;
    case TxRateInfo::Kind::HT:
        return 4;
    case TxRateInfo::Kind::Legacy:
        break;
    }
    if (megahertz >= 4900)
        return 1;
    switch (rate.bitrate100kbps) {
    case 10:
    case 20:
    case 55:
    case 110:
        return 2;
    default:
        return 3;
    }
}

double megabitsFromRate(const TxRateInfo &rate)
{
    return rate.bitrate100kbps / 10.0;
}

qint64 milliwattsFromMbm(int mbm)
{
    return qint64(std::lround(std::pow(10.0, mbm / 1000.0)));
}

namespace {

enum Protection : unsigned {
    Personal = 1u << 0,
    Enterprise = 1u << 1,
    Sae = 1u << 2,
    SuiteB = 1u << 3,
    Owe = 1u << 4,
    Other = 1u << 5,
};

// Key-management suites of an RSN or WPA element body, starting at the
// version field. A body that ends before its suite list uses the default
// suite (802.1X), as the standard says.
unsigned akmSuites(const QByteArray &body, const QByteArray &oui, bool rsn)
{
    qsizetype pos = 2 + 4; // version, group cipher
    if (body.size() < pos + 2)
        return Enterprise;
    const auto count = [&](qsizetype at) {
        return qsizetype(quint8(body[at])) | qsizetype(quint8(body[at + 1])) << 8;
    };
    pos += 2 + 4 * count(pos); // pairwise ciphers
    if (body.size() < pos + 2)
        return Enterprise;
    const qsizetype suites = count(pos);
    pos += 2;
    unsigned found = 0;
    for (qsizetype i = 0; i < suites && pos + 4 <= body.size(); ++i, pos += 4) {
        if (body.mid(pos, 3) != oui) {
            found |= Other;
            continue;
        }
        const int type = quint8(body[pos + 3]);
        if (!rsn) {
            found |= type == 1 ? Enterprise : type == 2 ? Personal : Other;
            continue;
        }
        switch (type) {
        case 1: case 3: case 5:
            found |= Enterprise;
            break;
        case 2: case 4: case 6:
            found |= Personal;
            break;
        case 8: case 9: case 24: case 25:
            found |= Sae;
            break;
        case 11: case 12: case 13:
            found |= SuiteB;
            break;
        case 18:
            found |= Owe;
            break;
        default:
            found |= Other;
            break;
        }
    }
    return found;
}

// Calls visit(id, body) for every complete element.
template<typename Visit>
void forEachElement(const QByteArray &elements, Visit visit)
{
    qsizetype pos = 0;
    while (pos + 2 <= elements.size()) {
        const int id = quint8(elements[pos]);
        const qsizetype length = quint8(elements[pos + 1]);
        if (pos + 2 + length > elements.size())
            break;
        visit(id, elements.mid(pos + 2, length));
        pos += 2 + length;
    }
}

} // namespace

qint64 securityFromElements(const QByteArray &informationElements, bool privacy)
{
    static const QByteArray rsnOui("\x00\x0f\xac", 3);
    static const QByteArray wpaOui("\x00\x50\xf2", 3);
    std::optional<unsigned> rsn;
    std::optional<unsigned> wpa;
    forEachElement(informationElements, [&](int id, const QByteArray &body) {
        if (id == 48)
            rsn = akmSuites(body, rsnOui, true);
        else if (id == 221 && body.size() >= 4 && body.left(3) == wpaOui && quint8(body[3]) == 1)
            wpa = akmSuites(body.mid(4), wpaOui, false);
    });

    if (rsn) {
        if (*rsn & Sae)
            return (*rsn & Personal) ? 13 : 11;
        if (*rsn & SuiteB)
            return 12;
        if (*rsn & Owe)
            return 14;
        if (*rsn & Personal)
            return (wpa && (*wpa & Personal)) ? 3 : 4;
        if (*rsn & Enterprise)
            return (wpa && (*wpa & Enterprise)) ? 8 : 9;
        return kSecurityUnknown;
    }
    if (wpa) {
        if (*wpa & Personal)
            return 2;
        if (*wpa & Enterprise)
            return 7;
        return kSecurityUnknown;
    }
    return privacy ? 1 : 0;
}

QString macText(const QByteArray &address)
{
    if (address.size() != 6)
        return {};
    return QString::fromLatin1(address.toHex(':'));
}

std::optional<QByteArray> ssidFromElements(const QByteArray &informationElements)
{
    std::optional<QByteArray> ssid;
    forEachElement(informationElements, [&](int id, const QByteArray &body) {
        if (id == 0 && !ssid)
            ssid = body;
    });
    return ssid;
}

} // namespace WiFiConversions
