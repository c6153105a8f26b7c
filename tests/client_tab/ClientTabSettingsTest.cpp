#include "client_tab/ClientTabFixture.h"

#include "client/TestListModel.h"
#include "shell/Logger.h"
#include "shell/NotificationCenter.h"

#include <QProgressBar>
#include <QSignalSpy>

#include <mutex>

using namespace ClientTestSupport;

namespace {

// Collects log lines while it is installed.
class LogCollector : public LogSink
{
public:
    void write(const LogMessage &message) override
    {
        std::lock_guard lock(m_mutex);
        lines.append(message.message);
    }
    QStringList lines;

private:
    std::mutex m_mutex;
};

TEST_F(ClientTabFixture, StoredValuesAreLoadedHalfASecondAfterTheTabLoads)
{
    settings.store.setObject(QStringLiteral("192.168.7.9"), QStringLiteral("clientToServerIpAddress"));
    settings.store.setObject(QStringLiteral("5302"), QStringLiteral("clientToServerPort"));
    settings.store.setObject(QStringLiteral("25"), QStringLiteral("testDuration"));
    settings.store.setObject(QStringLiteral("3"), QStringLiteral("statsInterval"));
    settings.store.setObject(QStringLiteral("1"), QStringLiteral("transfer_Direction"));
    settings.store.setObject(QStringLiteral("1"), QStringLiteral("bandwidthformat"));
    settings.store.setObject(QStringLiteral("1"), QStringLiteral("testType"));
    settings.store.setObject(QStringLiteral("20"), QStringLiteral("sendBandwidth"));
    settings.store.setObject(QStringLiteral("300"), QStringLiteral("graphMaxSpeed"));
    settings.store.setObject(QStringLiteral("6"), QStringLiteral("bufferLength"));
    settings.store.setObject(QStringLiteral("1"), QStringLiteral("audioAlert"));
    makeTab(false);
    ASSERT_EQ(scheduler.entries.size(), 1u);
    EXPECT_EQ(scheduler.entries.front().delay, std::chrono::milliseconds(500));
    EXPECT_FALSE(tab->isSetUp());
    EXPECT_EQ(field("clientToServerIpAddress")->text(), QString());

    // Before set-up a change is logged and dropped.
    auto log = std::make_shared<LogCollector>();
    Logger::shared().addSink(log);
    field("testDuration")->setText(QStringLiteral("99"));
    tab->updateTestInterval();
    Logger::shared().removeSink(log);
    EXPECT_TRUE(log->lines.contains(QStringLiteral("Unable to save settings. Check console log files for details.")));
    EXPECT_EQ(stored("testDuration"), QStringLiteral("25"));

    ASSERT_TRUE(scheduler.fire(0));
    EXPECT_TRUE(tab->isSetUp());
    EXPECT_EQ(field("clientToServerIpAddress")->text(), QStringLiteral("192.168.7.9"));
    EXPECT_EQ(field("clientToServerPort")->text(), QStringLiteral("5302"));
    EXPECT_EQ(field("testDuration")->text(), QStringLiteral("25"));
    EXPECT_EQ(popUp("statsInterval")->currentText(), QStringLiteral("3"));
    EXPECT_TRUE(widget<QRadioButton>("serverToClientRadio")->isChecked());
    EXPECT_TRUE(widget<QRadioButton>("kbpsRadio")->isChecked());
    EXPECT_EQ(widget<QLabel>("graphMaxSpeedLabel")->text(), QStringLiteral("Graph Max Speed (Kbps):"));
    EXPECT_EQ(widget<QLabel>("sendBandwidthLabel")->text(), QStringLiteral("Send Bandwidth (Kbps):"));
    EXPECT_EQ(popUp("testType")->currentText(), QStringLiteral("UDP"));
    EXPECT_EQ(field("sendBandwidth")->text(), QStringLiteral("20"));
    EXPECT_EQ(field("graphMaxSpeed")->text(), QStringLiteral("300"));
    EXPECT_EQ(field("lengthOFBuffers")->text(), QString()); // not filled from the store
    EXPECT_TRUE(widget<QCheckBox>("audioAlert")->isChecked());
}

TEST_F(ClientTabFixture, AbsentAudioAlertAndTestTypeFallBack)
{
    settings.store.clearRegisteredDefaults();
    makeTab();
    EXPECT_FALSE(widget<QCheckBox>("audioAlert")->isChecked());
    EXPECT_EQ(settings.store.objectForKey(QStringLiteral("audioAlert")), QVariant(QStringLiteral("0")));
    EXPECT_EQ(popUp("testType")->currentText(), QStringLiteral("TCP"));
    EXPECT_EQ(widget<QLabel>("graphMaxSpeedLabel")->text(), QStringLiteral("Graph Max Speed (Mbps):"));
}

TEST_F(ClientTabFixture, PopUpsOfferTheirItemsWithTags)
{
    makeTab();
    QComboBox *stats = popUp("statsInterval");
    ASSERT_EQ(stats->count(), 60);
    for (int n = 0; n < 60; ++n)
        EXPECT_EQ(stats->itemData(n).toInt(), n + 1);
    EXPECT_EQ(popUp("testType")->itemText(0), QStringLiteral("TCP"));
    EXPECT_EQ(popUp("testType")->itemData(1).toInt(), 1);
}

// Each action stores its control's value in its stored form: text fields as
// their text, pop-ups and radio groups as decimal strings.
struct StoreCase
{
    const char *name;
    std::function<void(ClientTabFixture &)> act;
    std::vector<std::pair<const char *, QString>> expected;
    friend void PrintTo(const StoreCase &c, std::ostream *os) { *os << c.name; }
};

class StoredForm : public ClientTabFixture, public ::testing::WithParamInterface<StoreCase>
{
};

TEST_P(StoredForm, ActionStoresTheControlsValue)
{
    makeTab();
    GetParam().act(*this);
    for (const auto &[key, value] : GetParam().expected) {
        const QVariant got = settings.store.objectForKey(QLatin1String(key));
        EXPECT_EQ(got.typeId(), QMetaType::QString) << key;
        EXPECT_EQ(got.toString(), value) << key;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Actions, StoredForm,
    ::testing::Values(
        StoreCase{"duration",
                  [](ClientTabFixture &f) {
                      f.field("testDuration")->setText(QStringLiteral("45"));
                      emit f.field("testDuration")->editingFinished();
                  },
                  {{"testDuration", "45"}}},
        StoreCase{"statsTag",
                  [](ClientTabFixture &f) {
                      f.popUp("statsInterval")->setCurrentIndex(6);
                      emit f.popUp("statsInterval")->activated(6);
                  },
                  {{"statsInterval", "7"}}},
        StoreCase{"address",
                  [](ClientTabFixture &f) {
                      f.field("clientToServerIpAddress")->setText(QStringLiteral("10.1.2.3"));
                      f.tab->updateClientToServerIpAddress();
                  },
                  {{"clientToServerIpAddress", "10.1.2.3"}}},
        StoreCase{"port",
                  [](ClientTabFixture &f) {
                      f.field("clientToServerPort")->setText(QStringLiteral(""));
                      f.tab->updateClientToServerPort();
                  },
                  {{"clientToServerPort", ""}}},
        StoreCase{"serverToClient",
                  [](ClientTabFixture &f) { f.widget<QRadioButton>("serverToClientRadio")->click(); },
                  {{"transfer_Direction", "1"}}},
        StoreCase{"clientToServer",
                  [](ClientTabFixture &f) { f.widget<QRadioButton>("clientToServerRadio")->click(); },
                  {{"transfer_Direction", "0"}}},
        StoreCase{"udpSetsBuffer8",
                  [](ClientTabFixture &f) {
                      f.field("lengthOFBuffers")->setText(QStringLiteral("64"));
                      f.popUp("testType")->setCurrentIndex(1);
                      emit f.popUp("testType")->activated(1);
                      // The field itself keeps its text.
                      EXPECT_EQ(f.field("lengthOFBuffers")->text(), QStringLiteral("64"));
                  },
                  {{"testType", "1"}, {"bufferLength", "8"}}},
        StoreCase{"tcpSetsBuffer128",
                  [](ClientTabFixture &f) {
                      f.popUp("testType")->setCurrentIndex(0);
                      emit f.popUp("testType")->activated(0);
                  },
                  {{"testType", "0"}, {"bufferLength", "128"}}},
        StoreCase{"sendBandwidth",
                  [](ClientTabFixture &f) {
                      f.field("sendBandwidth")->setText(QStringLiteral("250"));
                      f.tab->updateSendBandwidth();
                  },
                  {{"sendBandwidth", "250"}}},
        StoreCase{"graphMax",
                  [](ClientTabFixture &f) {
                      f.field("graphMaxSpeed")->setText(QStringLiteral("400"));
                      f.tab->updateGraphMaxSpeed();
                  },
                  {{"graphMaxSpeed", "400"}}},
        StoreCase{"audioOn",
                  [](ClientTabFixture &f) { f.widget<QCheckBox>("audioAlert")->click(); },
                  {{"audioAlert", "1"}}},
        StoreCase{"kbpsClearsSendBandwidth",
                  [](ClientTabFixture &f) {
                      f.field("sendBandwidth")->setText(QStringLiteral("250"));
                      f.tab->updateSendBandwidth();
                      f.widget<QRadioButton>("kbpsRadio")->click();
                  },
                  {{"bandwidthformat", "1"}, {"sendBandwidth", ""}}},
        StoreCase{"mbpsClearsSendBandwidth",
                  [](ClientTabFixture &f) {
                      f.field("sendBandwidth")->setText(QStringLiteral("250"));
                      f.tab->updateSendBandwidth();
                      f.widget<QRadioButton>("mbpsRadio")->click();
                  },
                  {{"bandwidthformat", "0"}, {"sendBandwidth", ""}}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ClientTabFixture, FormatSwitchRedrawsOnlyWhenThereAreTests)
{
    makeTab();
    QSignalSpy listChanges(tab->listModel(), &QAbstractItemModel::dataChanged);
    tab->dataBandwidthFormatKbps();
    EXPECT_EQ(widget<QLabel>("sendBandwidthLabel")->text(), QStringLiteral("Send Bandwidth (Kbps):"));
    EXPECT_EQ(listChanges.count(), 0);

    field("sendBandwidth")->setText(QStringLiteral("20"));
    fillForm(QStringLiteral("127.0.0.1"), QStringLiteral("5201"), QStringLiteral("10"), 1);
    tab->runClient();
    ASSERT_EQ(tab->testResultsArray().size(), 1);
    // The run stored the field's text again.
    EXPECT_EQ(stored("sendBandwidth"), QStringLiteral("20"));
    EXPECT_EQ(tab->perfHelper()->bandwidthformat, 1);
    EXPECT_EQ(tab->perfHelper()->sendBandwidth, 20);

    listChanges.clear();
    tab->dataBandwidthFormatMbps();
    EXPECT_EQ(widget<QLabel>("graphMaxSpeedLabel")->text(), QStringLiteral("Graph Max Speed (Mbps):"));
    EXPECT_EQ(stored("sendBandwidth"), QStringLiteral(""));
    EXPECT_EQ(listChanges.count(), 1);
}

TEST_F(ClientTabFixture, ChosenServerFillsTheFieldsAndClosesTheWindow)
{
    makeTab();
    QWidget serversWindow;
    tab->setServersWindow(&serversWindow);
    QSignalSpy requested(tab.get(), &ClientTab::serversWindowRequested);
    widget<QPushButton>("searchTargetServer")->click();
    EXPECT_EQ(requested.count(), 1);
    EXPECT_EQ(discoveryRefreshes, 1);
    EXPECT_TRUE(serversWindow.isVisible());

    settings.store.setObject(QStringLiteral("10.0.0.7"), QStringLiteral("clientToServerIpAddress"));
    settings.store.setObject(QStringLiteral("5999"), QStringLiteral("clientToServerPort"));
    NotificationCenter::defaultCenter().post(QStringLiteral("showupdate"),
                                             {{QStringLiteral("update"), QVariant::fromValue(&settings.store)}});
    EXPECT_EQ(field("clientToServerIpAddress")->text(), QStringLiteral("10.0.0.7"));
    EXPECT_EQ(field("clientToServerPort")->text(), QStringLiteral("5999"));
    EXPECT_FALSE(serversWindow.isVisible());

    // Any window closing orders the servers window out.
    serversWindow.show();
    QWidget other;
    other.show();
    other.close();
    EXPECT_FALSE(serversWindow.isVisible());
}

TEST_F(ClientTabFixture, SpinnerLocksEveryControlButTheRunButton)
{
    makeTab();
    tab->ShowSpinner();
    // The detail view has labels of the same names; look the controls up by kind.
    const std::vector<QWidget *> controls{
        field("clientToServerIpAddress"), field("clientToServerPort"), field("testDuration"),
        popUp("statsInterval"), field("lengthOFBuffers"), field("sendBandwidth"), field("graphMaxSpeed"),
        widget<QCheckBox>("audioAlert"), widget<QRadioButton>("clientToServerRadio"),
        widget<QRadioButton>("serverToClientRadio"), widget<QRadioButton>("mbpsRadio"),
        widget<QRadioButton>("kbpsRadio"), widget<QPushButton>("searchTargetServer"), popUp("testType")};
    for (QWidget *control : controls)
        EXPECT_FALSE(control->isEnabled()) << control->objectName().toStdString();
    EXPECT_TRUE(runButton()->isEnabled());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Stop Test"));
    EXPECT_FALSE(widget<QProgressBar>("progressIndicator")->isHidden());
    tab->HideSpinner();
    for (QWidget *control : controls)
        EXPECT_TRUE(control->isEnabled()) << control->objectName().toStdString();
    EXPECT_TRUE(widget<QProgressBar>("progressIndicator")->isHidden());
    EXPECT_EQ(runButton()->text(), QStringLiteral("Run Test"));
}

} // namespace
