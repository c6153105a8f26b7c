#pragma once

#include "PerfHelper/PerfServerDelegate.h"
#include "network/PIFCInterfaceInfo.h"
#include "records/iPerfServerResults.h"
#include "server/ServerTabEnvironment.h"

#include <QList>
#include <QStringList>
#include <QVariantMap>
#include <QWidget>

#include <memory>

class PerfServer;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;
class ServerResultsTableModel;
class SettingsStore;
class TestFinishedResultCellView;

namespace Ui {
class ServerTabVIew;
}

// The server tab: runs the measurement server on the chosen port, shows this
// computer's addresses, asks for them to be published, and lists every test
// that remote clients ran against this computer, newest first.
//
// The server is not started on loading: the first reachability announcement
// starts it (after 0.5 s), and later ones restart it at most once per 5 s.
class ServerTabVIew : public QWidget, public PerfServerDelegate
{
    Q_OBJECT

public:
    explicit ServerTabVIew(QWidget *parent = nullptr, ServerTabEnvironment environment = {});
    ~ServerTabVIew() override;

    // One-time set-up; only the first call does anything. The constructor
    // makes it.
    void awakeFromNib();

    // "Run Server": fromButton stores the typed port first.
    void runServer(bool fromButton);
    void stopServer();
    void clearServerLogs();
    void updateServerPort();
    void internetDidBecomeAvailableOnSystemNotification();
    void processInternetRechabilityEvent();
    void startServer();
    // The application is quitting: stop the server.
    void terminate();
    void UpdateUI();
    void reloadBonjourService(const PIFCInterfaceInfoList &interfaces);

    // PerfServerDelegate
    void serverError(const QString &message) override;
    void reportIntervalNew(const iPerfServerResultsPtr &test) override;
    void testDidFinished(const iPerfServerResultsPtr &test) override;
    void testDidFinishedWithServerLog(const PerfResultList &results) override;
    void reportInterval(const PerfResultList &results) override;

    // First non-loopback IPv4 address, or "IP address not available".
    static QString getIP();
    // How many interface records the last refresh found (any tab).
    static int interfaceCount();

    // The row's cell, or null when the row does not exist.
    TestFinishedResultCellView *cellForRow(int row) const;
    int rowHeight(int row) const;

    SettingsStore *defaults = nullptr;
    std::unique_ptr<PerfServer> server;
    bool isRunning = false;
    bool hasDoneLoading = false;
    double lastTimeInterval = 0;
    QStringList oldList;
    QList<PerfResultList> serverLogsArray;
    QList<iPerfServerResultsPtr> serverTestResultsArray;

    QLineEdit *serverIpAddress = nullptr;
    QLineEdit *serverPort = nullptr;
    QPushButton *runServerButton = nullptr;
    QPushButton *stopServerButton = nullptr;
    QLabel *serverRunningLabel = nullptr;
    QTableView *serverResultsTableView = nullptr;

signals:
    // The table was reloaded (after every change to the list or a test).
    void resultsReloaded();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void makeServer();
    void insertTestIfNew(const iPerfServerResultsPtr &test);
    void reloadData();
    void reloadView() {}

    std::unique_ptr<Ui::ServerTabVIew> m_ui;
    ServerTabEnvironment m_environment;
    ServerResultsTableModel *m_results = nullptr;
};
