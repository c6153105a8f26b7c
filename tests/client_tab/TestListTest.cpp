#include "client_tab/ClientTestSupport.h"
#include "fakes/ClientFakeAlerts.h"

#include "client/TestInformationView.h"
#include "client/TestListController.h"
#include "client/TestListModel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

using namespace ClientTestSupport;

namespace {

class TestList : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // Oldest inserted first, so row 0 is the newest.
        for (const char *label : {"oldest", "middle", "newest"}) {
            auto t = test(settings.store);
            t->testLabel = QString::fromLatin1(label);
            model.insertTestAtFront(t);
        }
    }

    QModelIndex cell(int row, const char *identifier)
    {
        return model.index(row, model.columnForIdentifier(QLatin1String(identifier)));
    }

    TempStore settings;
    ClientFakeAlerts alerts;
    TestListModel model{alerts};
    QAbstractItemModelTester tester{&model, QAbstractItemModelTester::FailureReportingMode::Warning};
    TestInformationView detail{nullptr, &settings.store};
    TestListController controller{model, detail, alerts, nullptr};
};

TEST(TestListEmpty, HasNoRowsAndNoCells)
{
    ClientFakeAlerts alerts;
    TestListModel model(alerts);
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_FALSE(model.index(0, 0).isValid());
    EXPECT_FALSE(model.data(model.index(0, 1)).isValid());
    EXPECT_EQ(model.columnCount(), 3);
}

TEST_F(TestList, CellsShowRunningStateAndLabel)
{
    model.testAt(0)->isTestRunning = 1;
    model.testAt(0)->isSelected = 0;
    model.testAt(1)->isSelected = 1;
    model.reloadData();
    EXPECT_EQ(cell(0, "testLabel").data().toString(), QStringLiteral("newest"));
    EXPECT_EQ(cell(2, "testLabel").data().toString(), QStringLiteral("oldest"));
    // The box shows the running state, not the tick the user gave it.
    EXPECT_EQ(cell(0, "checkbox").data(TestListModel::ObjectValueRole).toInt(), 1);
    EXPECT_EQ(cell(1, "checkbox").data(TestListModel::ObjectValueRole).toInt(), 0);
    EXPECT_EQ(cell(0, "checkbox").data(Qt::CheckStateRole).toInt(), Qt::Checked);
    EXPECT_FALSE(cell(0, "testStatus").data(TestListModel::ObjectValueRole).isValid());
    // Only a finished test's label is editable.
    EXPECT_FALSE(cell(0, "testLabel").flags() & Qt::ItemIsEditable);
    EXPECT_TRUE(cell(1, "testLabel").flags() & Qt::ItemIsEditable);
}

struct EditCase
{
    const char *name;
    bool running;
    const char *identifier;
    QVariant value;
    int role;
    QStringList expectedAlerts;
    qint64 expectedSelected;
    QString expectedLabel;
    int expectedChanges; // dataChanged signals
    friend void PrintTo(const EditCase &c, std::ostream *os) { *os << c.name; }
};

class TestListEdit : public TestList, public ::testing::WithParamInterface<EditCase>
{
};

TEST_P(TestListEdit, AppliesOrRefusesTheEdit)
{
    const EditCase &c = GetParam();
    PerfHelperPtr t = model.testAt(1);
    t->isTestRunning = c.running ? 1 : 0;
    t->isSelected = 0;
    t->testLabel = QStringLiteral("TCP Test");
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setData(cell(1, c.identifier), c.value, c.role);
    EXPECT_EQ(alerts.shown, c.expectedAlerts);
    EXPECT_EQ(t->isSelected, c.expectedSelected);
    EXPECT_EQ(t->testLabel, c.expectedLabel);
    EXPECT_EQ(changed.count(), c.expectedChanges);
}

const QStringList kRefusal{QStringLiteral("Test label can only be edited after test completion.")};

INSTANTIATE_TEST_SUITE_P(
    Edits, TestListEdit,
    ::testing::Values(
        EditCase{"tickFinished", false, "checkbox", int(Qt::Checked), Qt::CheckStateRole, {}, 1, "TCP Test", 1},
        EditCase{"tickValueFinished", false, "checkbox", 1, TestListModel::ObjectValueRole, {}, 1, "TCP Test", 1},
        EditCase{"tickRunningRefused", true, "checkbox", int(Qt::Checked), Qt::CheckStateRole, kRefusal, 0, "TCP Test", 0},
        EditCase{"renameFinished", false, "testLabel", QStringLiteral("Kitchen"), Qt::EditRole, {}, 0, "Kitchen", 1},
        EditCase{"renameRunningRefused", true, "testLabel", QStringLiteral("Kitchen"), Qt::EditRole, kRefusal, 0,
                 "TCP Test", 0},
        // The same name is not written again.
        EditCase{"renameToSameName", false, "testLabel", QStringLiteral("TCP Test"), Qt::EditRole, {}, 0, "TCP Test", 0},
        // The delete column ignores edits, running or not.
        EditCase{"statusIgnored", true, "testStatus", 1, Qt::EditRole, {}, 0, "TCP Test", 0}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(TestList, SelectionShowsTheTestAndRecordsItsRow)
{
    controller.tableViewSelectionDidChange(2);
    EXPECT_EQ(detail.perfHelper(), model.testAt(2));
    EXPECT_EQ(model.testAt(2)->index, 2);
    // Clearing the selection leaves the detail view as it is.
    controller.tableViewSelectionDidChange(-1);
    EXPECT_EQ(detail.perfHelper(), model.testAt(2));
}

struct DeleteCase
{
    const char *name;
    bool answerYes;
    bool running;
    int lastSelectedAt; // index of the clicked test
    QStringList expectedAlerts;
    bool removed;
    bool detailCleared;
    friend void PrintTo(const DeleteCase &c, std::ostream *os) { *os << c.name; }
};

class TestListDelete : public TestList, public ::testing::WithParamInterface<DeleteCase>
{
};

TEST_P(TestListDelete, AsksThenChecksRunningThenComparesIndex)
{
    const DeleteCase &c = GetParam();
    const int clicked = 1;
    // The detail view shows the clicked test, whatever its index says.
    PerfHelperPtr target = model.testAt(clicked);
    detail.setPerfHelper(target);
    detail.updateView();
    target->isTestRunning = c.running ? 1 : 0;
    target->index = c.lastSelectedAt;
    alerts.answerYes = c.answerYes;

    controller.removeTest(clicked);

    EXPECT_EQ(alerts.confirmations, QStringList{QStringLiteral("Are you sure you want to delete?")});
    EXPECT_EQ(alerts.buttons, QStringList{QStringLiteral("Yes/Cancel")});
    EXPECT_EQ(alerts.shown, c.expectedAlerts);
    EXPECT_EQ(model.rowCount(), c.removed ? 2 : 3);
    EXPECT_EQ(model.tests().contains(target), !c.removed);
    EXPECT_EQ(detail.perfHelper() == nullptr, c.detailCleared);
}

INSTANTIATE_TEST_SUITE_P(
    Deletes, TestListDelete,
    ::testing::Values(DeleteCase{"cancelled", false, false, 1, {}, false, false},
                      DeleteCase{"runningRefused",
                                 true,
                                 true,
                                 1,
                                 {QStringLiteral("You cannot delete currently running test.")},
                                 false,
                                 false},
                      DeleteCase{"sameIndexClearsDetail", true, false, 1, {}, true, true},
                      // Shown but last selected elsewhere: the detail view stays.
                      DeleteCase{"otherIndexKeepsDetail", true, false, 0, {}, true, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(TestList, TableWiresDelegatesToTheController)
{
    QTableView table;
    controller.attach(&table);
    table.resize(400, 200);
    table.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));

    // A click on a row selects it for the detail view.
    const QRect labelRect = table.visualRect(cell(2, "testLabel"));
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, labelRect.center());
    EXPECT_EQ(detail.perfHelper(), model.testAt(2));

    // A click on the delete button asks, then deletes that row.
    alerts.answerYes = true;
    PerfHelperPtr clicked = model.testAt(0);
    const QRect statusRect = table.visualRect(cell(0, "testStatus"));
    const QPoint button(statusRect.right() - 14, statusRect.center().y());
    QTest::mousePress(table.viewport(), Qt::LeftButton, {}, button);
    QTest::mouseRelease(table.viewport(), Qt::LeftButton, {}, button);
    EXPECT_EQ(alerts.confirmations.size(), 1);
    EXPECT_FALSE(model.tests().contains(clicked));

    // A click on a running test's box is refused with the alert.
    model.testAt(0)->isTestRunning = 1;
    const QRect boxRect = table.visualRect(cell(0, "checkbox"));
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, boxRect.center());
    EXPECT_EQ(alerts.shown, kRefusal);
}

} // namespace
