#include "NetworkTestSupport.h"
#include "network/WiFiConversions.h"

#include <gtest/gtest.h>

#include <linux/nl80211.h>

namespace {

struct ChannelCase
{
    const char *name;
    int megahertz;
    quint64 channel;
};
void PrintTo(const ChannelCase &row, std::ostream *out) { *out << row.name; }

using ChannelTest = testing::TestWithParam<ChannelCase>;

TEST_P(ChannelTest, FromFrequency)
{
    EXPECT_EQ(WiFiConversions::channelFromFrequency(GetParam().megahertz), GetParam().channel);
}

INSTANTIATE_TEST_SUITE_P(Bands, ChannelTest,
                         testing::Values(ChannelCase{"g_first", 2412, 1}, ChannelCase{"g_six", 2437, 6},
                                         ChannelCase{"g_thirteen", 2472, 13}, ChannelCase{"japan_fourteen", 2484, 14},
                                         ChannelCase{"a_36", 5180, 36}, ChannelCase{"a_149", 5745, 149},
                                         ChannelCase{"a_165", 5825, 165}, ChannelCase{"japan_4_9", 4920, 184},
                                         ChannelCase{"six_ghz_first", 5955, 1}, ChannelCase{"six_ghz_two", 5935, 2},
                                         ChannelCase{"six_ghz_last", 7115, 233}, ChannelCase{"sixty_ghz", 58320, 1},
                                         ChannelCase{"none", 0, 0}, ChannelCase{"outside_bands", 3000, 0}),
                         caseName<ChannelCase>);

struct PhyCase
{
    const char *name;
    TxRateInfo::Kind kind;
    quint32 bitrate;
    int megahertz;
    qint64 mode;
};
void PrintTo(const PhyCase &row, std::ostream *out) { *out << row.name; }

using PhyModeTest = testing::TestWithParam<PhyCase>;

TEST_P(PhyModeTest, FromTransmitRate)
{
    const PhyCase &c = GetParam();
    EXPECT_EQ(WiFiConversions::phyModeFromRate(TxRateInfo{c.kind, c.bitrate}, c.megahertz), c.mode);
}

using Kind = TxRateInfo::Kind;
INSTANTIATE_TEST_SUITE_P(
    Rates, PhyModeTest,
    testing::Values(PhyCase{"no_rate", Kind::None, 0, 2412, 0}, PhyCase{"eht", Kind::EHT, 28820, 5955, 7},
                    PhyCase{"he", Kind::HE, 12010, 5180, 6}, PhyCase{"vht", Kind::VHT, 8667, 5745, 5},
                    PhyCase{"ht_on_2g", Kind::HT, 1444, 2437, 4}, PhyCase{"legacy_5g", Kind::Legacy, 60, 5180, 1},
                    PhyCase{"legacy_6g", Kind::Legacy, 60, 5955, 1}, PhyCase{"b_1", Kind::Legacy, 10, 2412, 2},
                    PhyCase{"b_5_5", Kind::Legacy, 55, 2412, 2}, PhyCase{"b_11", Kind::Legacy, 110, 2462, 2},
                    PhyCase{"g_6", Kind::Legacy, 60, 2437, 3}, PhyCase{"g_54", Kind::Legacy, 540, 2437, 3}),
    caseName<PhyCase>);

TEST(TxPower, MbmToRoundedMilliwatts)
{
    EXPECT_EQ(WiFiConversions::milliwattsFromMbm(2000), 100);
    EXPECT_EQ(WiFiConversions::milliwattsFromMbm(1500), 32);
    EXPECT_EQ(WiFiConversions::milliwattsFromMbm(0), 1);
}

// Information elements: an RSN element (id 48) or a WPA vendor element
// (id 221, 00:50:f2 type 1) with the given key-management suite types.
QByteArray rsn(std::initializer_list<int> akms)
{
    QByteArray body = QByteArray::fromHex("0100" "000fac04" "0100" "000fac04");
    body += char(akms.size()) + QByteArray(1, '\0');
    for (int akm : akms)
        body += QByteArray::fromHex("000fac") + char(akm);
    body += QByteArray::fromHex("0000");
    return QByteArray(1, char(48)) + char(body.size()) + body;
}

QByteArray wpa(std::initializer_list<int> akms)
{
    QByteArray body = QByteArray::fromHex("0050f201" "0100" "0050f202" "0100" "0050f202");
    body += char(akms.size()) + QByteArray(1, '\0');
    for (int akm : akms)
        body += QByteArray::fromHex("0050f2") + char(akm);
    return QByteArray(1, char(221)) + char(body.size()) + body;
}

const QByteArray kSsid = QByteArray::fromHex("0004") + "Home";

struct SecurityCase
{
    const char *name;
    QByteArray elements;
    bool privacy;
    qint64 code;
};
void PrintTo(const SecurityCase &row, std::ostream *out) { *out << row.name; }

using SecurityTest = testing::TestWithParam<SecurityCase>;

TEST_P(SecurityTest, FromElementsAndPrivacy)
{
    EXPECT_EQ(WiFiConversions::securityFromElements(GetParam().elements, GetParam().privacy), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Networks, SecurityTest,
    testing::Values(SecurityCase{"open", kSsid, false, 0}, SecurityCase{"wep", kSsid, true, 1},
                    SecurityCase{"wpa_personal", kSsid + wpa({2}), true, 2},
                    SecurityCase{"wpa_wpa2_mixed_personal", kSsid + rsn({2}) + wpa({2}), true, 3},
                    SecurityCase{"wpa2_personal", kSsid + rsn({2}), true, 4},
                    SecurityCase{"wpa2_personal_sha256", rsn({6}), true, 4},
                    SecurityCase{"wpa_enterprise", wpa({1}), true, 7},
                    SecurityCase{"wpa_wpa2_mixed_enterprise", rsn({1}) + wpa({1}), true, 8},
                    SecurityCase{"wpa2_enterprise", rsn({1}), true, 9},
                    SecurityCase{"wpa3_personal", rsn({8}), true, 11},
                    SecurityCase{"wpa3_transition", rsn({2, 8}), true, 13},
                    SecurityCase{"wpa3_enterprise", rsn({12}), true, 12},
                    SecurityCase{"owe", rsn({18}), true, 14},
                    SecurityCase{"unknown_suite", rsn({99}), true, WiFiConversions::kSecurityUnknown},
                    // An RSN element that stops after the group cipher means 802.1X.
                    SecurityCase{"rsn_without_suite_lists", QByteArray::fromHex("3006" "0100" "000fac04"), true, 9},
                    // A truncated element is ignored, so only the privacy bit speaks.
                    SecurityCase{"truncated_element", QByteArray::fromHex("3040" "0100"), true, 1}),
    caseName<SecurityCase>);

} // namespace
