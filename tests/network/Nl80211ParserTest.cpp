#include "network/Nl80211Parser.h"

#include <gtest/gtest.h>

#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>

#include <linux/nl80211.h>

#include <functional>
#include <memory>

namespace {

// A generic-netlink message of nl80211 as the kernel sends it, built with
// libnl; the family id is arbitrary, the parser does not look at it.
using Message = std::unique_ptr<nl_msg, decltype(&nlmsg_free)>;

Message build(int command, const std::function<void(nl_msg *)> &attributes)
{
    Message message(nlmsg_alloc(), &nlmsg_free);
    genlmsg_put(message.get(), 0, 1, 0x1c, 0, NLM_F_MULTI, quint8(command), 1);
    attributes(message.get());
    return message;
}

void nested(nl_msg *message, int type, const std::function<void()> &content)
{
    nlattr *start = nla_nest_start(message, type);
    content();
    nla_nest_end(message, start);
}

const QByteArray kBssid = QByteArray::fromHex("001b2c034d5e");
const QByteArray kRsnPsk = QByteArray::fromHex("3014" "0100" "000fac04" "0100" "000fac04" "0100" "000fac02" "0000");

Message interfaceMessage(int type = NL80211_IFTYPE_STATION)
{
    return build(NL80211_CMD_NEW_INTERFACE, [&](nl_msg *m) {
        nla_put_u32(m, NL80211_ATTR_IFINDEX, 3);
        nla_put_string(m, NL80211_ATTR_IFNAME, "wlan0");
        nla_put_u32(m, NL80211_ATTR_IFTYPE, quint32(type));
        nla_put(m, NL80211_ATTR_SSID, 7, "HomeNet");
        nla_put_u32(m, NL80211_ATTR_WIPHY_FREQ, 5745);
        nla_put_u32(m, NL80211_ATTR_WIPHY_TX_POWER_LEVEL, 2000);
    });
}

Message scanMessage(quint32 status, const QByteArray &elements, quint16 capability = 0x0011)
{
    return build(NL80211_CMD_NEW_SCAN_RESULTS, [&](nl_msg *m) {
        nla_put_u32(m, NL80211_ATTR_GENERATION, 7);
        nla_put_u32(m, NL80211_ATTR_IFINDEX, 3);
        nested(m, NL80211_ATTR_BSS, [&] {
            nla_put(m, NL80211_BSS_BSSID, int(kBssid.size()), kBssid.constData());
            nla_put_u32(m, NL80211_BSS_FREQUENCY, 5745);
            nla_put_u16(m, NL80211_BSS_CAPABILITY, capability);
            nla_put(m, NL80211_BSS_INFORMATION_ELEMENTS, int(elements.size()), elements.constData());
            nla_put_u32(m, NL80211_BSS_SIGNAL_MBM, quint32(-6100));
            nla_put_u32(m, NL80211_BSS_STATUS, status);
        });
    });
}

Message stationMessage(bool withSignal)
{
    return build(NL80211_CMD_NEW_STATION, [&](nl_msg *m) {
        nla_put_u32(m, NL80211_ATTR_IFINDEX, 3);
        nla_put(m, NL80211_ATTR_MAC, int(kBssid.size()), kBssid.constData());
        nested(m, NL80211_ATTR_STA_INFO, [&] {
            nla_put_u32(m, NL80211_STA_INFO_INACTIVE_TIME, 10);
            if (withSignal)
                nla_put_u8(m, NL80211_STA_INFO_SIGNAL, quint8(qint8(-52)));
            nested(m, NL80211_STA_INFO_TX_BITRATE, [&] {
                nla_put_u16(m, NL80211_RATE_INFO_BITRATE, 8667 & 0xffff);
                nla_put_u32(m, NL80211_RATE_INFO_BITRATE32, 8667);
                nla_put_u8(m, NL80211_RATE_INFO_VHT_MCS, 9);
                nla_put_u8(m, NL80211_RATE_INFO_VHT_NSS, 2);
                nla_put_flag(m, NL80211_RATE_INFO_80_MHZ_WIDTH);
                nla_put_flag(m, NL80211_RATE_INFO_SHORT_GI);
            });
        });
    });
}

Message surveyMessage(int frequency, bool inUse, std::optional<qint8> noise)
{
    return build(NL80211_CMD_NEW_SURVEY_RESULTS, [&](nl_msg *m) {
        nla_put_u32(m, NL80211_ATTR_IFINDEX, 3);
        nested(m, NL80211_ATTR_SURVEY_INFO, [&] {
            nla_put_u32(m, NL80211_SURVEY_INFO_FREQUENCY, quint32(frequency));
            if (noise)
                nla_put_u8(m, NL80211_SURVEY_INFO_NOISE, quint8(*noise));
            if (inUse)
                nla_put_flag(m, NL80211_SURVEY_INFO_IN_USE);
        });
    });
}

TEST(Nl80211Parser, AssociatedStationGivesAllTenValues)
{
    const auto interface = Nl80211Parser::parseInterface(nlmsg_hdr(interfaceMessage().get()));
    const auto bss = Nl80211Parser::parseScanResult(nlmsg_hdr(scanMessage(NL80211_BSS_STATUS_ASSOCIATED, kRsnPsk).get()));
    const auto station = Nl80211Parser::parseStation(nlmsg_hdr(stationMessage(true).get()));
    const auto survey = Nl80211Parser::parseSurvey(nlmsg_hdr(surveyMessage(5745, true, -92).get()));
    ASSERT_TRUE(interface && bss && station && survey);
    EXPECT_TRUE(bss->associated);

    const WiFiLinkState state = Nl80211Parser::linkState(*interface, bss, station, survey);
    EXPECT_EQ(state.interfaceMode, 1);
    EXPECT_EQ(state.security, 4);
    EXPECT_EQ(state.activePHYMode, 5);
    EXPECT_EQ(state.ssid, QStringLiteral("HomeNet"));
    EXPECT_EQ(state.channelNumber, 149u);
    EXPECT_EQ(state.bssid, QStringLiteral("00:1b:2c:03:4d:5e"));
    EXPECT_DOUBLE_EQ(state.transmitRate, 866.7);
    EXPECT_EQ(state.rssiValue, -52);
    EXPECT_EQ(state.noiseMeasurement, -92);
    EXPECT_EQ(state.transmitPower, 100);
}

TEST(Nl80211Parser, FallsBackToTheBssForSignalAndSsid)
{
    Message bare = build(NL80211_CMD_NEW_INTERFACE, [](nl_msg *m) {
        nla_put_u32(m, NL80211_ATTR_IFINDEX, 3);
        nla_put_u32(m, NL80211_ATTR_IFTYPE, NL80211_IFTYPE_STATION);
    });
    const QByteArray elements = QByteArray::fromHex("0006") + "Office" + kRsnPsk;
    const auto interface = Nl80211Parser::parseInterface(nlmsg_hdr(bare.get()));
    const auto bss = Nl80211Parser::parseScanResult(nlmsg_hdr(scanMessage(NL80211_BSS_STATUS_ASSOCIATED, elements).get()));
    const auto station = Nl80211Parser::parseStation(nlmsg_hdr(stationMessage(false).get()));
    ASSERT_TRUE(interface && bss && station);
    const WiFiLinkState state = Nl80211Parser::linkState(*interface, bss, station, std::nullopt);
    EXPECT_EQ(state.ssid, QStringLiteral("Office"));
    EXPECT_EQ(state.rssiValue, -61);
    EXPECT_EQ(state.channelNumber, 149u) << "the BSS's frequency when the interface gives none";
    EXPECT_EQ(state.noiseMeasurement, 0) << "no survey: no noise";
    EXPECT_EQ(state.transmitPower, 0);
}

TEST(Nl80211Parser, UnassociatedInterfaceGivesOnlyItsOwnValues)
{
    const auto interface = Nl80211Parser::parseInterface(nlmsg_hdr(interfaceMessage(NL80211_IFTYPE_AP).get()));
    const auto seen = Nl80211Parser::parseScanResult(nlmsg_hdr(scanMessage(0, kRsnPsk).get()));
    ASSERT_TRUE(interface && seen);
    EXPECT_FALSE(seen->associated) << "a BSS merely seen in a scan is not the link";
    const WiFiLinkState state = Nl80211Parser::linkState(*interface, std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(state.interfaceMode, 3);
    EXPECT_EQ(state.transmitPower, 100);
    EXPECT_TRUE(state.ssid.isNull());
    EXPECT_TRUE(state.bssid.isNull());
    EXPECT_EQ(state.security, 0);
    EXPECT_EQ(state.activePHYMode, 0);
}

TEST(Nl80211Parser, RefusesMessagesOfOtherCommandsOrWithoutKeyAttributes)
{
    EXPECT_FALSE(Nl80211Parser::parseInterface(nlmsg_hdr(stationMessage(true).get())));
    EXPECT_FALSE(Nl80211Parser::parseStation(nlmsg_hdr(interfaceMessage().get())));
    Message noBss = build(NL80211_CMD_NEW_SCAN_RESULTS, [](nl_msg *m) { nla_put_u32(m, NL80211_ATTR_IFINDEX, 3); });
    EXPECT_FALSE(Nl80211Parser::parseScanResult(nlmsg_hdr(noBss.get())));
}

} // namespace
