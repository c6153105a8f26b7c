#pragma once

#include "PerfHelper/PerfHelper.h"
#include "records/ResultsFile.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QStringList>
#include <QWidget>

class AlertPresenter;


// The client tab's list of tests, newest first: one row per coordinator, the
// row number being its index in the list. Columns "checkbox" (checked while
// the test runs or is ticked; a click ticks or unticks it, its isSelected),
// "testLabel" (the test's name, editable once the test is over) and
// "testStatus" (the delete button). Edits of a running test are refused with
// an alert. Beside each coordinator the list keeps the test's final record,
// start date and note.
class TestListModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    // A cell's value in the list's own terms: 1/0 for "checkbox", the label
    // for "testLabel", none for "testStatus".
    static constexpr int ObjectValueRole = Qt::UserRole + 1;

    static const QStringList &columnIdentifiers();
    static inline const QString kRunningEditRefusal = QStringLiteral("Test label can only be edited after test completion.");

    // Alerts go through the presenter, over the given window.
    TestListModel(AlertPresenter &alerts, QObject *parent = nullptr);
    void setAlertParent(QWidget *parent) { m_alertParent = parent; }

    // testResultsArray.
    const QList<PerfHelperPtr> &tests() const { return m_tests; }
    PerfHelperPtr testAt(int row) const { return m_tests.value(row); }
    // A new test starts now, unless the extras say when it started.
    void insertTestAtFront(PerfHelperPtr test, TestExtras extras = {});
    void removeTestAt(int row);
    // What the list keeps beside a test of the list (empty for another).
    TestExtras extras(const PerfHelper *test) const { return m_extras.value(test); }
    void setFinalResult(const PerfHelper *test, PerfResultPtr result);
    void setNote(const PerfHelper *test, const QString &note);
    // The ticked tests that are not running, in list order.
    QList<PerfHelperPtr> tickedTests() const;
    // These tests with their extras.
    QList<SavedTest> savedTests(const QList<PerfHelperPtr> &tests) const;
    // Re-reads every cell.
    void reloadData();

    QString columnIdentifier(int column) const { return columnIdentifiers().value(column); }
    int columnForIdentifier(const QString &identifier) const { return int(columnIdentifiers().indexOf(identifier)); }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    // A user's edit: the check box (CheckStateRole or ObjectValueRole) or the
    // label (EditRole). Answers whether anything was accepted.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

private:
    QVariant objectValue(const PerfHelper &test, const QString &identifier) const;

    AlertPresenter &m_alerts;
    QPointer<QWidget> m_alertParent;
    QList<PerfHelperPtr> m_tests;
    QHash<const PerfHelper *, TestExtras> m_extras;
};
