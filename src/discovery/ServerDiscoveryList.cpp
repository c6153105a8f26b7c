#include "discovery/ServerDiscoveryList.h"

#include "PerfHelper/TidewaveUtils.h"
#include "discovery/AvahiConnection.h"
#include "discovery/MachineName.h"
#include "discovery/Server.h"
#include "discovery/ServiceName.h"
#include "shell/Logger.h"
#include "shell/NotificationCenter.h"
#include "shell/PlainText.h"
#include "shell/SettingsStore.h"

#include <QItemSelectionModel>
#include <QMetaObject>
#include <QTimer>

ServerDiscoveryList::ServerDiscoveryList(QObject *parent)
    : QAbstractTableModel(parent)
{
}

ServerDiscoveryList::~ServerDiscoveryList()
{
    for (const auto &server : m_startedServers) {
        server->setDelegate(nullptr);
        server->stop();
        server->stopBrowser();
    }
    releaseServers(true);
    m_servicesName.clear();
    m_services.clear();
}

void ServerDiscoveryList::startBonjourServers(const PIFCInterfaceInfoList &interfaces)
{
    stopBonjor();
    m_interfaces = interfaces;
    m_startWhenDaemonComes = false;
    const QString machineName = MachineName::current();
    const QString port = defaults().stringForKey(QStringLiteral("serverPort"));
    for (qsizetype i = 0; i < interfaces.size(); ++i) {
        const PIFCInterfaceInfoPtr &info = interfaces.at(i);
        const QString name = ServiceName::build(machineName, port, info ? info->IPAdress : QString(),
                                                info ? info->displayName : QString(),
                                                i == 0 && interfaces.size() >= 2);
        std::unique_ptr<Server> server = Server::withProtocol(ProtocolWord, name);
        if (i == 0) {
            m_server = server.get();
            server->setDelegate(this);
        }
        ServerError error;
        if (!server->start(&error)) {
            TW_LOG(QStringLiteral("error = %1").arg(error.toString()));
            m_startWhenDaemonComes |= error.domain == Server::AvahiErrorDomain;
        }
        // The name as published ("_" for ".", shortened when too long), so
        // our own services are recognised when the browser reports them.
        m_servicesName.append(server->iPerfIP());
        m_startedServers.push_back(std::move(server));
    }
    TW_LOG(QStringLiteral("TidewaveDelegate: all published bonjour services names are (%1)")
               .arg(m_servicesName.join(QStringLiteral(", "))));
    watchDaemon();
}

void ServerDiscoveryList::watchDaemon()
{
    if (!m_daemon) {
        m_daemon = new AvahiConnection([] { return true; }, this);
        connect(m_daemon, &AvahiConnection::running, this, [this] {
            setUnavailable(QString());
            // Queued: the daemon may report itself running from inside open().
            if (std::exchange(m_startWhenDaemonComes, false))
                QTimer::singleShot(0, this, [this] { startBonjourServers(m_interfaces); });
        });
        connect(m_daemon, &AvahiConnection::lost, this, &ServerDiscoveryList::daemonGone);
    }
    if (!m_daemon->client() && !m_daemon->open())
        daemonGone();
}

void ServerDiscoveryList::daemonGone()
{
    setUnavailable(tr("Discovery is unavailable: avahi-daemon is not running. Servers on the network will be listed "
                      "here once it runs."));
    m_daemon->reconnectSoon();
}

void ServerDiscoveryList::setUnavailable(const QString &line)
{
    if (line == m_unavailable)
        return;
    m_unavailable = line;
    emit availabilityChanged(line);
}

void ServerDiscoveryList::stopBonjor()
{
    for (const auto &server : m_startedServers) {
        server->stop();
        server->stopBrowser();
    }
    releaseServers(false);
    m_servicesName.clear();
    m_services.clear();
    refreshData();
}

void ServerDiscoveryList::releaseServers(bool now)
{
    m_server = nullptr;
    for (auto &server : m_startedServers) {
        server->setDelegate(nullptr);
        // This may run inside one of the server's own callbacks; it goes
        // once that has returned.
        if (now)
            server.reset();
        else
            server.release()->deleteLater();
    }
    m_startedServers.clear();
}

void ServerDiscoveryList::stopBonjourPublishing()
{
    if (m_server)
        m_server->stop();
}

QList<Server *> ServerDiscoveryList::startedServers() const
{
    QList<Server *> servers;
    for (const auto &server : m_startedServers)
        servers.append(server.get());
    return servers;
}

SettingsStore &ServerDiscoveryList::defaults() const
{
    return SettingsStore::standard();
}

void ServerDiscoveryList::refreshData()
{
    // Several requests before the event loop turns load the table once.
    if (m_reloadQueued)
        return;
    m_reloadQueued = true;
    QMetaObject::invokeMethod(this, &ServerDiscoveryList::reload, Qt::QueuedConnection);
}

void ServerDiscoveryList::reload()
{
    m_reloadQueued = false;
    beginResetModel();
    m_rows = m_services;
    endResetModel();
}

void ServerDiscoveryList::serviceAdded(const NetServicePtr &service, bool moreComing)
{
    QStringList addresses;
    for (const QHostAddress &address : std::as_const(service->addresses))
        addresses.append(address.toString());
    TW_LOG(QStringLiteral("TidewaveAppDelegate: got a bonjour service with name: %1,(%2)")
               .arg(service->name, addresses.join(QStringLiteral(", "))));
    if (!m_servicesName.contains(service->name))
        m_services.append(service);
    // Even when this last event of a batch is one of our own names, the
    // peers added before it must be shown.
    if (!moreComing)
        refreshData();
}

void ServerDiscoveryList::serviceRemoved(const NetServicePtr &service, bool moreComing)
{
    m_services.removeIf([&](const NetServicePtr &listed) { return listed->isEqual(*service); });
    if (!moreComing)
        refreshData();
}

void ServerDiscoveryList::serverStopped(Server *)
{
    refreshData();
}

void ServerDiscoveryList::serverLostConnection(Server *, const QVariantMap &)
{
    TW_LOG(QStringLiteral("Lost connection"));
    refreshData();
}

QString ServerDiscoveryList::columnIdentifier(int column)
{
    switch (column) {
    case ServiceColumn:
        return ServiceName::serviceColumn();
    case ServiceIPColumn:
        return ServiceName::addressColumn();
    case ServicePortColumn:
        return ServiceName::portColumn();
    default:
        return QString();
    }
}

QString ServerDiscoveryList::cellValue(int row, const QString &columnIdentifier) const
{
    if (row < 0 || row >= m_rows.size())
        return QStringLiteral("");
    return ServiceName::cellValue(m_rows.at(row)->name, columnIdentifier);
}

int ServerDiscoveryList::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int ServerDiscoveryList::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant ServerDiscoveryList::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    if (role == Qt::DisplayRole)
        return cellValue(index.row(), columnIdentifier(index.column()));
    // Tooltips are read as rich text; a peer's name is shown as it is.
    if (role == Qt::ToolTipRole)
        return PlainText::asRichText(cellValue(index.row(), columnIdentifier(index.column())));
    return {};
}

QVariant ServerDiscoveryList::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return QAbstractTableModel::headerData(section, orientation, role);
    if (role == ColumnIdentifierRole)
        return columnIdentifier(section);
    if (role != Qt::DisplayRole)
        return {};
    switch (section) {
    case ServiceColumn:
        return tr("Computer");
    case ServiceIPColumn:
        return tr("Interface and address");
    default:
        return tr("Port");
    }
}

void ServerDiscoveryList::tableViewSelectionDidChange(int selectedRow)
{
    m_selectedRow = selectedRow;
    if (selectedRow < 0 || selectedRow >= m_rows.size())
        return;
    const std::optional<ServiceName::Target> target = ServiceName::target(m_rows.at(selectedRow)->name);
    if (!target)
        return;
    TidewaveUtils::setUserSetting(target->port, QStringLiteral("clientToServerPort"));
    TidewaveUtils::setUserSetting(target->address, QStringLiteral("clientToServerIpAddress"));
    NotificationCenter::defaultCenter().post(QStringLiteral("showupdate"),
                                             {{QStringLiteral("update"), QVariant::fromValue(&defaults())}});
    defaults().synchronize();
}

void ServerDiscoveryList::followSelection(QItemSelectionModel *selection)
{
    connect(selection, &QItemSelectionModel::selectionChanged, this, [this, selection] {
        const QModelIndexList rows = selection->selectedRows();
        tableViewSelectionDidChange(rows.isEmpty() ? -1 : rows.first().row());
    });
}
