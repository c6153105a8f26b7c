#pragma once

#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfHelperDelegate.h"
#include "client/ClientTabServices.h"
#include "records/PerfResult.h"

#include <QElapsedTimer>
#include <QList>
#include <QPointer>
#include <QVariantMap>
#include <QWidget>

#include <memory>

class QAction;
class QButtonGroup;
class QTimer;
class TestInformationView;
class TestListController;
class TestListModel;
class WiFiInterface;

namespace Ui {
class ClientTab;
}

// The client tab: the settings of a client test and their persistence, the
// checks before a run, one coordinator per run, the run/stop button, the
// no-data time-out, the test list and the detail view it feeds.
//
// The run button's title is the tab's only record of a run in progress.
class ClientTab : public QWidget, public PerfHelperDelegate
{
    Q_OBJECT

public:
    static inline const QString kRunTitle = QStringLiteral("Run Test");
    static inline const QString kStopTitle = QStringLiteral("Stop Test");

    explicit ClientTab(QWidget *parent = nullptr, ClientTabServices services = {});
    ~ClientTab() override;

    // The discovery window that openserversWindow shows (not owned).
    void setServersWindow(QWidget *window) { m_serversWindow = window; }
    QWidget *serversWindow() const { return m_serversWindow; }

    // Actions of the controls.
    void runClient();
    void updateTestInterval();
    void updateStatsInterval();
    void updateClientToServerIpAddress();
    void updateClientToServerPort();
    void updateTransferDirectionClientToServer();
    void updateTransferDirectionServerToClient();
    void dataBandwidthFormatMbps();
    void dataBandwidthFormatKbps();
    void updateSendBandwidth();
    void updateGraphMaxSpeed();
    void updateBufferLength();
    void updateTestType();
    void updateAudioAlert();
    void openserversWindow();

    // Writes one setting and flushes the store; logs and drops it before the
    // tab is set up.
    void setUserSetting(const QVariant &value, const QString &key);

    void setupMyValues();
    void refreshViewOnBandwidthFormatChange();
    void refreshTabView();
    void timeOutAction();
    void ShowSpinner();
    void HideSpinner();
    void narrateIntervalResultsIfNeeded(const PerfResultPtr &result);
    // Link data of the current Wi-Fi interface onto the result.
    PerfResultPtr populateWiFiInterfaceInfo(const PerfResultPtr &result);
    // An unwired shortcut: a test against this computer's own server.
    void startFirstTest();

    // "showupdate": the chosen server's address and port into the fields.
    void refreshvalue(const QVariantMap &userInfo);
    // Any window is about to close.
    void windowClosing();

    // The test list: its current selection, and a row's delete button.
    void tableViewSelectionDidChange();
    void removeTest(int row);
    // Save, open and export for the window's File menu.
    QList<QAction *> fileActions() const;

    // Coordinator callbacks.
    void reportIntervalResults(const PerfResultPtr &result) override;
    void testFinished(const PerfResultPtr &result) override;
    void testFail(const QString &message) override;

    const QList<PerfHelperPtr> &testResultsArray() const;
    const PerfHelperPtr &perfHelper() const { return m_perfHelper; }
    const std::shared_ptr<WiFiInterface> &currentInterface() const { return m_currentInterface; }
    TestInformationView *testInfoView() const { return m_testInfoView; }
    TestListModel *listModel() const { return m_listModel; }
    // Whether setupMyValues has run (the store is in use from then on).
    bool isSetUp() const { return m_defaults != nullptr; }

    // The time-out delay for a run with these stored settings.
    static qint64 timeOutDelaySeconds(qint64 testDuration, qint64 statsInterval);

signals:
    // openserversWindow was asked for (before the window is shown).
    void serversWindowRequested();
    // A test ended with its final rate, or failed with the tool's words.
    void testEnded(const QString &label, const QString &outcome);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void showProgress();
    void configureControls();
    void connectActions();
    void setCaptionsForFormat(bool kilo);
    void setControlsEnabled(bool enabled);
    void postInfoMessage(const QString &message);
    // Wi-Fi link data for "WiFi" results, else empty SSID and BSSID.
    void stamp(const PerfResultPtr &result);
    void refreshTabViewLater();
    bool runOnOwnThread(std::function<void()> call);
    // Reads that stand for a missing store before set-up.
    QString storedString(const QString &key) const;
    qint64 storedInteger(const QString &key) const;

    std::unique_ptr<Ui::ClientTab> m_ui;
    ClientTabServices m_services;
    SettingsStore *m_store;
    SettingsStore *m_defaults = nullptr;
    QButtonGroup *m_transferDirectionRadioGroup;
    QButtonGroup *m_dataBandwidthFormatRadioGroup;
    qint64 m_testTypeTag = 0;
    TestListModel *m_listModel;
    TestListController *m_listController;
    TestInformationView *m_testInfoView;
    QPointer<QWidget> m_serversWindow;
    std::shared_ptr<WiFiInterface> m_currentInterface;
    QTimer *m_progressTimer = nullptr;          // refreshes the elapsed time while a run lasts
    QElapsedTimer m_runClock;
    qint64 m_runDuration = 0;                   // seconds the running test was asked to last
    PerfHelperPtr m_perfHelper;
    PerfHelperPtr m_firstTest;
};
