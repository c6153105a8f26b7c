#include "Tidewave/TidewaveAppDelegate.h"

#include "PerfHelper/ShellTask.h"
#include "PerfHelper/TidewaveUtils.h"
#include "Tidewave/DesktopNotifier.h"
#include "client/ClientTab.h"
#include "discovery/ServerDiscoveryList.h"
#include "network/PrimaryRouteWatcher.h"
#include "network/Reachability.h"
#include "network/ReachabilityCheck.h"
#include "server/ServerTabVIew.h"
#include "shell/Logger.h"
#include "shell/LoggingSetup.h"
#include "shell/NotificationCenter.h"
#include "shell/SettingsStore.h"
#include "ui/DiscoveryWindow.h"
#include "ui/LayoutMemory.h"
#include "ui/TidewaveMainTabSet.h"
#include "ui/TidewaveMainView.h"
#include "ui/TidewaveMainWindow.h"

#include <QCoreApplication>
#include <QSysInfo>
#include <QTableView>

namespace {
const QString kDefaultsResource = QStringLiteral("com.norvale.mactidewave-default-values.plist");
const QString kKillTools = QStringLiteral("/usr/bin/killall mac-native-iperf");

// The system's own words for itself, e.g. "Debian GNU/Linux 12 (bookworm), kernel 6.1.0-18-amd64".
QString operatingSystemVersionString()
{
    return QStringLiteral("%1, kernel %2").arg(QSysInfo::prettyProductName(), QSysInfo::kernelVersion());
}
} // namespace

TidewaveAppDelegate::TidewaveAppDelegate(Environment environment, QObject *parent)
    : QObject(parent)
    , m_environment(std::move(environment))
{
    if (!m_environment.runShellCommandAndWait) {
        m_environment.runShellCommandAndWait = [](const QString &command) {
            ShellTask::executeShellCommandSynchronously(command);
        };
    }
    if (!m_environment.requestQuit)
        m_environment.requestQuit = [] { QCoreApplication::quit(); };
}

TidewaveAppDelegate::~TidewaveAppDelegate()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    if (m_reachability)
        m_reachability->stopNotifier();
    // The client tab points at the discovery window, which shows the list:
    // they go in that order. The list's own teardown stops every published
    // service and ends browsing.
    m_window.reset();
    m_discoveryWindow.reset();
    m_discoveryList.reset();
}

void TidewaveAppDelegate::launch()
{
    loadInterface();
    // After the server tab's own subscription: its server stops first, then
    // killall sweeps up whatever is left.
    if (QCoreApplication *app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &TidewaveAppDelegate::applicationWillTerminate);
    LayoutMemory::restore(m_window.get(), SettingsStore::standard());
    m_window->show();
    applicationDidFinishLaunching();
}

void TidewaveAppDelegate::loadInterface()
{
    if (m_window)
        return;
    m_window = std::make_unique<TidewaveMainWindow>();
    m_discoveryWindow = std::make_unique<DiscoveryWindow>();

    ClientTabServices clientServices = m_environment.clientTab;
    if (!clientServices.refreshDiscovery) {
        clientServices.refreshDiscovery = [this] {
            if (m_discoveryList)
                m_discoveryList->refreshData();
        };
    }
    auto *clientTab = new ClientTab(nullptr, clientServices);
    clientTab->setServersWindow(m_discoveryWindow.get());
    m_clientTab = clientTab;
    m_window->mainView()->tabSet()->setClientTab(clientTab);
    m_window->addFileActions(clientTab->fileActions());
    auto *notifier = new DesktopNotifier(m_window.get(), QDBusConnection::sessionBus(), clientTab);
    connect(clientTab, &ClientTab::testEnded, notifier, &DesktopNotifier::testEnded);

    auto *serverTab = new ServerTabVIew(nullptr, m_environment.serverTab);
    m_serverTab = serverTab;
    m_window->mainView()->tabSet()->setServerTab(serverTab);

    connect(m_window.get(), &TidewaveMainWindow::discoveryWindowRequested, this,
            &TidewaveAppDelegate::showDiscoveryWindow);
    connect(m_window.get(), &TidewaveMainWindow::quitRequested, this, [this] { m_window->close(); });
    connect(m_window.get(), &TidewaveMainWindow::closed, this, [this] {
        if (applicationShouldTerminateAfterLastWindowClosed())
            m_environment.requestQuit();
    });
}

void TidewaveAppDelegate::applicationDidFinishLaunching()
{
    setupDefaults();
    setupLogging();
    // The crash-reporting step of the original start-up is left out.

    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(this, QStringLiteral("updateBonjour"),
                       [this](const QVariantMap &userInfo) { startService(userInfo); });
    center.addObserver(this, QStringLiteral("stopBonjour"), [this](const QVariantMap &) { stopBonjourPublishing(); });

    defaults = &SettingsStore::standard();
    createDiscoveryList();
    TidewaveUtils::copyiPerfExecutableToAppSupportDir();
    checkReachability();
}

void TidewaveAppDelegate::setupDefaults()
{
    SettingsStore::standard().registerDefaultsFromFile(TidewaveUtils::resourcePath(kDefaultsResource));
}

void TidewaveAppDelegate::setupLogging()
{
    LoggingSetup::setupLogging(TidewaveUtils::getAppSupportDirPath());
    const QStringList banner = LoggingSetup::startBannerLines(
        QStringLiteral(TIDEWAVE_VERSION), QStringLiteral(TIDEWAVE_BUILD_NUMBER), operatingSystemVersionString());
    for (const QString &line : banner)
        TW_LOG(line);
}

void TidewaveAppDelegate::createDiscoveryList()
{
    if (m_discoveryList)
        return;
    m_discoveryList = std::make_unique<ServerDiscoveryList>();
    if (m_discoveryWindow) {
        m_discoveryWindow->setModel(m_discoveryList.get());
        m_discoveryList->followSelection(m_discoveryWindow->tableView()->selectionModel());
        connect(m_discoveryList.get(), &ServerDiscoveryList::availabilityChanged, m_discoveryWindow.get(),
                &DiscoveryWindow::showUnavailable);
    }
}

void TidewaveAppDelegate::checkReachability()
{
    m_reachability = ReachabilityCheck::checkReachability(std::move(m_environment.reachabilitySource));
    m_primaryWatcher = std::make_unique<PrimaryRouteWatcher>();
    if (!m_primaryWatcher->start())
        TW_LOG(QStringLiteral("TidewaveDelegate: cannot follow the primary interface"));
}

void TidewaveAppDelegate::startService(const QVariantMap &userInfo)
{
    if (m_discoveryList)
        m_discoveryList->startBonjourServers(userInfo.value(QStringLiteral("message")).value<PIFCInterfaceInfoList>());
}

void TidewaveAppDelegate::stopBonjourPublishing()
{
    if (m_discoveryList)
        m_discoveryList->stopBonjourPublishing();
}

void TidewaveAppDelegate::showDiscoveryWindow()
{
    if (!m_discoveryWindow)
        return;
    if (m_discoveryList)
        m_discoveryList->refreshData();
    m_discoveryWindow->show();
    m_discoveryWindow->raise();
    m_discoveryWindow->activateWindow();
}

QTableView *TidewaveAppDelegate::tableView() const
{
    return m_discoveryWindow ? m_discoveryWindow->tableView() : nullptr;
}

void TidewaveAppDelegate::applicationWillTerminateNotification()
{
    if (m_terminated)
        return;
    m_terminated = true;
    if (m_window)
        LayoutMemory::save(m_window.get(), SettingsStore::standard());
    if (m_serverTab)
        m_serverTab->terminate();
    applicationWillTerminate();
}

void TidewaveAppDelegate::applicationWillTerminate()
{
    m_environment.runShellCommandAndWait(kKillTools);
}
