#include "network/Nl80211Parser.h"

#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include <linux/nl80211.h>

namespace {

// The 802.11 capability field's privacy bit.
constexpr quint16 kCapabilityPrivacy = 1u << 4;

bool parseTopLevel(nlmsghdr *message, int command, nlattr **attributes)
{
    if (!message || message->nlmsg_len < NLMSG_HDRLEN + GENL_HDRLEN)
        return false;
    const auto *header = static_cast<const genlmsghdr *>(nlmsg_data(message));
    if (header->cmd != command)
        return false;
    return genlmsg_parse(message, 0, attributes, NL80211_ATTR_MAX, nullptr) == 0;
}

QByteArray bytesOf(const nlattr *attribute)
{
    return QByteArray(static_cast<const char *>(nla_data(attribute)), nla_len(attribute));
}

TxRateInfo rateFrom(nlattr *nested)
{
    nlattr *rate[NL80211_RATE_INFO_MAX + 1] = {};
    TxRateInfo info;
    if (nla_parse_nested(rate, NL80211_RATE_INFO_MAX, nested, nullptr) != 0)
        return info;
    if (rate[NL80211_RATE_INFO_BITRATE32])
        info.bitrate100kbps = nla_get_u32(rate[NL80211_RATE_INFO_BITRATE32]);
    else if (rate[NL80211_RATE_INFO_BITRATE])
        info.bitrate100kbps = nla_get_u16(rate[NL80211_RATE_INFO_BITRATE]);
    if (rate[NL80211_RATE_INFO_EHT_MCS])
        info.kind = TxRateInfo::Kind::EHT;
    else if (rate[NL80211_RATE_INFO_HE_MCS])
        info.kind = TxRateInfo::Kind::HE;
    else if (rate[NL80211_RATE_INFO_VHT_MCS])
        info.kind = TxRateInfo::Kind::VHT;
    else if (rate[NL80211_RATE_INFO_MCS])
        info.kind = TxRateInfo::Kind::HT;
    else if (rate[NL80211_RATE_INFO_BITRATE32] || rate[NL80211_RATE_INFO_BITRATE])
        info.kind = TxRateInfo::Kind::Legacy;
    return info;
}

} // namespace

namespace Nl80211Parser {

std::optional<Nl80211InterfaceFacts> parseInterface(nlmsghdr *message)
{
    nlattr *attributes[NL80211_ATTR_MAX + 1] = {};
    if (!parseTopLevel(message, NL80211_CMD_NEW_INTERFACE, attributes) || !attributes[NL80211_ATTR_IFINDEX])
        return std::nullopt;
    Nl80211InterfaceFacts facts;
    facts.interfaceIndex = int(nla_get_u32(attributes[NL80211_ATTR_IFINDEX]));
    if (attributes[NL80211_ATTR_IFTYPE])
        facts.interfaceType = int(nla_get_u32(attributes[NL80211_ATTR_IFTYPE]));
    if (attributes[NL80211_ATTR_SSID])
        facts.ssid = bytesOf(attributes[NL80211_ATTR_SSID]);
    if (attributes[NL80211_ATTR_WIPHY_FREQ])
        facts.frequency = int(nla_get_u32(attributes[NL80211_ATTR_WIPHY_FREQ]));
    if (attributes[NL80211_ATTR_WIPHY_TX_POWER_LEVEL])
        facts.txPowerMbm = int(nla_get_u32(attributes[NL80211_ATTR_WIPHY_TX_POWER_LEVEL]));
    return facts;
}

std::optional<Nl80211BssFacts> parseScanResult(nlmsghdr *message)
{
    nlattr *attributes[NL80211_ATTR_MAX + 1] = {};
    if (!parseTopLevel(message, NL80211_CMD_NEW_SCAN_RESULTS, attributes) || !attributes[NL80211_ATTR_BSS])
        return std::nullopt;
    nlattr *bss[NL80211_BSS_MAX + 1] = {};
    if (nla_parse_nested(bss, NL80211_BSS_MAX, attributes[NL80211_ATTR_BSS], nullptr) != 0 || !bss[NL80211_BSS_BSSID])
        return std::nullopt;
    Nl80211BssFacts facts;
    facts.bssid = bytesOf(bss[NL80211_BSS_BSSID]);
    if (bss[NL80211_BSS_FREQUENCY])
        facts.frequency = int(nla_get_u32(bss[NL80211_BSS_FREQUENCY]));
    if (bss[NL80211_BSS_STATUS]) {
        const quint32 status = nla_get_u32(bss[NL80211_BSS_STATUS]);
        facts.associated = status == NL80211_BSS_STATUS_ASSOCIATED || status == NL80211_BSS_STATUS_IBSS_JOINED;
    }
    if (bss[NL80211_BSS_CAPABILITY])
        facts.privacy = nla_get_u16(bss[NL80211_BSS_CAPABILITY]) & kCapabilityPrivacy;
    if (bss[NL80211_BSS_INFORMATION_ELEMENTS])
        facts.informationElements = bytesOf(bss[NL80211_BSS_INFORMATION_ELEMENTS]);
    else if (bss[NL80211_BSS_BEACON_IES])
        facts.informationElements = bytesOf(bss[NL80211_BSS_BEACON_IES]);
    if (bss[NL80211_BSS_SIGNAL_MBM])
        facts.signalMbm = int(nla_get_u32(bss[NL80211_BSS_SIGNAL_MBM]));
    return facts;
}

std::optional<Nl80211StationFacts> parseStation(nlmsghdr *message)
{
    nlattr *attributes[NL80211_ATTR_MAX + 1] = {};
    if (!parseTopLevel(message, NL80211_CMD_NEW_STATION, attributes) || !attributes[NL80211_ATTR_STA_INFO])
        return std::nullopt;
    nlattr *info[NL80211_STA_INFO_MAX + 1] = {};
    if (nla_parse_nested(info, NL80211_STA_INFO_MAX, attributes[NL80211_ATTR_STA_INFO], nullptr) != 0)
        return std::nullopt;
    Nl80211StationFacts facts;
    if (info[NL80211_STA_INFO_SIGNAL])
        facts.signalDbm = int(qint8(nla_get_u8(info[NL80211_STA_INFO_SIGNAL])));
    if (info[NL80211_STA_INFO_TX_BITRATE])
        facts.txRate = rateFrom(info[NL80211_STA_INFO_TX_BITRATE]);
    return facts;
}

std::optional<Nl80211SurveyFacts> parseSurvey(nlmsghdr *message)
{
    nlattr *attributes[NL80211_ATTR_MAX + 1] = {};
    if (!parseTopLevel(message, NL80211_CMD_NEW_SURVEY_RESULTS, attributes) || !attributes[NL80211_ATTR_SURVEY_INFO])
        return std::nullopt;
    nlattr *survey[NL80211_SURVEY_INFO_MAX + 1] = {};
    if (nla_parse_nested(survey, NL80211_SURVEY_INFO_MAX, attributes[NL80211_ATTR_SURVEY_INFO], nullptr) != 0)
        return std::nullopt;
    Nl80211SurveyFacts facts;
    if (survey[NL80211_SURVEY_INFO_FREQUENCY])
        facts.frequency = int(nla_get_u32(survey[NL80211_SURVEY_INFO_FREQUENCY]));
    facts.inUse = survey[NL80211_SURVEY_INFO_IN_USE] != nullptr;
    if (survey[NL80211_SURVEY_INFO_NOISE])
        facts.noiseDbm = int(qint8(nla_get_u8(survey[NL80211_SURVEY_INFO_NOISE])));
    return facts;
}

WiFiLinkState linkState(const Nl80211InterfaceFacts &interface, const std::optional<Nl80211BssFacts> &bss,
                        const std::optional<Nl80211StationFacts> &station,
                        const std::optional<Nl80211SurveyFacts> &survey)
{
    WiFiLinkState state;
    state.interfaceMode = WiFiConversions::interfaceModeFromType(interface.interfaceType);
    if (interface.txPowerMbm)
        state.transmitPower = WiFiConversions::milliwattsFromMbm(*interface.txPowerMbm);
    const int frequency = interface.frequency ? interface.frequency : (bss ? bss->frequency : 0);
    state.channelNumber = WiFiConversions::channelFromFrequency(frequency);
    if (!bss)
        return state;

    state.bssid = WiFiConversions::macText(bss->bssid);
    state.security = WiFiConversions::securityFromElements(bss->informationElements, bss->privacy);
    const std::optional<QByteArray> ssid =
        interface.ssid ? interface.ssid : WiFiConversions::ssidFromElements(bss->informationElements);
    if (ssid)
        state.ssid = QString::fromUtf8(*ssid);
    if (station) {
        state.activePHYMode = WiFiConversions::phyModeFromRate(station->txRate, frequency);
        state.transmitRate = WiFiConversions::megabitsFromRate(station->txRate);
    }
    if (station && station->signalDbm)
        state.rssiValue = *station->signalDbm;
    else if (bss->signalMbm)
        state.rssiValue = *bss->signalMbm / 100;
    if (survey && survey->inUse && survey->noiseDbm)
        state.noiseMeasurement = *survey->noiseDbm;
    return state;
}

} // namespace Nl80211Parser
