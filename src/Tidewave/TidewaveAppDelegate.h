#pragma once

#include "client/ClientTabServices.h"
#include "network/ReachabilitySource.h"
#include "server/ServerTabEnvironment.h"
#include "server/ServerTabVIew.h"

#include <QObject>
#include <QPointer>
#include <QVariantMap>

#include <functional>
#include <memory>

class ClientTab;
class DiscoveryWindow;
class QTableView;
class PrimaryRouteWatcher;
class Reachability;
class ServerDiscoveryList;
class SettingsStore;
class TidewaveMainWindow;

// Brings the application up and down: registers the settings defaults, sets
// up logging, places the measurement tool, starts the reachability monitor,
// joins the server tab's "updateBonjour"/"stopBonjour" to the discovery list,
// and makes sure no tool process outlives the application.
class TidewaveAppDelegate : public QObject
{
    Q_OBJECT

public:
    // What the delegate reaches outside the process. Empty members get the
    // real ones.
    struct Environment
    {
        // Reachability events; the rtnetlink monitor when none.
        std::unique_ptr<ReachabilitySource> reachabilitySource;
        // Handed to the server tab.
        ServerTabEnvironment serverTab;
        // Handed to the client tab (its discovery refresh is filled in here).
        ClientTabServices clientTab;
        // Runs a command through the shell and waits (killall on quit).
        std::function<void(const QString &command)> runShellCommandAndWait;
        // Ends the event loop (closing the main window).
        std::function<void()> requestQuit;
    };

    explicit TidewaveAppDelegate(Environment environment = {}, QObject *parent = nullptr);
    ~TidewaveAppDelegate() override;

    // What the application does from start to its event loop: the main
    // window loaded and shown, then applicationDidFinishLaunching().
    // applicationWillTerminate() is wired to the application's aboutToQuit,
    // after the server tab's own subscription.
    void launch();

    // The main window with its tabs (the server tab's one-time set-up runs here).
    void loadInterface();
    // The start-up sequence: defaults, logging and banner, observers, lists,
    // tool placement, reachability.
    void applicationDidFinishLaunching();
    // What the application's will-terminate moment does to every observer:
    // the server tab stops its server, then applicationWillTerminate().
    // Runs once.
    void applicationWillTerminateNotification();
    // Kills every running measurement tool, waiting for killall.
    void applicationWillTerminate();
    bool applicationShouldTerminateAfterLastWindowClosed() const { return true; }

    void setupDefaults();
    void setupLogging();
    void checkReachability();

    // "updateBonjour": publish one service per interface in the payload.
    void startService(const QVariantMap &userInfo);
    // "stopBonjour": withdraw the first service.
    void stopBonjourPublishing();

    // Shows (making it on first use) the window of discovered servers.
    void showDiscoveryWindow();

    TidewaveMainWindow *window() const { return m_window.get(); }
    ServerTabVIew *serverTab() const { return m_serverTab; }
    ClientTab *clientTab() const { return m_clientTab; }
    ServerDiscoveryList *discoveryList() const { return m_discoveryList.get(); }
    DiscoveryWindow *discoveryWindow() const { return m_discoveryWindow.get(); }
    QTableView *tableView() const;
    std::shared_ptr<Reachability> reachability() const { return m_reachability; }
    SettingsStore *defaults = nullptr;

private:
    void createDiscoveryList();

    Environment m_environment;
    std::unique_ptr<ServerDiscoveryList> m_discoveryList;
    std::unique_ptr<TidewaveMainWindow> m_window;
    std::unique_ptr<DiscoveryWindow> m_discoveryWindow;
    QPointer<ServerTabVIew> m_serverTab;
    ClientTab *m_clientTab = nullptr; // owned by the main window's tab set
    std::shared_ptr<Reachability> m_reachability;
    std::unique_ptr<PrimaryRouteWatcher> m_primaryWatcher; // a new uplink moves addresses and services
    bool m_terminated = false;
};
