#include "server/ServerIntervalTableModel.h"

#include "records/NumberUtilites.h"

ServerIntervalTableModel::ServerIntervalTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

const QStringList &ServerIntervalTableModel::columnIdentifiers()
{
    static const QStringList identifiers{QStringLiteral("interval"), QStringLiteral("bandwidth"),
                                         QStringLiteral("transfer"), QStringLiteral("jitter"),
                                         QStringLiteral("lost/totalDataGram")};
    return identifiers;
}

QString ServerIntervalTableModel::cellValue(const PerfResult &record, const QString &identifier)
{
    if (identifier == QLatin1String("interval"))
        return record.intervals;
    if (identifier == QLatin1String("bandwidth"))
        return NumberUtilites::bitFormat(record.receivedBandwidth);
    if (identifier == QLatin1String("transfer"))
        return NumberUtilites::byteFormat(record.receivedBytes);
    if (identifier == QLatin1String("jitter"))
        return record.jitter;
    if (identifier == QLatin1String("lost/totalDataGram"))
        return record.lostTotalDataGrams;
    return {};
}

void ServerIntervalTableModel::setTestResult(const iPerfServerResultsPtr &test)
{
    m_test = test;
    reloadData();
}

void ServerIntervalTableModel::reloadData()
{
    beginResetModel();
    m_rows = m_test ? m_test->intervalResults : PerfResultList();
    endResetModel();
}

int ServerIntervalTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int ServerIntervalTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(columnIdentifiers().size());
}

QVariant ServerIntervalTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size() || index.column() >= columnIdentifiers().size())
        return {};
    const PerfResultPtr &record = m_rows.at(index.row());
    if (!record)
        return {};
    if (role == Qt::DisplayRole)
        return cellValue(*record, columnIdentifiers().at(index.column()));
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::AlignLeft | Qt::AlignVCenter);
    return {};
}

QVariant ServerIntervalTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= columnIdentifiers().size())
        return {};
    if (role == Qt::DisplayRole) {
        static const QStringList titles{tr("Interval"), tr("Bandwidth"), tr("Transfer"), tr("Jitter"),
                                        tr("Lost/Total Datagrams")};
        return titles.at(section);
    }
    if (role == Qt::UserRole)
        return columnIdentifiers().at(section);
    return {};
}
