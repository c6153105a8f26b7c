#include "client/PerfResultTableModel.h"

#include "client/WiFiModeText.h"
#include "records/NumberUtilites.h"
#include "shell/SettingsStore.h"

#include <QColor>

namespace {

// "%@" of a string: a missing one prints as "(null)".
QString objectText(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

} // namespace

const QStringList &PerfResultTableModel::defaultColumnIdentifiers()
{
    static const QStringList identifiers{
        QStringLiteral("timeInterval"), QStringLiteral("dataTransfer"), QStringLiteral("srBandwidth"),
        QStringLiteral("ssid"),         QStringLiteral("bssid"),        QStringLiteral("interface"),
        QStringLiteral("rssi"),         QStringLiteral("noise"),        QStringLiteral("txRate"),
        QStringLiteral("signalToNoise"), QStringLiteral("security"),    QStringLiteral("phyMode"),
        QStringLiteral("jitter"),       QStringLiteral("dataloss"),
        // Link health, from the launcher's own figures where iperf3 prints none.
        QStringLiteral("direction"),    QStringLiteral("retransmits"),  QStringLiteral("roundTrip"),
        QStringLiteral("congestionWindow"), QStringLiteral("linkJitter"), QStringLiteral("linkLoss"),
        QStringLiteral("roam")};
    return identifiers;
}

QString PerfResultTableModel::headerForIdentifier(const QString &identifier)
{
    static const QHash<QString, QString> headers{
        {QStringLiteral("timeInterval"), tr("Interval")},
        {QStringLiteral("dataTransfer"), tr("Transfer")},
        {QStringLiteral("srBandwidth"), tr("Bandwidth")},
        {QStringLiteral("ssid"), tr("SSID")},
        {QStringLiteral("bssid"), tr("BSSID")},
        {QStringLiteral("interface"), tr("Interface")},
        {QStringLiteral("rssi"), tr("RSSI")},
        {QStringLiteral("noise"), tr("Noise")},
        {QStringLiteral("txRate"), tr("Tx Rate")},
        {QStringLiteral("signalToNoise"), tr("SNR")},
        {QStringLiteral("security"), tr("Security")},
        {QStringLiteral("phyMode"), tr("PHY Mode")},
        {QStringLiteral("jitter"), tr("Jitter")},
        {QStringLiteral("dataloss"), tr("Lost/Total Datagrams")},
        {QStringLiteral("direction"), tr("Direction")},
        {QStringLiteral("retransmits"), tr("Retransmits")},
        {QStringLiteral("roundTrip"), tr("RTT (ms)")},
        {QStringLiteral("congestionWindow"), tr("Cwnd (KB)")},
        {QStringLiteral("linkJitter"), tr("Jitter (ms)")},
        {QStringLiteral("linkLoss"), tr("Lost/Total")},
        {QStringLiteral("roam"), tr("Roam")}};
    return headers.value(identifier, identifier);
}

bool PerfResultTableModel::roamed(const PerfResult &result, const PerfResult *earlier)
{
    return earlier && !earlier->bssidField.isEmpty() && !result.bssidField.isEmpty()
        && earlier->bssidField != result.bssidField;
}

QVariant PerfResultTableModel::cellValue(const PerfResult &r, const QString &identifier, const PerfResult *earlier)
{
    const bool kilo = r.bandwidthformat == 1;
    const bool wired = r.ssidField == QLatin1String("") && !r.ssidField.isNull();
    if (identifier == QLatin1String("timeInterval"))
        return QStringLiteral("%1-%2 sec").arg(objectText(r.startTime), objectText(r.endTime));
    if (identifier == QLatin1String("dataTransfer"))
        return kilo ? NumberUtilites::KBFormat(r.sentBytes) : NumberUtilites::byteFormat(r.sentBytes);
    if (identifier == QLatin1String("srBandwidth"))
        return (kilo ? NumberUtilites::kbpsFormat(r.sentBandwidth) : NumberUtilites::bitFormat(r.sentBandwidth))
               + QStringLiteral("  ");
    if (identifier == QLatin1String("ssid"))
        return objectText(r.ssidField);
    if (identifier == QLatin1String("bssid"))
        return objectText(r.bssidField);
    if (identifier == QLatin1String("interface"))
        return objectText(r.interfaceName);
    if (identifier == QLatin1String("rssi"))
        return wired ? QString(QLatin1String("")) : QString::number(r.rssiField);
    if (identifier == QLatin1String("noise"))
        return wired ? QString(QLatin1String("")) : QString::number(r.noiseField);
    if (identifier == QLatin1String("txRate"))
        return wired ? QString(QLatin1String("")) : QString::number(r.txRateField);
    if (identifier == QLatin1String("signalToNoise"))
        return wired ? QString(QLatin1String(""))
                     : QString::number(qint32(r.rssiField) - qint32(r.noiseField));
    if (identifier == QLatin1String("security"))
        return wired ? QString(QLatin1String(""))
                     : objectText(WiFiModeText::stringForSecurityMode(r.securityModeField, r.OSXVersion));
    if (identifier == QLatin1String("phyMode"))
        return wired ? QString(QLatin1String(""))
                     : objectText(WiFiModeText::stringForPHYMode(r.phyModeField, r.OSXVersion));
    if (identifier == QLatin1String("jitter"))
        return r.jitter.isEmpty() ? QString(QLatin1String("")) : r.jitter;
    if (identifier == QLatin1String("dataloss"))
        return r.lostTotalDataGrams.isEmpty() ? QString(QLatin1String("")) : r.lostTotalDataGrams;
    // Figures not known are -1 and show as nothing.
    if (identifier == QLatin1String("direction"))
        return r.direction == 0 ? tr("Up") : r.direction == 1 ? tr("Down") : QString(QLatin1String(""));
    if (identifier == QLatin1String("retransmits"))
        return r.retransmits < 0 ? QString(QLatin1String("")) : QString::number(r.retransmits);
    if (identifier == QLatin1String("roundTrip"))
        return r.roundTripMs < 0 ? QString(QLatin1String("")) : QString::number(r.roundTripMs, 'f', 1);
    if (identifier == QLatin1String("congestionWindow"))
        return r.congestionWindow < 0 ? QString(QLatin1String("")) : QString::number(r.congestionWindow / 1024);
    if (identifier == QLatin1String("linkJitter"))
        return r.udpJitterMs < 0 ? QString(QLatin1String("")) : QString::number(r.udpJitterMs, 'f', 3);
    if (identifier == QLatin1String("linkLoss")) {
        if (r.udpLostDatagrams < 0 || r.udpTotalDatagrams <= 0)
            return QString(QLatin1String(""));
        return QStringLiteral("%1/%2 (%3%)").arg(r.udpLostDatagrams).arg(r.udpTotalDatagrams)
            .arg(100.0 * double(r.udpLostDatagrams) / double(r.udpTotalDatagrams), 0, 'f', 2);
    }
    if (identifier == QLatin1String("roam"))
        return roamed(r, earlier) ? tr("from %1").arg(earlier->bssidField) : QString(QLatin1String(""));
    return QVariant();
}

PerfResultTableModel::PerfResultTableModel(QObject *parent, SettingsStore *store, const QStringList &columnIdentifiers)
    : QAbstractTableModel(parent)
    , m_store(store ? store : &SettingsStore::standard())
    , m_identifiers(columnIdentifiers)
{
}

void PerfResultTableModel::setResults(const PerfResultList *results)
{
    beginResetModel();
    m_results = results;
    m_rows = m_results ? int(m_results->size()) : 0;
    m_newest = m_rows > 0 ? m_results->first() : nullptr;
    endResetModel();
}

void PerfResultTableModel::reloadData()
{
    const int live = m_results ? int(m_results->size()) : 0;
    const bool grewAtFront =
        m_results && live >= m_rows && (m_rows == 0 || m_results->at(live - m_rows) == m_newest);
    if (!grewAtFront) {
        beginResetModel();
        m_rows = live;
        m_newest = live > 0 ? m_results->first() : nullptr;
        endResetModel();
        return;
    }
    const int added = live - m_rows;
    if (added > 0) {
        beginInsertRows(QModelIndex(), 0, added - 1);
        m_rows = live;
        m_newest = m_results->first();
        endInsertRows();
    }
    // The older rows' texts are read afresh as well, as a full reload would.
    if (m_rows > added && columnCount() > 0)
        emit dataChanged(index(added, 0), index(m_rows - 1, columnCount() - 1), {Qt::DisplayRole});
}

const PerfResult *PerfResultTableModel::recordAt(int row) const
{
    if (!m_results || row < 0 || row >= m_rows)
        return nullptr;
    // Records put at the front since the last reload are not rows yet.
    const qsizetype live = m_results->size() - m_rows + row;
    if (live < 0 || live >= m_results->size())
        return nullptr;
    return m_results->at(live).get();
}

int PerfResultTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows;
}

int PerfResultTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_identifiers.size());
}

QVariant PerfResultTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.column() >= m_identifiers.size())
        return QVariant();
    const PerfResult *record = recordAt(index.row());
    if (!record)
        return QVariant();
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::Alignment(Qt::AlignCenter));
    // Rows are newest first: the interval before is the row below.
    const PerfResult *earlier = recordAt(index.row() + 1);
    if (role == Qt::BackgroundRole || role == Qt::ToolTipRole) {
        // The interval where the client roamed stands out.
        if (!roamed(*record, earlier))
            return QVariant();
        if (role == Qt::BackgroundRole)
            return QColor(255, 224, 150);
        return tr("Roamed from %1 to %2").arg(earlier->bssidField, record->bssidField);
    }
    if (role != Qt::DisplayRole)
        return QVariant();
    const QString &identifier = m_identifiers.at(index.column());
    QVariant value = cellValue(*record, identifier, earlier);
    if (!value.isValid())
        m_store->synchronize();
    return value;
}

QVariant PerfResultTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= m_identifiers.size())
        return QAbstractTableModel::headerData(section, orientation, role);
    return headerForIdentifier(m_identifiers.at(section));
}
