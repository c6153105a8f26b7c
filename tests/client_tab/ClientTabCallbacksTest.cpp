#include "client_tab/ClientTabFixture.h"

#include "client/PerfResultTableModel.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"
#include "client/TestListModel.h"
#include "common/TestEnvironment.h"

using namespace ClientTestSupport;
using namespace std::chrono_literals;

namespace {

class Callbacks : public ClientTabFixture
{
protected:
    void startRun()
    {
        makeTab();
        fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("10"), 1);
        tab->runClient();
        ASSERT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
    }

    static PerfResultPtr over(const QString &interfaceName, float bits = 93456789, qint64 format = 0)
    {
        auto r = record(QStringLiteral("0.00"), QStringLiteral("1.00"), 1000, bits, format);
        r->interfaceName = interfaceName;
        return r;
    }
};

TEST_F(Callbacks, WiFiResultsAreStampedFromTheFirstInterface)
{
    wifi->state.ssid = QStringLiteral("Harbour");
    wifi->state.bssid = QStringLiteral("0:1b:2c:3:4d:e");
    wifi->state.rssiValue = -45;
    wifi->state.noiseMeasurement = -92;
    wifi->state.transmitRate = 866.7;
    wifi->state.security = 4;
    wifi->state.activePHYMode = 5;
    startRun();
    ASSERT_EQ(tab->currentInterface(), wifi);

    const PerfResultPtr result = over(QStringLiteral("WiFi"));
    tab->reportIntervalResults(result);
    EXPECT_EQ(wifi->reads, 1);
    EXPECT_EQ(result->ssidField, QStringLiteral("Harbour"));
    EXPECT_EQ(result->bssidField, QStringLiteral("00:1B:2C:03:4D:0E"));
    EXPECT_EQ(result->txRateField, 866);
    ASSERT_EQ(tab->perfHelper()->resultss.size(), 1);
    EXPECT_EQ(tab->perfHelper()->resultss.first(), result);

    // The list refresh comes through the event loop.
    auto *model = tab->testInfoView()->resultModel();
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return model->rowCount() == 1; }, 5s));
    EXPECT_EQ(model->index(0, model->columnForIdentifier(QStringLiteral("signalToNoise"))).data().toString(),
              QStringLiteral("47"));
}

TEST_F(Callbacks, OtherResultsGetEmptySsidAndBssidOnly)
{
    startRun();
    for (const QString &name : {QStringLiteral(" Ethernet"), QString(), QStringLiteral("wifi")}) {
        const PerfResultPtr result = over(name);
        result->rssiField = -50;
        tab->reportIntervalResults(result);
        EXPECT_EQ(result->ssidField, QStringLiteral(""));
        EXPECT_FALSE(result->ssidField.isNull());
        EXPECT_EQ(result->bssidField, QStringLiteral(""));
        EXPECT_EQ(result->rssiField, -50);
    }
    EXPECT_EQ(wifi->reads, 0);
    // Newest first.
    EXPECT_EQ(tab->perfHelper()->resultss.size(), 3);
    EXPECT_EQ(tab->perfHelper()->resultss.first()->interfaceName, QStringLiteral("wifi"));
}

TEST_F(Callbacks, EmptyInventoryKeepsTheEarlierInterface)
{
    startRun();
    tab->testFinished(over(QStringLiteral("WiFi")));
    interfaces.clear();
    tab->runClient();
    EXPECT_EQ(tab->testResultsArray().size(), 2);
    EXPECT_EQ(tab->currentInterface(), wifi);
    EXPECT_EQ(opened.size(), 1);
}

TEST_F(Callbacks, NoInventoryMeansNoStamping)
{
    interfaces.clear();
    startRun();
    EXPECT_EQ(tab->currentInterface(), nullptr);
    const PerfResultPtr result = over(QStringLiteral("WiFi"));
    tab->reportIntervalResults(result);
    EXPECT_TRUE(result->ssidField.isNull());
}

TEST_F(Callbacks, FinishResetsTheControlsAndKeepsTheFinalOutOfTheList)
{
    startRun();
    tab->reportIntervalResults(over(QStringLiteral("WiFi")));
    const PerfResultPtr final = over(QStringLiteral(" Ethernet"));
    tab->testFinished(final);
    EXPECT_EQ(tab->perfHelper()->isTestRunning, 0);
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_TRUE(field("clientToServerIpAddress")->isEnabled());
    EXPECT_EQ(final->ssidField, QStringLiteral(""));
    EXPECT_EQ(tab->perfHelper()->resultss.size(), 1);
    // Absent results are ignored.
    tab->reportIntervalResults(nullptr);
    tab->testFinished(nullptr);
    EXPECT_EQ(tab->perfHelper()->resultss.size(), 1);
}

TEST_F(Callbacks, FailureWhileRunningIsShownWithTheToolsText)
{
    startRun();
    tab->testFail(QStringLiteral("iperf3: error - unable to connect to server: Connection refused"));
    EXPECT_EQ(messages.texts.last(),
              QStringLiteral("Unable to perform test..iperf3: error - unable to connect to server: Connection refused"));
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
    EXPECT_EQ(tab->testResultsArray().first()->isTestRunning, 0);
    // Once the test is over a failure shows nothing more.
    const qsizetype shown = messages.texts.size();
    tab->testFail(QStringLiteral("late"));
    EXPECT_EQ(messages.texts.size(), shown);
}

struct SpeechCase
{
    const char *name;
    bool alertOn;
    qint64 format;
    float bits;
    QStringList expected;
    friend void PrintTo(const SpeechCase &c, std::ostream *os) { *os << c.name; }
};

class SpokenRate : public Callbacks, public ::testing::WithParamInterface<SpeechCase>
{
};

TEST_P(SpokenRate, SpeaksTheSentRateWhenTheAlertIsOn)
{
    const SpeechCase &c = GetParam();
    startRun();
    // The box is locked during a run; its state was set before.
    widget<QCheckBox>("audioAlert")->setChecked(c.alertOn);
    tab->reportIntervalResults(over(QStringLiteral("WiFi"), c.bits, c.format));
    EXPECT_EQ(spoken, c.expected);
}

INSTANTIATE_TEST_SUITE_P(Speech, SpokenRate,
                         ::testing::Values(SpeechCase{"off", false, 0, 93456789.0f, {}},
                                           SpeechCase{"mega", true, 0, 93456789.0f, {"espeak-ng 93.46 Mbps"}},
                                           SpeechCase{"kilo", true, 1, 93456789.0f, {"espeak-ng 93456.79 Kbps"}}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(Callbacks, RefreshAlwaysShowsTheNewestTest)
{
    startRun();
    tab->testFinished(over(QStringLiteral("WiFi")));
    const PerfHelperPtr older = tab->perfHelper();
    tab->runClient();
    const PerfHelperPtr newer = tab->perfHelper();
    tab->listModel()->testAt(1)->index = 1;
    tab->testInfoView()->setPerfHelper(older);
    tab->reportIntervalResults(over(QStringLiteral("WiFi")));
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return tab->testInfoView()->perfHelper() == newer; }, 5s));
    EXPECT_EQ(tab->testInfoView()->graph()->pointCount(), 2);
}

} // namespace
