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

const QStringList kRefusal{QStringLiteral("Test label can only be edited after test completion.")};

class TestList : public ::testing::Test
{
protected:
    void SetUp() override
    {
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

TEST_F(TestList, CellsShowRunningStateAndLabelNewestFirst)
{
    model.testAt(0)->isTestRunning = 1;
    model.testAt(1)->isSelected = 1;
    model.reloadData();
    EXPECT_EQ(cell(0, "testLabel").data().toString(), QStringLiteral("newest"));
    // The box shows the running state, not the tick the user gave it.
    EXPECT_EQ(cell(0, "checkbox").data(TestListModel::ObjectValueRole).toInt(), 1);
    EXPECT_EQ(cell(1, "checkbox").data(TestListModel::ObjectValueRole).toInt(), 0);
    EXPECT_FALSE(cell(0, "testStatus").data(TestListModel::ObjectValueRole).isValid());
    EXPECT_FALSE(cell(0, "testLabel").flags() & Qt::ItemIsEditable);
    EXPECT_TRUE(cell(1, "testLabel").flags() & Qt::ItemIsEditable);
    EXPECT_FALSE(model.index(3, 0).isValid());
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
    t->testLabel = QStringLiteral("TCP Test");
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setData(cell(1, c.identifier), c.value, c.role);
    EXPECT_EQ(alerts.shown, c.expectedAlerts);
    EXPECT_EQ(t->isSelected, c.expectedSelected);
    EXPECT_EQ(t->testLabel, c.expectedLabel);
    EXPECT_EQ(changed.count(), c.expectedChanges);
}

INSTANTIATE_TEST_SUITE_P(
    Edits, TestListEdit,
    ::testing::Values(
        EditCase{"tickFinished", false, "checkbox", int(Qt::Checked), Qt::CheckStateRole, {}, 1, "TCP Test", 1},
        EditCase{"tickRunningRefused", true, "checkbox", int(Qt::Checked), Qt::CheckStateRole, kRefusal, 0, "TCP Test", 0},
        EditCase{"renameFinished", false, "testLabel", QStringLiteral("Kitchen"), Qt::EditRole, {}, 0, "Kitchen", 1},
        EditCase{"renameRunningRefused", true, "testLabel", QStringLiteral("Kitchen"), Qt::EditRole, kRefusal, 0,
                 "TCP Test", 0},
        // The same name is not written again.
        EditCase{"renameToSameName", false, "testLabel", QStringLiteral("TCP Test"), Qt::EditRole, {}, 0, "TCP Test", 0},
        EditCase{"statusIgnored", true, "testStatus", 1, Qt::EditRole, {}, 0, "TCP Test", 0}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(TestList, SelectionShowsTheTestAndRecordsItsRow)
{
    controller.tableViewSelectionDidChange(2);
    EXPECT_EQ(detail.perfHelper(), model.testAt(2));
    EXPECT_EQ(model.testAt(2)->index, 2);
    controller.tableViewSelectionDidChange(-1); // cleared: the view stays
    EXPECT_EQ(detail.perfHelper(), model.testAt(2));
}

struct DeleteCase
{
    const char *name;
    bool answerYes, running;
    int lastSelectedAt; // index of the clicked test
    QStringList expectedAlerts;
    bool removed, detailCleared;
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
    target->isTestRunning = c.running ? 1 : 0;
    target->index = c.lastSelectedAt;
    alerts.answerYes = c.answerYes;

    controller.removeTest(clicked);

    EXPECT_EQ(alerts.confirmations, QStringList{QStringLiteral("Are you sure you want to delete?")});
    EXPECT_EQ(alerts.buttons, QStringList{QStringLiteral("Yes/Cancel")});
    EXPECT_EQ(alerts.shown, c.expectedAlerts);
    EXPECT_EQ(model.tests().contains(target), !c.removed);
    EXPECT_EQ(detail.perfHelper() == nullptr, c.detailCleared);
}

INSTANTIATE_TEST_SUITE_P(
    Deletes, TestListDelete,
    ::testing::Values(DeleteCase{"cancelled", false, false, 1, {}, false, false},
                      DeleteCase{"runningRefused", true, true, 1,
                                 {QStringLiteral("You cannot delete currently running test.")}, false, false},
                      DeleteCase{"sameIndexClearsDetail", true, false, 1, {}, true, true},
                      // Shown but last selected at another row: the view stays.
                      DeleteCase{"otherIndexKeepsDetail", true, false, 0, {}, true, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(TestList, ClicksReachTheControllerThroughTheDelegates)
{
    QTableView table;
    controller.attach(&table);
    table.resize(400, 200);
    table.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));

    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, table.visualRect(cell(2, "testLabel")).center());
    EXPECT_EQ(detail.perfHelper(), model.testAt(2));

    PerfHelperPtr clicked = model.testAt(0);
    const QRect status = table.visualRect(cell(0, "testStatus"));
    const QPoint button(status.right() - 14, status.center().y());
    QTest::mousePress(table.viewport(), Qt::LeftButton, {}, button);
    QTest::mouseRelease(table.viewport(), Qt::LeftButton, {}, button);
    EXPECT_FALSE(model.tests().contains(clicked));

    model.testAt(0)->isTestRunning = 1;
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, table.visualRect(cell(0, "checkbox")).center());
    EXPECT_EQ(alerts.shown, kRefusal);
}

} // namespace
