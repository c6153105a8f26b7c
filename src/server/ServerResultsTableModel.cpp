#include "server/ServerResultsTableModel.h"

#include <QSize>

ServerResultsTableModel::ServerResultsTableModel(QObject *parent)
    : QAbstractTableModel(parent)
{
}

int ServerResultsTableModel::rowHeightFor(const iPerfServerResultsPtr &test)
{
    const qsizetype intervals = test ? test->intervalResults.size() : 0;
    return kBaseRowHeight + kHeightPerInterval * static_cast<int>(intervals);
}

bool ServerResultsTableModel::setTests(const QList<iPerfServerResultsPtr> &tests)
{
    if (tests == m_tests) {
        if (!m_tests.isEmpty())
            emit dataChanged(index(0, 0), index(rowCount() - 1, 0), {Qt::SizeHintRole, Qt::DisplayRole});
        return false;
    }
    beginResetModel();
    m_tests = tests;
    endResetModel();
    return true;
}

iPerfServerResultsPtr ServerResultsTableModel::testAt(int row) const
{
    return row >= 0 && row < m_tests.size() ? m_tests.at(row) : nullptr;
}

int ServerResultsTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_tests.size());
}

int ServerResultsTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : 1;
}

QVariant ServerResultsTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_tests.size())
        return {};
    if (role == Qt::SizeHintRole)
        return QSize(0, rowHeightFor(m_tests.at(index.row())));
    return {};
}

QVariant ServerResultsTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && section == 0 && role == Qt::UserRole)
        return QStringLiteral("results");
    return {};
}
