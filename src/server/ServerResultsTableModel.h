#pragma once

#include "records/iPerfServerResults.h"

#include <QAbstractTableModel>
#include <QList>

// The server tab's results table: one row per incoming test, newest first,
// one column ("results") whose cells are TestFinishedResultCellView widgets.
class ServerResultsTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    static constexpr int kBaseRowHeight = 95;
    static constexpr int kHeightPerInterval = 10;

    explicit ServerResultsTableModel(QObject *parent = nullptr);

    // 95 plus 10 for every interval record of the test (95 for none).
    static int rowHeightFor(const iPerfServerResultsPtr &test);

    // Shows this list. Answers whether the rows themselves changed (a test
    // added or removed, or the order changed), as opposed to their contents.
    bool setTests(const QList<iPerfServerResultsPtr> &tests);
    iPerfServerResultsPtr testAt(int row) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QList<iPerfServerResultsPtr> m_tests;
};
