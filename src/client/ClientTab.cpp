#include "client/ClientTab.h"

#include "PerfHelper/TidewaveUtils.h"
#include "client/AlertPresenter.h"
#include "client/DelayScheduler.h"
#include "client/OnlyNumbersNSNumberFormatter.h"
#include "client/TestFileActions.h"
#include "client/TestInformationView.h"
#include "client/TestListController.h"
#include "client/TestListModel.h"
#include "network/MacAddress.h"
#include "network/WiFiLinkInformation.h"
#include "records/NumberUtilites.h"
#include "shell/Logger.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"
#include "ui_ClientTab.h"

#include <QApplication>
#include <QButtonGroup>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// Cleared when a run starts, set by any result or failure report; read by
// the time-out. One flag for the whole process, not one per test.
bool g_dataSeen = false;

const QString kUpdateKey = QStringLiteral("update");

} // namespace

ClientTab::ClientTab(QWidget *parent, ClientTabServices services)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::ClientTab>())
    , m_services(completedServices(std::move(services)))
{
    m_store = m_services.settings ? m_services.settings : &SettingsStore::standard();

    m_ui->setupUi(this);
    m_transferDirectionRadioGroup = new QButtonGroup(this);
    m_transferDirectionRadioGroup->addButton(m_ui->clientToServerRadio, 0);
    m_transferDirectionRadioGroup->addButton(m_ui->serverToClientRadio, 1);
    m_dataBandwidthFormatRadioGroup = new QButtonGroup(this);
    m_dataBandwidthFormatRadioGroup->addButton(m_ui->mbpsRadio, 0);
    m_dataBandwidthFormatRadioGroup->addButton(m_ui->kbpsRadio, 1);

    m_listModel = new TestListModel(*m_services.alerts, this);
    m_listModel->setAlertParent(this);
    auto *infoLayout = new QVBoxLayout(m_ui->testInfoHost);
    infoLayout->setContentsMargins(0, 0, 0, 0);
    m_testInfoView = new TestInformationView(m_ui->testInfoHost, m_store);
    infoLayout->addWidget(m_testInfoView);
    m_listController = new TestListController(*m_listModel, *m_testInfoView, *m_services.alerts, this, this);

    configureControls();
    connectActions();
    // Extra height goes to the detail view, whose graph and table can use it.
    m_ui->clientSplitter->setStretchFactor(0, 0);
    m_ui->clientSplitter->setStretchFactor(1, 1);

    // Loaded: the graph at once, the stored values a moment later.
    m_testInfoView->loadGraph();
    m_services.scheduler->schedule(std::chrono::milliseconds(500), this, [this] { setupMyValues(); });
}

ClientTab::~ClientTab()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    qApp->removeEventFilter(this);
}

void ClientTab::configureControls()
{
    for (QLineEdit *field : {m_ui->clientToServerPort, m_ui->testDuration, m_ui->lengthOFBuffers, m_ui->sendBandwidth,
                             m_ui->graphMaxSpeed})
        field->setValidator(new OnlyNumbersNSNumberFormatter(field));
    m_ui->clientToServerIpAddress->setPlaceholderText(QStringLiteral("192.168.1.10"));
    m_ui->clientToServerPort->setPlaceholderText(QStringLiteral("5201"));
    // Item n stands for n + 1 seconds and carries that value as its tag.
    for (int seconds = 1; seconds <= 60; ++seconds)
        m_ui->statsInterval->addItem(QString::number(seconds), seconds);
    m_ui->testType->addItem(QStringLiteral("TCP"), 0);
    m_ui->testType->addItem(QStringLiteral("UDP"), 1);
    m_ui->progressIndicator->setVisible(false);
    m_ui->progressText->setVisible(false);
    m_progressTimer = new QTimer(this);
    m_progressTimer->setInterval(500);
    connect(m_progressTimer, &QTimer::timeout, this, &ClientTab::showProgress);
    m_ui->runClient->setText(kRunTitle);

    m_listController->attach(m_ui->listTestView);
}

void ClientTab::connectActions()
{
    connect(m_ui->runClient, &QPushButton::clicked, this, &ClientTab::runClient);
    connect(m_ui->testDuration, &QLineEdit::editingFinished, this, &ClientTab::updateTestInterval);
    connect(m_ui->statsInterval, &QComboBox::activated, this, &ClientTab::updateStatsInterval);
    connect(m_ui->clientToServerIpAddress, &QLineEdit::editingFinished, this,
            &ClientTab::updateClientToServerIpAddress);
    connect(m_ui->clientToServerPort, &QLineEdit::editingFinished, this, &ClientTab::updateClientToServerPort);
    connect(m_ui->clientToServerRadio, &QRadioButton::clicked, this,
            &ClientTab::updateTransferDirectionClientToServer);
    connect(m_ui->serverToClientRadio, &QRadioButton::clicked, this,
            &ClientTab::updateTransferDirectionServerToClient);
    connect(m_ui->mbpsRadio, &QRadioButton::clicked, this, &ClientTab::dataBandwidthFormatMbps);
    connect(m_ui->kbpsRadio, &QRadioButton::clicked, this, &ClientTab::dataBandwidthFormatKbps);
    connect(m_ui->sendBandwidth, &QLineEdit::editingFinished, this, &ClientTab::updateSendBandwidth);
    connect(m_ui->graphMaxSpeed, &QLineEdit::editingFinished, this, &ClientTab::updateGraphMaxSpeed);
    connect(m_ui->lengthOFBuffers, &QLineEdit::editingFinished, this, &ClientTab::updateBufferLength);
    connect(m_ui->testType, &QComboBox::activated, this, &ClientTab::updateTestType);
    connect(m_ui->audioAlert, &QCheckBox::clicked, this, &ClientTab::updateAudioAlert);
    connect(m_ui->parallelStreams, &QSpinBox::valueChanged, this,
            [this](int streams) { setUserSetting(qint64(streams), QLatin1String(PerfHelper::kParallelStreamsKey)); });
    connect(m_ui->twoWayTest, &QCheckBox::clicked, this, [this](bool on) {
        setUserSetting(on ? QStringLiteral("1") : QStringLiteral("0"), QLatin1String(PerfHelper::kTwoWayKey));
    });
    connect(m_ui->searchTargetServer, &QPushButton::clicked, this, &ClientTab::openserversWindow);
}

const QList<PerfHelperPtr> &ClientTab::testResultsArray() const
{
    return m_listModel->tests();
}

qint64 ClientTab::timeOutDelaySeconds(qint64 testDuration, qint64 statsInterval)
{
    // Two different offsets, as they have always been.
    return statsInterval == 1 ? testDuration + 6 : statsInterval + 5;
}

QString ClientTab::storedString(const QString &key) const
{
    return m_defaults ? m_defaults->stringForKey(key) : QString();
}

qint64 ClientTab::storedInteger(const QString &key) const
{
    return m_defaults ? m_defaults->integerForKey(key) : 0;
}

void ClientTab::setUserSetting(const QVariant &value, const QString &key)
{
    if (!m_defaults) {
        TW_LOG(QStringLiteral("Unable to save settings. Check console log files for details."));
        return;
    }
    m_defaults->setObject(value, key);
    m_defaults->synchronize();
}

void ClientTab::postInfoMessage(const QString &message)
{
    NotificationCenter::defaultCenter().post(QStringLiteral("showInfoMessage"),
                                             {{QStringLiteral("message"), message}});
}

// ---- Actions ---------------------------------------------------------------

void ClientTab::updateTestInterval()
{
    setUserSetting(m_ui->testDuration->text(), QStringLiteral("testDuration"));
}

void ClientTab::updateStatsInterval()
{
    const qint64 tag = m_ui->statsInterval->currentData().toLongLong();
    setUserSetting(QString::number(tag), QStringLiteral("statsInterval"));
}

void ClientTab::updateClientToServerIpAddress()
{
    setUserSetting(m_ui->clientToServerIpAddress->text(), QStringLiteral("clientToServerIpAddress"));
}

void ClientTab::updateClientToServerPort()
{
    setUserSetting(m_ui->clientToServerPort->text(), QStringLiteral("clientToServerPort"));
}

void ClientTab::updateTransferDirectionClientToServer()
{
    setUserSetting(QStringLiteral("0"), QStringLiteral("transfer_Direction"));
}

void ClientTab::updateTransferDirectionServerToClient()
{
    setUserSetting(QStringLiteral("1"), QStringLiteral("transfer_Direction"));
}

void ClientTab::setCaptionsForFormat(bool kilo)
{
    const QString unit = kilo ? QStringLiteral("Kbps") : QStringLiteral("Mbps");
    m_ui->graphMaxSpeedLabel->setText(QStringLiteral("Graph Max Speed (%1):").arg(unit));
    m_ui->sendBandwidthLabel->setText(QStringLiteral("Send Bandwidth (%1):").arg(unit));
}

void ClientTab::dataBandwidthFormatMbps()
{
    setCaptionsForFormat(false);
    setUserSetting(QStringLiteral("0"), QStringLiteral("bandwidthformat"));
    setUserSetting(QStringLiteral(""), QStringLiteral("sendBandwidth"));
    refreshViewOnBandwidthFormatChange();
}

void ClientTab::dataBandwidthFormatKbps()
{
    setCaptionsForFormat(true);
    setUserSetting(QStringLiteral("1"), QStringLiteral("bandwidthformat"));
    setUserSetting(QStringLiteral(""), QStringLiteral("sendBandwidth"));
    refreshViewOnBandwidthFormatChange();
}

void ClientTab::updateSendBandwidth()
{
    TW_LOG(QStringLiteral("update sendBandwidth:%1").arg(m_ui->sendBandwidth->text()));
    setUserSetting(m_ui->sendBandwidth->text(), QStringLiteral("sendBandwidth"));
}

void ClientTab::updateGraphMaxSpeed()
{
    setUserSetting(m_ui->graphMaxSpeed->text(), QStringLiteral("graphMaxSpeed"));
}

void ClientTab::updateBufferLength()
{
    setUserSetting(m_ui->lengthOFBuffers->text(), QStringLiteral("bufferLength"));
}

void ClientTab::updateTestType()
{
    m_testTypeTag = m_ui->testType->currentData().toLongLong();
    const QString type = QString::number(m_testTypeTag);
    setUserSetting(type, QStringLiteral("testType"));
    // The buffer field itself keeps its text.
    setUserSetting(type == QLatin1String("0") ? QStringLiteral("128") : QStringLiteral("8"),
                   QStringLiteral("bufferLength"));
}

void ClientTab::updateAudioAlert()
{
    setUserSetting(m_ui->audioAlert->isChecked() ? QStringLiteral("1") : QStringLiteral("0"),
                   QStringLiteral("audioAlert"));
}

void ClientTab::openserversWindow()
{
    emit serversWindowRequested();
    if (m_services.refreshDiscovery)
        m_services.refreshDiscovery();
    if (m_serversWindow) {
        m_serversWindow->show();
        m_serversWindow->raise();
        m_serversWindow->activateWindow();
    }
}

// ---- Set-up ----------------------------------------------------------------

void ClientTab::setupMyValues()
{
    m_defaults = m_store;
    const auto integerText = [this](const QString &key) { return QString::number(storedInteger(key)); };

    m_ui->clientToServerIpAddress->setText(storedString(QStringLiteral("clientToServerIpAddress")));
    m_ui->testDuration->setText(integerText(QStringLiteral("testDuration")));
    const qint64 statsIndex = storedInteger(QStringLiteral("statsInterval")) - 1;
    m_ui->statsInterval->setCurrentIndex(statsIndex >= 0 && statsIndex < m_ui->statsInterval->count() ? int(statsIndex)
                                                                                                      : -1);
    m_ui->clientToServerPort->setText(integerText(QStringLiteral("clientToServerPort")));
    if (QAbstractButton *row = m_transferDirectionRadioGroup->button(int(storedInteger(QStringLiteral("transfer_Direction")))))
        row->setChecked(true);

    const qint64 format = storedInteger(QStringLiteral("bandwidthformat"));
    setCaptionsForFormat(format != 0);
    if (QAbstractButton *row = m_dataBandwidthFormatRadioGroup->button(int(format)))
        row->setChecked(true);

    m_testTypeTag = m_defaults->hasStringForKey(QStringLiteral("testType")) ? storedInteger(QStringLiteral("testType")) : 0;
    m_ui->testType->setCurrentIndex(m_ui->testType->findText(m_testTypeTag != 0 ? QStringLiteral("UDP")
                                                                                : QStringLiteral("TCP")));

    m_ui->sendBandwidth->setText(integerText(QStringLiteral("sendBandwidth")));
    m_ui->graphMaxSpeed->setText(integerText(QStringLiteral("graphMaxSpeed")));

    // Keys of our own, absent until changed: one stream, one direction.
    {
        const QSignalBlocker quiet(m_ui->parallelStreams);
        const qint64 streams = storedInteger(QLatin1String(PerfHelper::kParallelStreamsKey));
        m_ui->parallelStreams->setValue(int(std::clamp<qint64>(streams, 1, 16)));
    }
    m_ui->twoWayTest->setChecked(storedInteger(QLatin1String(PerfHelper::kTwoWayKey)) == 1);

    if (m_defaults->hasStringForKey(QStringLiteral("audioAlert"))) {
        m_ui->audioAlert->setChecked(storedInteger(QStringLiteral("audioAlert")) != 0);
    } else {
        m_ui->audioAlert->setChecked(false);
        setUserSetting(QStringLiteral("0"), QStringLiteral("audioAlert"));
    }

    NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("showupdate"),
                                                    [this](const QVariantMap &userInfo) { refreshvalue(userInfo); });
    qApp->installEventFilter(this);
    m_defaults->synchronize();
}

// ---- Views -----------------------------------------------------------------

void ClientTab::refreshViewOnBandwidthFormatChange()
{
    if (testResultsArray().isEmpty())
        return;
    m_listModel->reloadData();
    m_testInfoView->updateView();
}

void ClientTab::refreshTabView()
{
    m_listModel->reloadData();
    if (testResultsArray().isEmpty())
        return;
    m_testInfoView->setPerfHelper(testResultsArray().first());
    m_testInfoView->updateView();
}

void ClientTab::refreshTabViewLater()
{
    QMetaObject::invokeMethod(this, [this] { refreshTabView(); }, Qt::QueuedConnection);
}

void ClientTab::setControlsEnabled(bool enabled)
{
    for (QWidget *control :
         std::initializer_list<QWidget *>{m_ui->clientToServerIpAddress, m_ui->clientToServerPort, m_ui->testDuration,
                                          m_ui->statsInterval, m_ui->lengthOFBuffers, m_ui->sendBandwidth,
                                          m_ui->graphMaxSpeed, m_ui->audioAlert, m_ui->parallelStreams,
                                          m_ui->twoWayTest, m_ui->clientToServerRadio,
                                          m_ui->serverToClientRadio, m_ui->mbpsRadio, m_ui->kbpsRadio,
                                          m_ui->searchTargetServer, m_ui->testType})
        control->setEnabled(enabled);
}

void ClientTab::ShowSpinner()
{
    // How far the run is, beside the spinner: a long test is long for a
    // spinner alone.
    m_runDuration = storedInteger(QStringLiteral("testDuration"));
    m_runClock.start();
    showProgress();
    m_progressTimer->start();
    m_ui->progressText->setVisible(true);
    m_ui->progressIndicator->setVisible(true);
    m_ui->runClient->setText(kStopTitle);
    setControlsEnabled(false);
}

void ClientTab::HideSpinner()
{
    m_ui->searchTargetServer->setEnabled(true);
    m_progressTimer->stop();
    m_ui->progressText->setVisible(false);
    m_ui->progressIndicator->setVisible(false);
    m_ui->runClient->setText(kRunTitle);
    setControlsEnabled(true);
}

void ClientTab::showProgress()
{
    const qint64 elapsed = std::min(m_runClock.elapsed() / 1000, m_runDuration);
    m_ui->progressText->setText(tr("%1 of %2 s").arg(elapsed).arg(m_runDuration));
}

// ---- Notifications ---------------------------------------------------------

void ClientTab::refreshvalue(const QVariantMap &userInfo)
{
    SettingsStore *chosen = userInfo.value(kUpdateKey).value<SettingsStore *>();
    if (!chosen)
        chosen = m_store;
    m_ui->clientToServerIpAddress->setText(chosen->stringForKey(QStringLiteral("clientToServerIpAddress")));
    m_ui->clientToServerPort->setText(chosen->stringForKey(QStringLiteral("clientToServerPort")));
    if (m_defaults)
        m_defaults->synchronize();
    if (m_serversWindow)
        m_serversWindow->hide();
}

void ClientTab::windowClosing()
{
    if (m_serversWindow)
        m_serversWindow->hide();
}

bool ClientTab::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Close && watched->isWidgetType() && static_cast<QWidget *>(watched)->isWindow())
        windowClosing();
    return QWidget::eventFilter(watched, event);
}

// ---- Runs ------------------------------------------------------------------

void ClientTab::runClient()
{
    if (m_ui->runClient->text() == kStopTitle) {
        // Stop: the newest test is the running one.
        if (testResultsArray().isEmpty())
            return;
        m_perfHelper = testResultsArray().first();
        m_perfHelper->isTestRunning = 0;
        m_services.stopTest(*m_perfHelper);
        testFail(QString());
        if (m_defaults)
            m_defaults->synchronize();
        return;
    }

    g_dataSeen = false;
    updateTestInterval();
    updateStatsInterval();
    updateClientToServerIpAddress();
    updateClientToServerPort();
    updateGraphMaxSpeed();
    updateBufferLength();
    updateSendBandwidth();

    // The address reaches a shell command line: nothing but an IPv4 address
    // may pass.
    if (!MacAddress::isIp(storedString(QStringLiteral("clientToServerIpAddress")))) {
        postInfoMessage(QStringLiteral("Unable to perform test. Please check client settings or make sure server is running."));
        HideSpinner();
        return;
    }
    if (storedString(QStringLiteral("clientToServerPort")).isEmpty())
        setUserSetting(QStringLiteral("5201"), QStringLiteral("clientToServerPort"));
    if (storedInteger(QStringLiteral("testDuration")) <= 0) {
        setUserSetting(qint64(30), QStringLiteral("testDuration"));
        m_defaults->synchronize();
    }
    if (storedInteger(QStringLiteral("statsInterval")) > storedInteger(QStringLiteral("testDuration"))) {
        postInfoMessage(QStringLiteral("Invalid stats interval. Stats interval should be less than or equal to Test Duration."));
        return;
    }
    postInfoMessage(QStringLiteral(""));

    m_perfHelper = std::make_shared<PerfHelper>(*m_defaults);
    PerfHelper &test = *m_perfHelper;
    test.setDelegate(this);
    test.serverIP = storedString(QStringLiteral("clientToServerIpAddress"));
    test.serverPort = storedInteger(QStringLiteral("clientToServerPort"));
    test.duration = storedInteger(QStringLiteral("testDuration"));
    test.stats_interval = storedInteger(QStringLiteral("statsInterval"));
    test.graphMaxSpeed = storedInteger(QStringLiteral("graphMaxSpeed"));
    test.bandwidthformat = storedInteger(QStringLiteral("bandwidthformat"));
    test.reverse = storedInteger(QStringLiteral("transfer_Direction"));
    test.testType = storedInteger(QStringLiteral("testType"));
    test.sendBandwidth = storedInteger(QStringLiteral("sendBandwidth"));
    test.parallelStreams = std::clamp<qint64>(storedInteger(QLatin1String(PerfHelper::kParallelStreamsKey)), 1, 16);
    test.twoWay = storedInteger(QLatin1String(PerfHelper::kTwoWayKey)) == 1 ? 1 : 0;

    const qint32 buffer = qint32(storedInteger(QStringLiteral("bufferLength")));
    if (test.testType != 0) {
        const qint32 length = buffer <= 0 ? 8 : buffer;
        if (length >= 9) {
            postInfoMessage(QStringLiteral("In UDP test Type, Maximum Buffer length is 8 KB"));
            return;
        }
        test.bufferLength = length;
        test.testLabel = QStringLiteral("UDP Test");
    } else {
        const qint32 length = buffer <= 0 ? 128 : buffer;
        if (length >= 1025) {
            postInfoMessage(QStringLiteral("In TCP test Type, Maximum Buffer length is 1024 KB"));
            return;
        }
        test.bufferLength = length;
        test.testLabel = QStringLiteral("TCP Test");
    }
    test.isTestRunning = 1;
    test.index = 0;
    test.isSelected = 0;
    test.invalidTestDuration = 1;

    // Never withdrawn: a stop or a finish leaves it to fire and find nothing
    // to do (or a later run still waiting for data).
    const qint64 delay = timeOutDelaySeconds(storedInteger(QStringLiteral("testDuration")),
                                             storedInteger(QStringLiteral("statsInterval")));
    m_services.scheduler->schedule(std::chrono::seconds(delay), this, [this] { timeOutAction(); });

    m_listModel->insertTestAtFront(m_perfHelper);
    // The list's highlight follows the test the view switches to.
    m_listController->selectRow(0);
    m_testInfoView->setPerfHelper(m_perfHelper);
    m_testInfoView->updateView();
    m_testInfoView->resetGraph();

    const PIFCInterfaceInfoList interfaces = m_services.networkDetails();
    if (!interfaces.isEmpty() && interfaces.first())
        m_currentInterface = m_services.openWiFiInterface(interfaces.first()->BSDName);

    ShowSpinner();
    const PerfHelperPtr running = m_perfHelper; // the call may report and replace it
    m_services.runTest(*running);
    if (m_defaults)
        m_defaults->synchronize();
}

void ClientTab::timeOutAction()
{
    if (g_dataSeen || m_ui->runClient->text() != kStopTitle)
        return;
    postInfoMessage(QStringLiteral("Please make sure client and server are connected with same network."));
    HideSpinner();
    if (m_perfHelper) {
        m_perfHelper->isTestRunning = 0;
        const PerfHelperPtr stopping = m_perfHelper;
        m_services.stopTest(*stopping);
    }
    refreshTabView();
}

void ClientTab::startFirstTest()
{
    m_firstTest = std::make_shared<PerfHelper>(*m_store);
    m_firstTest->serverIP = TidewaveUtils::getIPAddress();
    m_firstTest->serverPort = m_store->integerForKey(QStringLiteral("serverPort"));
    m_firstTest->duration = 0;
    m_firstTest->invalidTestDuration = 0;
    m_services.runTest(*m_firstTest);
    m_store->synchronize();
}

// ---- Coordinator callbacks -------------------------------------------------

bool ClientTab::runOnOwnThread(std::function<void()> call)
{
    // The coordinator reports on the main thread; should a late report come
    // from elsewhere, it is handled there too, as widgets and lists live there.
    if (QThread::currentThread() == thread())
        return false;
    QMetaObject::invokeMethod(this, std::move(call), Qt::QueuedConnection);
    return true;
}

void ClientTab::narrateIntervalResultsIfNeeded(const PerfResultPtr &result)
{
    if (!m_ui->audioAlert->isChecked() || !result)
        return;
    const QString rate = result->bandwidthformat == 1 ? NumberUtilites::kbpsFormat(result->sentBandwidth)
                                                      : NumberUtilites::bitFormat(result->sentBandwidth);
    m_services.executeShellCommandAsynchronously(QStringLiteral("espeak-ng ") + rate);
}

PerfResultPtr ClientTab::populateWiFiInterfaceInfo(const PerfResultPtr &result)
{
    return WiFiLinkInformation::populateWiFiInterfaceInfo(result, m_currentInterface.get());
}

void ClientTab::stamp(const PerfResultPtr &result)
{
    if (result->interfaceName == QLatin1String("WiFi")) {
        populateWiFiInterfaceInfo(result);
    } else {
        result->ssidField = QStringLiteral("");
        result->bssidField = QStringLiteral("");
    }
}

void ClientTab::reportIntervalResults(const PerfResultPtr &result)
{
    if (runOnOwnThread([this, result] { reportIntervalResults(result); }))
        return;
    if (!result)
        return;
    g_dataSeen = true;
    if (testResultsArray().isEmpty())
        return;
    const PerfHelperPtr test = testResultsArray().first();
    narrateIntervalResultsIfNeeded(result);
    stamp(result);
    test->resultss.prepend(result);
    refreshTabViewLater();
}

void ClientTab::testFinished(const PerfResultPtr &result)
{
    if (runOnOwnThread([this, result] { testFinished(result); }))
        return;
    if (!result)
        return;
    g_dataSeen = true;
    narrateIntervalResultsIfNeeded(result);
    if (!testResultsArray().isEmpty())
        testResultsArray().first()->isTestRunning = 0;
    stamp(result);
    // Kept beside the test, so a saved or exported test has its final record.
    if (!testResultsArray().isEmpty())
        m_listModel->setFinalResult(testResultsArray().first().get(), result);
    refreshTabViewLater();
    HideSpinner();
    emit testEnded(testResultsArray().isEmpty() ? QString() : testResultsArray().first()->testLabel,
                   result->bandwidthformat == 1 ? NumberUtilites::kbpsFormat(result->sentBandwidth)
                                                : NumberUtilites::bitFormat(result->sentBandwidth));
}

void ClientTab::testFail(const QString &message)
{
    if (runOnOwnThread([this, message] { testFail(message); }))
        return;
    if (m_perfHelper && m_perfHelper->isTestRunning) {
        g_dataSeen = true;
        postInfoMessage(QStringLiteral("Unable to perform test..%1")
                            .arg(message.isNull() ? QStringLiteral("(null)") : message));
        emit testEnded(testResultsArray().isEmpty() ? QString() : testResultsArray().first()->testLabel, message);
    }
    if (!testResultsArray().isEmpty())
        testResultsArray().first()->isTestRunning = 0;
    HideSpinner();
    refreshTabView();
}

// ---- Test list ---------------------------------------------------------------

void ClientTab::tableViewSelectionDidChange()
{
    const QModelIndexList rows = m_ui->listTestView->selectionModel()->selectedRows();
    m_listController->tableViewSelectionDidChange(rows.isEmpty() ? -1 : rows.first().row());
}

void ClientTab::removeTest(int row)
{
    m_listController->removeTest(row);
}

QList<QAction *> ClientTab::fileActions() const
{
    return m_listController->fileActions()->actions();
}
