#pragma once

#include "network/WiFiConversions.h"
#include "network/WiFiLinkState.h"

#include <QByteArray>

#include <optional>

struct nlmsghdr;

// What an NL80211_CMD_NEW_INTERFACE answer says about the interface.
struct Nl80211InterfaceFacts
{
    int interfaceIndex = 0;         // NL80211_ATTR_IFINDEX
    int interfaceType = -1;         // NL80211_ATTR_IFTYPE; -1 when absent
    std::optional<QByteArray> ssid; // NL80211_ATTR_SSID (set while connected)
    int frequency = 0;              // NL80211_ATTR_WIPHY_FREQ, MHz; 0 when absent
    std::optional<int> txPowerMbm;  // NL80211_ATTR_WIPHY_TX_POWER_LEVEL
};

// One cached scan result (NL80211_CMD_NEW_SCAN_RESULTS) of the interface.
struct Nl80211BssFacts
{
    QByteArray bssid;               // NL80211_BSS_BSSID, 6 bytes
    int frequency = 0;              // NL80211_BSS_FREQUENCY, MHz
    bool associated = false;        // NL80211_BSS_STATUS is associated or IBSS joined
    bool privacy = false;           // privacy bit of NL80211_BSS_CAPABILITY
    QByteArray informationElements; // NL80211_BSS_INFORMATION_ELEMENTS (or beacon IEs)
    std::optional<int> signalMbm;   // NL80211_BSS_SIGNAL_MBM
};

// The station entry of the access point (NL80211_CMD_NEW_STATION).
struct Nl80211StationFacts
{
    std::optional<int> signalDbm; // NL80211_STA_INFO_SIGNAL
    TxRateInfo txRate;            // NL80211_STA_INFO_TX_BITRATE
};

// One survey entry (NL80211_CMD_NEW_SURVEY_RESULTS).
struct Nl80211SurveyFacts
{
    int frequency = 0;            // NL80211_SURVEY_INFO_FREQUENCY, MHz
    bool inUse = false;           // NL80211_SURVEY_INFO_IN_USE
    std::optional<int> noiseDbm;  // NL80211_SURVEY_INFO_NOISE
};

// Turns nl80211 answers into facts and facts into a link state. Messages are
// whole generic-netlink messages as the kernel sends them; a message of
// another command, or one missing its key attributes, gives none.
namespace Nl80211Parser {

std::optional<Nl80211InterfaceFacts> parseInterface(nlmsghdr *message);
std::optional<Nl80211BssFacts> parseScanResult(nlmsghdr *message);
std::optional<Nl80211StationFacts> parseStation(nlmsghdr *message);
std::optional<Nl80211SurveyFacts> parseSurvey(nlmsghdr *message);

// The ten values from what the interface, its associated BSS, the access
// point's station entry and the in-use survey entry said.
WiFiLinkState linkState(const Nl80211InterfaceFacts &interface, const std::optional<Nl80211BssFacts> &bss,
                        const std::optional<Nl80211StationFacts> &station,
                        const std::optional<Nl80211SurveyFacts> &survey);

} // namespace Nl80211Parser
