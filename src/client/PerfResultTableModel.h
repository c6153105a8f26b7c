#pragma once

#include "records/PerfResult.h"

#include <QAbstractTableModel>
#include <QStringList>

class SettingsStore;

// The detail view's interval table: one row per record of a test's result
// list, in list order (row 0 is the newest interval). The model reads the
// list it is pointed at; it owns no records.
//
// The list only ever grows at its front while a test runs, so a reload that
// finds the rows it already announced still in place at the list's end
// announces just the new rows at the top instead of resetting the table.
class PerfResultTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    // The column identifiers of the interval table, in table order.
    static const QStringList &defaultColumnIdentifiers();
    // The header caption of a column identifier.
    static QString headerForIdentifier(const QString &identifier);

    // The cell of a record in the column with this identifier; an invalid
    // QVariant (an empty cell) for an identifier the table does not know.
    // `earlier` is the interval before it, for the "roam" column.
    static QVariant cellValue(const PerfResult &result, const QString &identifier,
                              const PerfResult *earlier = nullptr);
    // Whether the access point changed between the earlier interval and
    // this one.
    static bool roamed(const PerfResult &result, const PerfResult *earlier);

    explicit PerfResultTableModel(QObject *parent = nullptr, SettingsStore *store = nullptr,
                                  const QStringList &columnIdentifiers = defaultColumnIdentifiers());

    // The list shown, not owned (null: none). It must outlive its use here;
    // the detail view keeps the test that holds it.
    void setResults(const PerfResultList *results);
    // Brings the rows in line with the list.
    void reloadData();

    QString columnIdentifier(int column) const { return m_identifiers.value(column); }
    int columnForIdentifier(const QString &identifier) const { return int(m_identifiers.indexOf(identifier)); }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    // The record behind a row announced to the views.
    const PerfResult *recordAt(int row) const;

    SettingsStore *m_store;
    QStringList m_identifiers;
    const PerfResultList *m_results = nullptr;
    int m_rows = 0;           // rows announced to the views
    PerfResultPtr m_newest;   // the record of row 0 when the rows were last announced
};
