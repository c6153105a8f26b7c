#include "client_tab/ClientTabFixture.h"

#include "client/TestListModel.h"
#include "shell/Logger.h"
#include "shell/NotificationCenter.h"

#include <QProgressBar>
#include <QSignalSpy>

#include <mutex>

using namespace ClientTestSupport;

namespace {

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
    const std::pair<const char *, const char *> values[] = {
        {"clientToServerIpAddress", "192.168.7.9"}, {"clientToServerPort", "5302"}, {"testDuration", "25"},
        {"statsInterval", "3"}, {"transfer_Direction", "1"}, {"bandwidthformat", "1"}, {"testType", "1"},
        {"sendBandwidth", "20"}, {"graphMaxSpeed", "300"}, {"bufferLength", "6"}, {"audioAlert", "1"}};
    for (const auto &[key, value] : values)
        settings.store.setObject(QString::fromLatin1(value), QString::fromLatin1(key));
    makeTab(false);
    ASSERT_EQ(scheduler.entries.size(), 1u);
    EXPECT_EQ(scheduler.entries.front().delay, std::chrono::milliseconds(500));
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

TEST_F(ClientTabFixture, AbsentAudioAlertIsStoredOffAndPopUpsCarryTags)
{
    settings.store.clearRegisteredDefaults();
    makeTab();
    EXPECT_FALSE(widget<QCheckBox>("audioAlert")->isChecked());
    EXPECT_EQ(settings.store.objectForKey(QStringLiteral("audioAlert")), QVariant(QStringLiteral("0")));
    EXPECT_EQ(popUp("testType")->currentText(), QStringLiteral("TCP"));
    QComboBox *stats = popUp("statsInterval");
    ASSERT_EQ(stats->count(), 60);
    for (int n = 0; n < 60; ++n)
        EXPECT_EQ(stats->itemData(n).toInt(), n + 1);
}

TEST_F(ClientTabFixture, ActionsStoreTheirControlsInTheirStoredForm)
{
    makeTab();
    popUp("statsInterval")->setCurrentIndex(6);
    emit popUp("statsInterval")->activated(6);
    widget<QRadioButton>("serverToClientRadio")->click();
    widget<QCheckBox>("audioAlert")->click();
    field("lengthOFBuffers")->setText(QStringLiteral("64"));
    popUp("testType")->setCurrentIndex(1);
    emit popUp("testType")->activated(1);
    field("clientToServerPort")->setText(QString());
    emit field("clientToServerPort")->editingFinished();
    // Pop-ups and radio groups as decimal strings, fields as their text.
    const std::pair<const char *, const char *> expected[] = {{"statsInterval", "7"}, {"transfer_Direction", "1"},
                                                              {"audioAlert", "1"},    {"testType", "1"},
                                                              {"bufferLength", "8"},  {"clientToServerPort", ""}};
    for (const auto &[key, value] : expected) {
        const QVariant got = settings.store.objectForKey(QLatin1String(key));
        EXPECT_EQ(got.typeId(), QMetaType::QString) << key;
        EXPECT_EQ(got.toString(), QString::fromLatin1(value)) << key;
    }
    EXPECT_EQ(field("lengthOFBuffers")->text(), QStringLiteral("64")); // the field keeps its text
}

TEST_F(ClientTabFixture, FormatSwitchClearsSendBandwidthAndRedrawsOnlyWithTests)
{
    makeTab();
    QSignalSpy listChanges(tab->listModel(), &QAbstractItemModel::dataChanged);
    field("sendBandwidth")->setText(QStringLiteral("20"));
    tab->updateSendBandwidth();
    widget<QRadioButton>("kbpsRadio")->click();
    EXPECT_EQ(stored("bandwidthformat"), QStringLiteral("1"));
    EXPECT_EQ(stored("sendBandwidth"), QStringLiteral(""));
    EXPECT_EQ(widget<QLabel>("sendBandwidthLabel")->text(), QStringLiteral("Send Bandwidth (Kbps):"));
    EXPECT_EQ(listChanges.count(), 0);

    startRun();
    // The run stores the field's text again.
    EXPECT_EQ(stored("sendBandwidth"), QStringLiteral("20"));
    EXPECT_EQ(tab->perfHelper()->bandwidthformat, 1);
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
    const std::vector<QWidget *> controls{
        field("clientToServerIpAddress"), field("clientToServerPort"), field("testDuration"), popUp("statsInterval"),
        field("lengthOFBuffers"), field("sendBandwidth"), field("graphMaxSpeed"), widget<QCheckBox>("audioAlert"),
        widget<QRadioButton>("clientToServerRadio"), widget<QRadioButton>("serverToClientRadio"),
        widget<QRadioButton>("mbpsRadio"), widget<QRadioButton>("kbpsRadio"),
        widget<QPushButton>("searchTargetServer"), popUp("testType")};
    for (const bool running : {true, false}) {
        running ? tab->ShowSpinner() : tab->HideSpinner();
        for (QWidget *control : controls)
            EXPECT_EQ(control->isEnabled(), !running) << control->objectName().toStdString();
        EXPECT_EQ(widget<QProgressBar>("progressIndicator")->isHidden(), !running);
        EXPECT_EQ(runButton()->text(), running ? QStringLiteral("Stop Test") : QStringLiteral("Run Test"));
        EXPECT_TRUE(runButton()->isEnabled());
    }
}

} // namespace
