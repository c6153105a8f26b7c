#pragma once

#include "records/PerfResult.h"
#include "records/iPerfServerResults.h"

#include <QAbstractTableModel>
#include <QStringList>

// The interval table inside a result cell: one row per interval record of
// the shown test, one column per identifier.
class ServerIntervalTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    explicit ServerIntervalTableModel(QObject *parent = nullptr);

    // "interval", "bandwidth", "transfer", "jitter", "lost/totalDataGram".
    static const QStringList &columnIdentifiers();
    // A cell's text by column identifier; "" for an unknown identifier.
    static QString cellValue(const PerfResult &record, const QString &identifier);

    void setTestResult(const iPerfServerResultsPtr &test);
    // Reads the test's interval list afresh (it grows while the test runs).
    void reloadData();

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    iPerfServerResultsPtr m_test;
    PerfResultList m_rows;
};
