#include "NetworkTestSupport.h"
#include "fakes/FakeWiFiInterface.h"
#include "network/Nl80211Interface.h"
#include "network/WiFiLinkInformation.h"

#include <gtest/gtest.h>

namespace {

struct MacCase
{
    const char *name;
    QString input;
    QString expected;
};
void PrintTo(const MacCase &row, std::ostream *out) { *out << row.name; }

using NormalizeMacTest = testing::TestWithParam<MacCase>;

TEST_P(NormalizeMacTest, PadsSingleCharactersAndUpperCases)
{
    EXPECT_EQ(WiFiLinkInformation::normalizeMAC(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, NormalizeMacTest,
    testing::Values(MacCase{"all_short", QStringLiteral("a:b:c:d:e:f"), QStringLiteral("0A:0B:0C:0D:0E:0F")},
                    MacCase{"already_normal", QStringLiteral("AA:BB:CC:DD:EE:FF"), QStringLiteral("AA:BB:CC:DD:EE:FF")},
                    MacCase{"empty_part_kept", QStringLiteral("aa::bb"), QStringLiteral("AA::BB")},
                    MacCase{"mixed", QStringLiteral("0:1b:2c:3:4d:e"), QStringLiteral("00:1B:2C:03:4D:0E")},
                    MacCase{"absent", QString(), QStringLiteral("")}),
    caseName<MacCase>);

TEST(PopulateWiFiInterfaceInfo, StampsTheLinkAsItIsNow)
{
    FakeWiFiInterface interface;
    WiFiLinkState state;
    state.interfaceMode = 1;
    state.security = 4;
    state.activePHYMode = 5;
    state.ssid = QStringLiteral("HomeNet");
    state.channelNumber = 149;
    state.bssid = QStringLiteral("0:1b:2c:3:4d:5e");
    state.transmitRate = 866.7;
    state.rssiValue = -45;
    state.noiseMeasurement = -92;
    state.transmitPower = 100;
    interface.setLinkState(state);

    auto result = std::make_shared<PerfResult>();
    EXPECT_EQ(WiFiLinkInformation::populateWiFiInterfaceInfo(result, &interface), result);
    EXPECT_EQ(result->opModeField, 1);
    EXPECT_EQ(result->securityModeField, 4);
    EXPECT_EQ(result->phyModeField, 5);
    EXPECT_EQ(result->ssidField, QStringLiteral("HomeNet"));
    EXPECT_EQ(result->channeField, QStringLiteral("149"));
    EXPECT_EQ(result->bssidField, QStringLiteral("00:1B:2C:03:4D:5E"));
    EXPECT_EQ(result->txRateField, 866) << "truncated, not rounded";
    EXPECT_EQ(result->rssiField, -45);
    EXPECT_EQ(result->noiseField, -92);
    EXPECT_EQ(result->txPowerField, 100);

    // Every result reads the link afresh.
    state.rssiValue = -70;
    interface.setLinkState(state);
    PerfResult next;
    WiFiLinkInformation::populateWiFiInterfaceInfo(next, &interface);
    EXPECT_EQ(next.rssiField, -70);
    EXPECT_EQ(interface.reads(), 2);
}

TEST(PopulateWiFiInterfaceInfo, UnassociatedLinkGivesEmptyTextsAndNoInterfaceNothing)
{
    FakeWiFiInterface interface;
    PerfResult result;
    WiFiLinkInformation::populateWiFiInterfaceInfo(result, &interface);
    EXPECT_FALSE(result.ssidField.isNull());
    EXPECT_EQ(result.ssidField, QStringLiteral(""));
    EXPECT_EQ(result.bssidField, QStringLiteral(""));
    EXPECT_EQ(result.channeField, QStringLiteral("0"));

    PerfResult untouched;
    WiFiLinkInformation::populateWiFiInterfaceInfo(untouched, nullptr);
    EXPECT_TRUE(untouched.ssidField.isNull());
    EXPECT_TRUE(untouched.channeField.isNull());
}

// This machine has no radio: loopback and a missing name are answered with
// no values and nothing logged.
TEST(Nl80211Interface, NonWirelessAndAbsentInterfacesGiveNoValues)
{
    const LogCapture log;
    for (const QString &name : {QStringLiteral("lo"), QStringLiteral("tw-absent0")}) {
        const std::shared_ptr<WiFiInterface> interface = Nl80211Interface::interfaceWithName(name);
        ASSERT_TRUE(interface);
        EXPECT_EQ(interface->interfaceName(), name);
        const WiFiLinkState state = interface->linkState();
        EXPECT_EQ(state.interfaceMode, 0);
        EXPECT_TRUE(state.ssid.isNull());
        EXPECT_TRUE(state.bssid.isNull());
        EXPECT_EQ(state.channelNumber, 0u);
        EXPECT_EQ(state.transmitPower, 0);
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

struct AirPortCase
{
    const char *name;
    QString output;
    QMap<QString, QString> expected;
};
void PrintTo(const AirPortCase &row, std::ostream *out) { *out << row.name; }

using AirPortParserTest = testing::TestWithParam<AirPortCase>;

TEST_P(AirPortParserTest, PicksMarkedValues)
{
    EXPECT_EQ(WiFiLinkInformation::parseAirPortOutput(GetParam().output), GetParam().expected);
}

using Values = QMap<QString, QString>;
INSTANTIATE_TEST_SUITE_P(
    Outputs, AirPortParserTest,
    testing::Values(
        AirPortCase{"typical",
                    QStringLiteral("     agrCtlRSSI: -51\n     agrExtRSSI: 0\n    agrCtlNoise: -92\n"
                                   "          state: running\n        op mode: station \n     lastTxRate: 867\n"
                                   "        maxRate: 867\n      link auth: wpa2-psk\n          BSSID: 0:1b:2c:3:4d:5e\n"
                                   "           SSID: HomeNet\n            MCS: 9\n        channel: 149,80\n"),
                    Values{{QStringLiteral("agrCtlNoise:"), QStringLiteral("-92")},
                           {QStringLiteral("lastTxRate:"), QStringLiteral("867")},
                           {QStringLiteral("link auth:"), QStringLiteral("wpa2-psk")},
                           {QStringLiteral("BSSID:"), QStringLiteral("0:1b:2c:3:4d:5e")},
                           {QStringLiteral("SSID:"), QStringLiteral("HomeNet")},
                           {QStringLiteral("MCS:"), QStringLiteral("9")},
                           {QStringLiteral("channel:"), QStringLiteral("149,80")}}},
        // The first line is never examined, even when it holds a marker.
        AirPortCase{"first_line_never_read", QStringLiteral("     agrCtlRSSI: -51\n"), Values{}},
        AirPortCase{"bssid_line_is_not_an_ssid", QStringLiteral("header\n          BSSID:    0:1b:2c:3:4d:5e\n"),
                    Values{{QStringLiteral("BSSID:"), QStringLiteral("0:1b:2c:3:4d:5e")}}},
        AirPortCase{"topmost_occurrence_wins",
                    QStringLiteral("header\n channel: 36\n\n channel: 149\n"),
                    Values{{QStringLiteral("channel:"), QStringLiteral("36")}}},
        // The value is whatever follows the line's first colon.
        AirPortCase{"value_after_first_colon", QStringLiteral("header\nnote: lastTxRate: 54\n"),
                    Values{{QStringLiteral("lastTxRate:"), QStringLiteral("lastTxRate: 54")}}}),
    caseName<AirPortCase>);

TEST(AirPortCommand, MissingCommandIsLoggedAsAnError)
{
    const LogCapture log;
    WiFiLinkInformation::executeAirPortCommand();
    EXPECT_TRUE(log.contains(QStringLiteral("error is "))) << log.messages().join(u'\n').toStdString();
}

} // namespace
