#include "client/TestListController.h"

#include "client/AlertPresenter.h"
#include "client/TestCheckBoxDelegate.h"
#include "client/TestDeleteButtonDelegate.h"
#include "client/TestFileActions.h"
#include "client/TestInformationView.h"
#include "client/TestLabelDelegate.h"
#include "client/TestListModel.h"

#include <QHeaderView>
#include <QTableView>
#include <QWidget>

TestListController::TestListController(TestListModel &model, TestInformationView &detailView, AlertPresenter &alerts,
                                       QWidget *alertParent, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_detailView(detailView)
    , m_alerts(alerts)
    , m_alertParent(alertParent)
    , m_files(new TestFileActions(model, detailView, alerts, detailView.settingsStore(), alertParent, this))
{
    m_detailView.setTestList(&m_model);
    connect(&m_model, &QAbstractItemModel::dataChanged, this, &TestListController::updateComparison);
    connect(&m_model, &QAbstractItemModel::rowsInserted, this, &TestListController::updateComparison);
    connect(&m_model, &QAbstractItemModel::rowsRemoved, this, &TestListController::updateComparison);
    connect(m_files, &TestFileActions::testsOpened, this, [this] { selectRow(0); });
}

void TestListController::updateComparison()
{
    m_detailView.setComparedTests(m_model.tickedTests());
}

void TestListController::selectRow(int row)
{
    if (m_table)
        m_table->selectRow(row);
    else
        tableViewSelectionDidChange(row);
}

void TestListController::attach(QTableView *table)
{
    m_table = table;
    table->setModel(&m_model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    const int checkbox = m_model.columnForIdentifier(QStringLiteral("checkbox"));
    const int label = m_model.columnForIdentifier(QStringLiteral("testLabel"));
    const int status = m_model.columnForIdentifier(QStringLiteral("testStatus"));
    table->setItemDelegateForColumn(checkbox, new TestCheckBoxDelegate(table));
    table->setItemDelegateForColumn(label, new TestLabelDelegate(table));
    auto *deleteButton = new TestDeleteButtonDelegate(table);
    table->setItemDelegateForColumn(status, deleteButton);
    connect(deleteButton, &TestDeleteButtonDelegate::removeRequested, this, &TestListController::removeTest);

    QHeaderView *header = table->horizontalHeader();
    header->setSectionResizeMode(checkbox, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(label, QHeaderView::Stretch);
    header->setSectionResizeMode(status, QHeaderView::Fixed);
    header->resizeSection(status, 44);
    table->verticalHeader()->setDefaultSectionSize(34);

    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this, table] {
        const QModelIndexList rows = table->selectionModel()->selectedRows();
        tableViewSelectionDidChange(rows.isEmpty() ? -1 : rows.first().row());
    });
}

void TestListController::tableViewSelectionDidChange(int selectedRow)
{
    const PerfHelperPtr test = m_model.testAt(selectedRow);
    if (selectedRow < 0 || !test || m_removing)
        return;
    m_detailView.setPerfHelper(test);
    test->index = selectedRow;
    m_detailView.resetGraph();
    m_detailView.updateView();
}

void TestListController::removeTest(int clickedRow)
{
    if (!m_alerts.confirm(m_alertParent, kDeleteQuestion, QStringLiteral("Yes"), QStringLiteral("Cancel")))
        return;
    const PerfHelperPtr test = m_model.testAt(clickedRow);
    if (!test)
        return;
    if (test->isTestRunning) {
        m_alerts.showAlert(m_alertParent, kRunningDeleteRefusal);
        return;
    }
    // The row the test was last selected at is compared, not the test shown.
    const bool shown = test->index == clickedRow;
    if (shown)
        m_detailView.clearView();
    // Qt moves the selection to a neighbour of a removed row; the view stays
    // empty all the same, and nothing is left highlighted.
    m_removing = true;
    m_model.removeTestAt(clickedRow);
    if (shown && m_table)
        m_table->clearSelection();
    m_removing = false;
}
