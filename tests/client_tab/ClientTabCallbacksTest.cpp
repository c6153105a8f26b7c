#include "client_tab/ClientTabFixture.h"

#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"
#include "common/TestEnvironment.h"

using namespace ClientTestSupport;
using namespace std::chrono_literals;

namespace {

PerfResultPtr over(const QString &interfaceName, float bits = 93456789.0f, qint64 format = 0)
{
    auto r = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1000, bits, format);
    r->interfaceName = interfaceName;
    r->rssiField = -50;
    return r;
}

TEST_F(ClientTabFixture, WiFiResultsAreStampedFromTheFirstInterfaceOthersGetEmptyNames)
{
    wifi->state.ssid = QStringLiteral("Harbour");
    wifi->state.bssid = QStringLiteral("0:1b:2c:3:4d:e");
    wifi->state.rssiValue = -45;
    wifi->state.noiseMeasurement = -92;
    wifi->state.transmitRate = 866.7;
    makeTab();
    startRun();
    ASSERT_EQ(tab->currentInterface(), wifi);

    const PerfResultPtr overWiFi = over(QStringLiteral("WiFi"));
    tab->reportIntervalResults(overWiFi);
    EXPECT_EQ(overWiFi->ssidField, QStringLiteral("Harbour"));
    EXPECT_EQ(overWiFi->bssidField, QStringLiteral("00:1B:2C:03:4D:0E"));
    EXPECT_EQ(overWiFi->txRateField, 866);
    for (const QString &name : {QStringLiteral(" Ethernet"), QString(), QStringLiteral("wifi")}) {
        const PerfResultPtr other = over(name);
        tab->reportIntervalResults(other);
        EXPECT_TRUE(other->ssidField == QLatin1String("") && !other->ssidField.isNull());
        EXPECT_EQ(other->bssidField, QStringLiteral(""));
        EXPECT_EQ(other->rssiField, -50); // the other link fields stay as they were
    }
    EXPECT_EQ(wifi->reads, 1);
    ASSERT_EQ(tab->perfHelper()->resultss.size(), 4);
    EXPECT_EQ(tab->perfHelper()->resultss.last(), overWiFi); // newest first

    // The refresh comes through the event loop.
    auto *model = tab->testInfoView()->resultModel();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return model->rowCount() == 4; }, 5s));
    EXPECT_EQ(model->index(3, model->columnForIdentifier(QStringLiteral("signalToNoise"))).data().toString(),
              QStringLiteral("47"));
}

TEST_F(ClientTabFixture, EmptyInventoryKeepsTheEarlierInterface)
{
    interfaces.clear();
    makeTab();
    startRun();
    EXPECT_EQ(tab->currentInterface(), nullptr);
    const PerfResultPtr unstamped = over(QStringLiteral("WiFi"));
    tab->reportIntervalResults(unstamped);
    EXPECT_TRUE(unstamped->ssidField.isNull());
    tab->testFinished(over(QStringLiteral("WiFi")));

    interfaces.append(std::make_shared<PIFCInterfaceInfo>());
    startRun();
    tab->testFinished(over(QStringLiteral("WiFi")));
    interfaces.clear();
    startRun();
    EXPECT_EQ(tab->currentInterface(), wifi);
    EXPECT_EQ(opened.size(), 1);
}

TEST_F(ClientTabFixture, FinishResetsTheControlsAndKeepsTheFinalOutOfTheList)
{
    makeTab();
    startRun();
    tab->reportIntervalResults(over(QStringLiteral("WiFi")));
    const PerfResultPtr final = over(QStringLiteral(" Ethernet"));
    tab->testFinished(final);
    EXPECT_EQ(tab->perfHelper()->isTestRunning, 0);
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_TRUE(field("clientToServerIpAddress")->isEnabled());
    EXPECT_EQ(final->ssidField, QStringLiteral(""));
    // Absent results are ignored.
    tab->reportIntervalResults(nullptr);
    tab->testFinished(nullptr);
    EXPECT_EQ(tab->perfHelper()->resultss.size(), 1);
}

TEST_F(ClientTabFixture, FailureWhileRunningShowsTheToolsTextOnce)
{
    makeTab();
    startRun();
    tab->testFail(QStringLiteral("iperf3: error - unable to connect to server: Connection refused"));
    EXPECT_EQ(messages.texts.last(),
              QStringLiteral("Unable to perform test..iperf3: error - unable to connect to server: Connection refused"));
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_EQ(tab->testResultsArray().first()->isTestRunning, 0);
    const qsizetype shown = messages.texts.size();
    tab->testFail(QStringLiteral("late"));
    EXPECT_EQ(messages.texts.size(), shown);
}

TEST_F(ClientTabFixture, SpokenRateFollowsTheRecordsUnitsWhenTheAlertIsOn)
{
    makeTab();
    startRun();
    tab->reportIntervalResults(over(QStringLiteral("WiFi")));
    EXPECT_TRUE(spoken.isEmpty());
    widget<QCheckBox>("audioAlert")->setChecked(true);
    tab->reportIntervalResults(over(QStringLiteral("WiFi")));
    tab->testFinished(over(QStringLiteral("WiFi"), 93456789.0f, 1));
    EXPECT_EQ(spoken, (QStringList{QStringLiteral("espeak-ng 93.46 Mbps"), QStringLiteral("espeak-ng 93456.79 Kbps")}));
}

TEST_F(ClientTabFixture, RefreshAlwaysShowsTheNewestTest)
{
    makeTab();
    startRun();
    tab->testFinished(over(QStringLiteral("WiFi")));
    const PerfHelperPtr older = tab->perfHelper();
    tab->runClient();
    const PerfHelperPtr newer = tab->perfHelper();
    tab->testInfoView()->setPerfHelper(older);
    tab->reportIntervalResults(over(QStringLiteral("WiFi")));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab->testInfoView()->perfHelper() == newer; }, 5s));
    EXPECT_EQ(tab->testInfoView()->graph()->pointCount(), 2);
}

} // namespace
