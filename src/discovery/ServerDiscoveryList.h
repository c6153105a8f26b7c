#pragma once

#include "discovery/NetService.h"
#include "discovery/ServerDelegate.h"
#include "network/PIFCInterfaceInfo.h"

#include <QAbstractTableModel>
#include <QList>
#include <QStringList>

#include <memory>
#include <vector>

class AvahiConnection;
class QItemSelectionModel;
class Server;
class SettingsStore;

// Publishes one DNS-SD service per network interface of this computer and
// keeps the table of the same services published by other computers; picking
// a row puts that computer's address and port into the client settings.
//
// The application delegate owns one and forwards "updateBonjour" to
// startBonjourServers() and "stopBonjour" to stopBonjourPublishing(). A view
// shows it as a table model (columns "Service", "ServiceIP", "ServicePort")
// and reports its selection through tableViewSelectionDidChange() or
// followSelection().
//
// Selecting a row posts "showupdate" with {"update": QVariant holding a
// SettingsStore* (the process-wide store)}; read it with
// `userInfo.value("update").value<SettingsStore *>()`.
//
// Whether discovery works at all (avahi-daemon runs) is told as a line for
// people (unavailable()); services that could not start without the daemon
// are started again by themselves when it comes.
//
// Peer names are untrusted network input: they are shown and stored as text,
// never interpreted; the address stored is not validated here (the client
// checks it before any run).
class ServerDiscoveryList : public QAbstractTableModel, public ServerDelegate
{
    Q_OBJECT

public:
    static inline const QString ProtocolWord = QStringLiteral("TidewaveServer");
    enum Column { ServiceColumn, ServiceIPColumn, ServicePortColumn, ColumnCount };
    // headerData role giving a column's identifier ("Service", …).
    static constexpr int ColumnIdentifierRole = Qt::UserRole;

    explicit ServerDiscoveryList(QObject *parent = nullptr);
    // Teardown: every own service stopped, browsing ended, lists cleared.
    ~ServerDiscoveryList() override;

    // Republishes: stops everything, then one service per interface record,
    // in list order; only the first one reports peers, stops and errors.
    void startBonjourServers(const PIFCInterfaceInfoList &interfaces);
    // Stops and drops every own service; empties the three lists.
    void stopBonjor();
    // Withdraws the first service only.
    void stopBonjourPublishing();
    // Reloads the table from `services`, queued to the event loop.
    void refreshData();
    // The table's selected row (-1 for none): stores the row's port and
    // address under "clientToServerPort"/"clientToServerIpAddress" and posts
    // "showupdate".
    void tableViewSelectionDidChange(int selectedRow);
    // Calls tableViewSelectionDidChange() whenever that selection changes.
    void followSelection(QItemSelectionModel *selection);

    Server *server() const { return m_server; }
    const QList<NetServicePtr> &services() const { return m_services; }
    QList<Server *> startedServers() const;
    const QStringList &servicesName() const { return m_servicesName; }
    int selectedRow() const { return m_selectedRow; }
    SettingsStore &defaults() const;
    // "" while avahi-daemon can be reached; otherwise a line saying so.
    QString unavailable() const { return m_unavailable; }

    // The text of a cell, by row and column identifier.
    QString cellValue(int row, const QString &columnIdentifier) const;
    static QString columnIdentifier(int column);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    // Events of the first service.
    void serviceAdded(const NetServicePtr &service, bool moreComing) override;
    void serviceRemoved(const NetServicePtr &service, bool moreComing) override;
    void serverStopped(Server *server) override;
    void serverLostConnection(Server *server, const QVariantMap &userInfo) override;

signals:
    void availabilityChanged(const QString &unavailable);

private:
    void reload();
    void watchDaemon();
    void daemonGone();
    void setUnavailable(const QString &line);
    void releaseServers(bool now);

    Server *m_server = nullptr;                         // first service; the one that browses
    std::vector<std::unique_ptr<Server>> m_startedServers; // every own service
    QStringList m_servicesName;                         // names we published under
    QList<NetServicePtr> m_services;                    // peers, in discovery order
    QList<NetServicePtr> m_rows;                        // the peers as the table last loaded them
    int m_selectedRow = -1;
    bool m_reloadQueued = false;
    AvahiConnection *m_daemon = nullptr;                // tells whether avahi-daemon is there
    PIFCInterfaceInfoList m_interfaces;                 // as last published
    bool m_startWhenDaemonComes = false;                // publishing failed for want of the daemon
    QString m_unavailable;
};
