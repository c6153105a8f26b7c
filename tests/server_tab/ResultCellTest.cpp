#include "server/ServerIntervalTableModel.h"
#include "server/ServerResultsTableModel.h"
#include "server/TestFinishedResultCellView.h"

#include <QAbstractItemModelTester>
#include <QLabel>
#include <QTableView>

#include <gtest/gtest.h>

namespace {

struct Line
{
    QString intervals;
    float bytes;
    float bandwidth;
    QString jitter;
    QString lost;
    QString type;
};

PerfResultPtr record(const Line &line, const QString &ip = QStringLiteral("10.0.0.5"))
{
    auto r = std::make_shared<PerfResult>();
    r->intervals = line.intervals;
    r->receivedBytes = line.bytes;
    r->receivedBandwidth = line.bandwidth;
    r->jitter = line.jitter;
    r->lostTotalDataGrams = line.lost;
    r->typeName = line.type;
    r->ip = ip;
    r->currentDate = QStringLiteral("21/11/2026 22:15:0%1").arg(line.intervals.size() % 10);
    return r;
}

iPerfServerResultsPtr testWith(const QList<Line> &intervals, const QList<Line> &finals)
{
    auto test = std::make_shared<iPerfServerResults>();
    for (const Line &line : intervals)
        test->intervalResults << record(line);
    for (const Line &line : finals)
        test->finalResults << record(line);
    return test;
}

QStringList summary(const TestFinishedResultCellView &cell)
{
    return {cell.textField->text(),         cell.intervalTextField->text(),
            cell.transferTextField->text(), cell.bandwidthTextField->text(),
            cell.jitterTextField->text(),   cell.lostTotalDatagramTextField->text(),
            cell.typeName->text()};
}

const Line kFirstSecond{QStringLiteral("0.00-1.00 sec"), 1048576.0f * 110, 923000000.0f, QStringLiteral("-"),
                        QStringLiteral("-"), QStringLiteral("receiver")};
const Line kSecondSecond{QStringLiteral("1.00-2.00 sec"), 1048576.0f * 112, 941000000.0f, QStringLiteral("-"),
                         QStringLiteral("-"), QStringLiteral("receiver")};

TEST(ResultCell, ATestWithoutRecordsShowsDashes)
{
    TestFinishedResultCellView cell;
    cell.testResult = testWith({}, {});
    cell.updateUI();
    EXPECT_EQ(summary(cell), (QStringList{QStringLiteral("From -"), "-", "-", "-", "-", "-", "-"}));
    EXPECT_EQ(cell.createdDateTextField->text(), QStringLiteral("-"));
    EXPECT_EQ(cell.intervalResultsTable->model()->rowCount(), 0);
}

TEST(ResultCell, IntervalsWithoutFinalsShowTheLastIntervalAndDashes)
{
    TestFinishedResultCellView cell;
    cell.testResult = testWith({kFirstSecond, kSecondSecond}, {});
    cell.testResult->intervalResults.last()->ip = QStringLiteral("192.168.1.20");
    cell.testResult->intervalResults.last()->typeName = QStringLiteral("sender");
    cell.updateUI();
    EXPECT_EQ(summary(cell), (QStringList{QStringLiteral("From 192.168.1.20 To This Computer"), "-", "-", "-", "-",
                                          "-", QStringLiteral("Server is sender")}));
    EXPECT_EQ(cell.createdDateTextField->text(), cell.testResult->intervalResults.last()->currentDate);
    EXPECT_EQ(cell.intervalResultsTable->model()->rowCount(), 2);
}

// Which final record fills the summary: only whole-test lines (their
// interval holds "0.00"), not a receiver line that carried nothing, and the
// last one that qualifies wins.
struct FinalsCase
{
    const char *name;
    QList<Line> finals;
    int winner; // index into finals; -1 when none qualifies
};

class ResultCellFinals : public ::testing::TestWithParam<FinalsCase>
{
};

TEST_P(ResultCellFinals, SummaryComesFromTheRightRecord)
{
    const FinalsCase &c = GetParam();
    TestFinishedResultCellView cell;
    // What the cell showed before, from another test.
    const Line earlier{QStringLiteral("0.00-5.00 sec"), 1048576.0f * 3, 5000000.0f, QStringLiteral("0.5 ms"),
                       QStringLiteral("1/10"), QStringLiteral("earlier")};
    cell.testResult = testWith({}, {earlier});
    cell.updateUI();
    const QStringList before = summary(cell);

    cell.testResult = testWith({kFirstSecond}, c.finals);
    cell.updateUI();
    if (c.winner < 0) {
        EXPECT_EQ(summary(cell), before);
        return;
    }
    const Line &w = c.finals.at(c.winner);
    const PerfResultPtr &r = cell.testResult->finalResults.at(c.winner);
    EXPECT_EQ(cell.textField->text(), QStringLiteral("From 10.0.0.5 To This Computer"));
    EXPECT_EQ(cell.intervalTextField->text(), w.intervals);
    EXPECT_EQ(cell.jitterTextField->text(), w.jitter);
    EXPECT_EQ(cell.lostTotalDatagramTextField->text(), w.lost);
    EXPECT_EQ(cell.typeName->text(), QStringLiteral("Server is ") + w.type);
    EXPECT_EQ(cell.createdDateTextField->text(), r->currentDate);
}

INSTANTIATE_TEST_SUITE_P(
    Finals, ResultCellFinals,
    ::testing::Values(
        FinalsCase{"TcpSenderAndReceiverLastWins",
                   {{QStringLiteral("0.00-10.00 sec"), 1.1e9f, 9.4e8f, QStringLiteral("-"), QStringLiteral("-"),
                     QStringLiteral("sender")},
                    {QStringLiteral("0.00-10.04 sec"), 1.09e9f, 9.3e8f, QStringLiteral("-"), QStringLiteral("-"),
                     QStringLiteral("receiver")}},
                   1},
        FinalsCase{"UdpEmptyReceiverLineSkipped",
                   {{QStringLiteral("0.00-10.00 sec"), 1.25e6f, 1.0e6f, QStringLiteral("0.012 ms"),
                     QStringLiteral("0/856"), QStringLiteral("sender")},
                    {QStringLiteral("0.00-10.00 sec"), 0, 0, QStringLiteral("0.000 ms"), QStringLiteral("0/0"),
                     QStringLiteral("receiver")}},
                   0},
        FinalsCase{"ZeroBytesWithRealJitterStillCounts",
                   {{QStringLiteral("0.00-10.00 sec"), 0, 0, QStringLiteral("1.250 ms"), QStringLiteral("856/856"),
                     QStringLiteral("receiver")}},
                   0},
        FinalsCase{"PartialIntervalKeepsWhatWasShown",
                   {{QStringLiteral("1.00-2.00 sec"), 1.0e6f, 8.0e6f, QStringLiteral("-"), QStringLiteral("-"),
                     QStringLiteral("sender")}},
                   -1}),
    [](const ::testing::TestParamInfo<FinalsCase> &info) { return std::string(info.param.name); });

TEST(ResultCell, SummaryNumbersUseTheVolumeAndRateFormats)
{
    TestFinishedResultCellView cell;
    cell.testResult = testWith({}, {{QStringLiteral("0.00-10.00 sec"), 1048576.0f * 1125, 943210000.0f,
                                     QStringLiteral("-"), QStringLiteral("-"), QStringLiteral("receiver")}});
    cell.updateUI();
    EXPECT_EQ(cell.transferTextField->text(), QStringLiteral("1125.00 MB"));
    EXPECT_EQ(cell.bandwidthTextField->text(), QStringLiteral("943.21 Mbps"));
}

struct IntervalColumnCase
{
    const char *name;
    QString identifier;
    QString expected;
};

class IntervalColumns : public ::testing::TestWithParam<IntervalColumnCase>
{
};

TEST_P(IntervalColumns, CellTextByIdentifier)
{
    PerfResult r;
    r.intervals = QStringLiteral("3.00-4.00 sec");
    r.receivedBandwidth = 8000000;
    r.receivedBytes = 1048576.0f * 2.5f;
    r.jitter = QStringLiteral("0.031 ms");
    r.lostTotalDataGrams = QStringLiteral("2/690");
    EXPECT_EQ(ServerIntervalTableModel::cellValue(r, GetParam().identifier), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Identifiers, IntervalColumns,
    ::testing::Values(IntervalColumnCase{"Interval", QStringLiteral("interval"), QStringLiteral("3.00-4.00 sec")},
                      IntervalColumnCase{"Bandwidth", QStringLiteral("bandwidth"), QStringLiteral("8.00 Mbps")},
                      IntervalColumnCase{"Transfer", QStringLiteral("transfer"), QStringLiteral("2.50 MB")},
                      IntervalColumnCase{"Jitter", QStringLiteral("jitter"), QStringLiteral("0.031 ms")},
                      IntervalColumnCase{"LostTotal", QStringLiteral("lost/totalDataGram"), QStringLiteral("2/690")},
                      IntervalColumnCase{"Unknown", QStringLiteral("rssi"), QString()}),
    [](const ::testing::TestParamInfo<IntervalColumnCase> &info) { return std::string(info.param.name); });

TEST(ResultModels, PassTheModelTesterWhileTheyChange)
{
    ServerResultsTableModel results;
    QAbstractItemModelTester resultsTester(&results, QAbstractItemModelTester::FailureReportingMode::Fatal);
    ServerIntervalTableModel intervals;
    QAbstractItemModelTester intervalsTester(&intervals, QAbstractItemModelTester::FailureReportingMode::Fatal);

    auto test = testWith({kFirstSecond}, {});
    EXPECT_TRUE(results.setTests({test}));
    intervals.setTestResult(test);
    test->intervalResults << record(kSecondSecond);
    EXPECT_FALSE(results.setTests({test}));
    intervals.reloadData();
    EXPECT_EQ(intervals.rowCount(), 2);
    EXPECT_EQ(results.data(results.index(0, 0), Qt::SizeHintRole).toSize().height(), 95 + 2 * 10);
    EXPECT_TRUE(results.setTests({}));
}

} // namespace
