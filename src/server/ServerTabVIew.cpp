#include "server/ServerTabVIew.h"

#include "PerfHelper/PerfServer.h"
#include "PerfHelper/ShellTask.h"
#include "PerfHelper/TidewaveUtils.h"
#include "client/OnlyNumbersNSNumberFormatter.h"
#include "network/GetPIFInterfaceinfo.h"
#include "server/ServerResultsTableModel.h"
#include "server/TestFinishedResultCellView.h"
#include "shell/Logger.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"
#include "ui/ProgressWindow.h"
#include "ui/ProgressWindowController.h"
#include "ui_ServerTabVIew.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QHeaderView>
#include <QThread>
#include <QTimer>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

namespace {

const QString kServerPortKey = QStringLiteral("serverPort");
const QString kKillStrayTools = QStringLiteral("/usr/bin/killall mac-native-iperf");
constexpr qint64 kDefaultPort = 5201;
constexpr double kRestartGuardSeconds = 5.0;
constexpr double kPortNoticeSeconds = 5.0;
constexpr double kStartedNoticeSeconds = 2.0;

int g_interfaceCount = 0;

void postInfoMessage(const QString &message)
{
    NotificationCenter::defaultCenter().post(QStringLiteral("showInfoMessage"),
                                             {{QStringLiteral("message"), message}});
}

} // namespace

ServerTabVIew::ServerTabVIew(QWidget *parent, ServerTabEnvironment environment)
    : QWidget(parent)
    , m_ui(std::make_unique<Ui::ServerTabVIew>())
    , m_environment(std::move(environment))
    , m_results(new ServerResultsTableModel(this))
{
    if (!m_environment.runShellCommandAndWait) {
        m_environment.runShellCommandAndWait = [](const QString &command) {
            ShellTask::executeShellCommandSynchronously(command);
        };
    }
    if (!m_environment.secondsSince1970)
        m_environment.secondsSince1970 = [] { return QDateTime::currentMSecsSinceEpoch() / 1000.0; };

    m_ui->setupUi(this);
    serverIpAddress = m_ui->serverIpAddress;
    serverPort = m_ui->serverPort;
    runServerButton = m_ui->runServerButton;
    stopServerButton = m_ui->stopServerButton;
    serverRunningLabel = m_ui->serverRunningLabel;
    serverResultsTableView = m_ui->serverResultsTableView;

    serverPort->setValidator(new OnlyNumbersNSNumberFormatter(serverPort));
    serverResultsTableView->setModel(m_results);
    serverResultsTableView->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    serverResultsTableView->horizontalHeader()->hide();
    serverResultsTableView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    serverResultsTableView->verticalHeader()->setMinimumSectionSize(1);
    serverResultsTableView->verticalHeader()->hide();

    connect(runServerButton, &QPushButton::clicked, this, [this] { runServer(true); });
    connect(stopServerButton, &QPushButton::clicked, this, &ServerTabVIew::stopServer);
    connect(m_ui->clearButton, &QPushButton::clicked, this, &ServerTabVIew::clearServerLogs);
    connect(serverPort, &QLineEdit::returnPressed, this, &ServerTabVIew::updateServerPort);

    awakeFromNib();
}

ServerTabVIew::~ServerTabVIew()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void ServerTabVIew::awakeFromNib()
{
    if (hasDoneLoading)
        return;
    hasDoneLoading = true;

    // A server left over from an earlier run would hold the port.
    m_environment.runShellCommandAndWait(kKillStrayTools);

    defaults = &SettingsStore::standard();
    oldList.clear();
    serverLogsArray.clear();
    serverTestResultsArray.clear();
    stopServerButton->setEnabled(false);
    defaults->synchronize();
    serverPort->setText(defaults->stringForKey(kServerPortKey));

    if (QCoreApplication *app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &ServerTabVIew::terminate);
    NotificationCenter::defaultCenter().addObserver(
        this, QStringLiteral("InternetDidBecomeAvailableOnSystemNotification"),
        [this](const QVariantMap &) { internetDidBecomeAvailableOnSystemNotification(); });
    // A new uplink changes the addresses shown, stored and published; the
    // server itself listens on every address and stays as it is.
    NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("PrimaryInterfaceDidChangeNotification"),
                                                    [this](const QVariantMap &) {
                                                        QMetaObject::invokeMethod(this, &ServerTabVIew::UpdateUI,
                                                                                  Qt::QueuedConnection);
                                                    });
}

void ServerTabVIew::showEvent(QShowEvent *event)
{
    // The field follows the stored port (registered defaults arrive after
    // loading) until the user types into it.
    if (!serverPort->isModified())
        serverPort->setText(defaults->stringForKey(kServerPortKey));
    QWidget::showEvent(event);
}

void ServerTabVIew::internetDidBecomeAvailableOnSystemNotification()
{
    QMetaObject::invokeMethod(this, &ServerTabVIew::processInternetRechabilityEvent, Qt::QueuedConnection);
}

void ServerTabVIew::processInternetRechabilityEvent()
{
    if (lastTimeInterval == 0)
        lastTimeInterval = -1;
    const double now = m_environment.secondsSince1970();
    if (!(lastTimeInterval == -1 || now - lastTimeInterval > kRestartGuardSeconds))
        return;
    TW_LOG(QStringLiteral("processInternetRechabilityEvent"));
    terminate();
    startServer();
    UpdateUI();
    lastTimeInterval = now;
}

void ServerTabVIew::makeServer()
{
    server = std::make_unique<PerfServer>();
    server->setDelegate(this);
}

void ServerTabVIew::startServer()
{
    makeServer();
    isRunning = false;
    QTimer::singleShot(m_environment.startDelayMs, this, [this] { runServer(false); });
}

void ServerTabVIew::runServer(bool fromButton)
{
    TW_LOG(QStringLiteral("runServer"));
    if (fromButton)
        updateServerPort();
    postInfoMessage(QString());
    if (isRunning)
        return;

    qint64 port = defaults->integerForKey(kServerPortKey);
    TW_LOG(QStringLiteral("server port is %1").arg(port));
    if (port <= 999) {
        if (port != 0) {
            ProgressWindowController::sharedPrgoressWindowController()->showWindowWithImage(
                ProgressWindow::cautionImage(), QStringLiteral("4 digit port is required to run the server"),
                kPortNoticeSeconds);
            return;
        }
        port = kDefaultPort;
        TidewaveUtils::setUserSetting(port, kServerPortKey);
        serverPort->setText(QString::number(port));
    }

    oldList.clear();
    // Pressed before the first reachability event, or after a stop: a stopped
    // server does not run again, so a fresh one takes its place.
    if (!server || server->isStop())
        makeServer();
    server->setPort(port);
    server->run();
    isRunning = true;

    runServerButton->setText(QStringLiteral("Running"));
    stopServerButton->setEnabled(true);
    serverRunningLabel->setText(QStringLiteral("Server running on") + QStringLiteral(" %1 port").arg(port));
    ProgressWindowController::sharedPrgoressWindowController()->showWindowWithImage(
        ProgressWindow::informationImage(), QStringLiteral("Server started on port %1").arg(port),
        kStartedNoticeSeconds);
}

void ServerTabVIew::stopServer()
{
    if (server)
        server->stop();
    stopServerButton->setEnabled(false);
    runServerButton->setText(QStringLiteral("Run Server"));
    serverRunningLabel->clear();
    isRunning = false;
    NotificationCenter::defaultCenter().post(QStringLiteral("stopBonjour"));
}

void ServerTabVIew::clearServerLogs()
{
    serverTestResultsArray.clear();
    reloadData();
}

void ServerTabVIew::updateServerPort()
{
    TidewaveUtils::setUserSetting(serverPort->text(), kServerPortKey);
}

void ServerTabVIew::terminate()
{
    if (server)
        server->stop();
    TW_LOG(QStringLiteral("terminate at server Tab"));
}

void ServerTabVIew::UpdateUI()
{
    const QStringList services = GetPIFInterfaceinfo::getListOfNetworksDetails();
    const PIFCInterfaceInfoList interfaces = GetPIFInterfaceinfo::getAllNetworksDetails();
    g_interfaceCount = static_cast<int>(interfaces.size());

    oldList.clear();
    QStringList labels;
    for (qsizetype i = 0; i < interfaces.size(); ++i) {
        const PIFCInterfaceInfoPtr &record = interfaces.at(i);
        if (!record || record->IPAdress.isEmpty())
            continue;
        oldList << record->IPAdress;
        if (record->displayName.isEmpty())
            record->displayName = QStringLiteral("VPN");
        if (services.size() == 1) {
            defaults->setObject(record->IPAdress, QStringLiteral("PrimaryIPAddresss"));
            defaults->setObject(record->BSDName, QStringLiteral("PrimaryBSDName"));
        }
        if (i == 0 && interfaces.size() >= 2) {
            labels << QStringLiteral("%1 (Primary): %2").arg(record->displayName, record->IPAdress);
            defaults->setObject(record->IPAdress, QStringLiteral("PrimaryIPAddresss"));
            defaults->setObject(record->BSDName, QStringLiteral("PrimaryBSDName"));
        } else {
            labels << QStringLiteral("%1: %2").arg(record->displayName, record->IPAdress);
        }
    }
    const QString joined = labels.join(QStringLiteral(", "));
    defaults->setObject(joined, QStringLiteral("IPAddresss"));
    defaults->synchronize();

    const auto publish = [this, interfaces, joined] {
        reloadBonjourService(interfaces);
        serverIpAddress->setText(joined);
    };
    if (QThread::currentThread() == thread())
        publish();
    else
        QMetaObject::invokeMethod(this, publish, Qt::BlockingQueuedConnection);
}

void ServerTabVIew::reloadBonjourService(const PIFCInterfaceInfoList &interfaces)
{
    NotificationCenter::defaultCenter().post(QStringLiteral("updateBonjour"),
                                             {{QStringLiteral("message"), QVariant::fromValue(interfaces)}});
}

void ServerTabVIew::serverError(const QString &message)
{
    if (!isRunning)
        return;
    stopServer();
    postInfoMessage(message.isEmpty()
                        ? QStringLiteral("Unable to start the server. Please try using different port number.")
                        : message);
}

void ServerTabVIew::insertTestIfNew(const iPerfServerResultsPtr &test)
{
    if (test && !serverTestResultsArray.contains(test))
        serverTestResultsArray.insert(0, test);
}

void ServerTabVIew::reportIntervalNew(const iPerfServerResultsPtr &test)
{
    insertTestIfNew(test);
    reloadData();
}

void ServerTabVIew::testDidFinished(const iPerfServerResultsPtr &test)
{
    insertTestIfNew(test);
    reloadData();
}

void ServerTabVIew::testDidFinishedWithServerLog(const PerfResultList &results)
{
    auto test = std::make_shared<iPerfServerResults>();
    test->intervalResults = results;
    serverTestResultsArray.append(test);
    reloadData();
}

void ServerTabVIew::reportInterval(const PerfResultList &results)
{
    serverLogsArray.append(results);
    QMetaObject::invokeMethod(this, [this] { reloadView(); }, Qt::QueuedConnection);
}

void ServerTabVIew::reloadData()
{
    m_results->setTests(serverTestResultsArray);
    QHeaderView *rows = serverResultsTableView->verticalHeader();
    for (int row = 0; row < m_results->rowCount(); ++row) {
        const QModelIndex index = m_results->index(row, 0);
        auto *cell = cellForRow(row);
        if (!cell) {
            cell = new TestFinishedResultCellView();
            serverResultsTableView->setIndexWidget(index, cell);
        }
        cell->testResult = m_results->testAt(row);
        cell->updateUI();
        rows->resizeSection(row, ServerResultsTableModel::rowHeightFor(cell->testResult));
    }
    emit resultsReloaded();
}

TestFinishedResultCellView *ServerTabVIew::cellForRow(int row) const
{
    if (row < 0 || row >= m_results->rowCount())
        return nullptr;
    return qobject_cast<TestFinishedResultCellView *>(serverResultsTableView->indexWidget(m_results->index(row, 0)));
}

int ServerTabVIew::rowHeight(int row) const
{
    return serverResultsTableView->rowHeight(row);
}

QString ServerTabVIew::getIP()
{
    QString found;
    struct ifaddrs *list = nullptr;
    if (::getifaddrs(&list) == 0) {
        for (struct ifaddrs *entry = list; entry && found.isEmpty(); entry = entry->ifa_next) {
            if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET)
                continue;
            const auto *in = reinterpret_cast<const struct sockaddr_in *>(entry->ifa_addr);
            char text[INET_ADDRSTRLEN] = {};
            if (::inet_ntop(AF_INET, &in->sin_addr, text, sizeof text) && qstrcmp(text, "127.0.0.1") != 0)
                found = QString::fromLatin1(text);
        }
        ::freeifaddrs(list);
    }
    return found.isEmpty() ? QStringLiteral("IP address not available") : found;
}

int ServerTabVIew::interfaceCount()
{
    return g_interfaceCount;
}
