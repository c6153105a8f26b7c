#include "client_tab/ClientTestSupport.h"

#include "client/GraphView.h"
#include "client/SpeedGraph.h"
#include "client/TestInformationView.h"

#include <gtest/gtest.h>

using namespace ClientTestSupport;

namespace {

class SpeedGraphTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        settings.store.setObject(QStringLiteral("10"), QStringLiteral("testDuration"));
        settings.store.setObject(QStringLiteral("1"), QStringLiteral("statsInterval"));
        settings.store.setObject(QStringLiteral("0"), QStringLiteral("graphMaxSpeed"));
        settings.store.setObject(QStringLiteral("0"), QStringLiteral("bandwidthformat"));
    }

    SpeedGraph &graph() { return *view.graph(); }
    double yEnd() { return graph().yRangeStart() + graph().yRangeLength(); }

    TempStore settings;
    TestInformationView view{nullptr, &settings.store};
};

TEST_F(SpeedGraphTest, PointCountFollowsTheShownTest)
{
    view.loadGraph();
    view.updateView();
    EXPECT_EQ(view.numberOfRecordsForPlot(), 0);
    EXPECT_EQ(graph().pointCount(), 0);

    auto t = test(settings.store);
    view.setPerfHelper(t);
    view.resetGraph();
    view.updateView();
    EXPECT_EQ(view.numberOfRecordsForPlot(), 1);
    ASSERT_EQ(graph().pointCount(), 1);
    EXPECT_EQ(graph().pointAt(0), QPointF(0, 0));

    // Newest first in the list, oldest first on the plot.
    t->resultss.prepend(record(QStringLiteral("0.00"), QStringLiteral("1.00"), 0, 12345678));
    view.updateView();
    t->resultss.prepend(record(QStringLiteral("1.00"), QStringLiteral("2.50"), 0, 1234567, 1));
    view.updateView();
    t->resultss.prepend(record(QStringLiteral("9.00"), QStringLiteral("10.00"), 0, 93456789));
    view.updateView();
    ASSERT_EQ(graph().pointCount(), 4);
    EXPECT_EQ(graph().pointAt(1), QPointF(1, 12.35));
    // Kilo records plot Kbps; "2.50" counts as second 2.
    EXPECT_EQ(graph().pointAt(2), QPointF(2, 1234.57));
    EXPECT_EQ(graph().pointAt(3), QPointF(10, 93.46));
    for (qsizetype i = 0; i < 4; ++i) {
        EXPECT_DOUBLE_EQ(view.numberForPlot(0, i), graph().pointAt(i).x());
        EXPECT_DOUBLE_EQ(view.numberForPlot(1, i), graph().pointAt(i).y());
    }
    EXPECT_EQ(graph().plotIdentifier(), QStringLiteral("Data Source Plot"));

    view.clearView();
    EXPECT_EQ(graph().pointCount(), 0);
}

struct RangeCase
{
    const char *name;
    qint64 testMax;       // the test's graphMaxSpeed
    qint64 settingMax;    // the stored "graphMaxSpeed"
    float fastest;        // bits per second of the fastest interval; 0: no records
    qint64 format;        // the test's bandwidthformat
    double expectedEnd;   // y range end after the next refresh
    friend void PrintTo(const RangeCase &c, std::ostream *os) { *os << c.name; }
};

class YRange : public SpeedGraphTest, public ::testing::WithParamInterface<RangeCase>
{
};

TEST_P(YRange, GrowsToTheRoundedMaximumPlusFiveOrTheSetting)
{
    const RangeCase &c = GetParam();
    settings.store.setObject(QString::number(c.settingMax), QStringLiteral("graphMaxSpeed"));
    auto t = test(settings.store);
    t->graphMaxSpeed = c.testMax;
    t->bandwidthformat = c.format;
    view.setPerfHelper(t);
    view.resetGraph();
    EXPECT_EQ(graph().yRangeStart(), 0);
    EXPECT_EQ(graph().yRangeLength(), c.testMax > 0 ? double(c.testMax) : 10.0);
    if (c.fastest > 0)
        t->resultss.prepend(record(QStringLiteral("0.00"), QStringLiteral("1.00"), 0, c.fastest, c.format));
    view.updateView();
    EXPECT_EQ(graph().yRangeStart(), 0);
    EXPECT_EQ(yEnd(), c.expectedEnd);
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, YRange,
    ::testing::Values(RangeCase{"noMaximumGivesTen", 0, 0, 0, 0, 10},
                      RangeCase{"fastIntervalWidens", 50, 50, 93456789.0f, 0, 98},
                      RangeCase{"largeMaximumStays", 200, 200, 93456789.0f, 0, 200},
                      // The stored setting, not the test's value, bounds the growth.
                      RangeCase{"settingLargerThanData", 50, 120, 93456789.0f, 0, 120},
                      RangeCase{"kiloUnits", 100, 0, 93456789.0f, 1, 93461}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(SpeedGraphTest, RangeNeverShrinksOnRefreshOnlyOnReset)
{
    auto t = test(settings.store, {record(QStringLiteral("0.00"), QStringLiteral("1.00"), 0, 93456789)});
    t->graphMaxSpeed = 20;
    view.setPerfHelper(t);
    view.resetGraph();
    view.updateView();
    EXPECT_EQ(yEnd(), 98);
    t->resultss.prepend(record(QStringLiteral("1.00"), QStringLiteral("2.00"), 0, 1000000));
    view.updateView();
    EXPECT_EQ(yEnd(), 98);
    view.resetGraph();
    EXPECT_EQ(yEnd(), 20);
}

TEST_F(SpeedGraphTest, TitlesAfterLoadAndReset)
{
    view.loadGraph();
    EXPECT_EQ(graph().xAxisTitle(), QStringLiteral("Test Duration (10) \nStats Interval = 1"));
    EXPECT_EQ(graph().yAxisTitle(), QStringLiteral("Speed (Mbps)"));
    EXPECT_EQ(graph().xRangeLength(), 11);
    EXPECT_EQ(graph().yRangeLength(), 10);
    EXPECT_EQ(graph().graphTitle(), QString());

    auto t = test(settings.store);
    view.setPerfHelper(t);
    view.resetGraph();
    // A one-second interval reads "None" once a test is shown.
    EXPECT_EQ(graph().xAxisTitle(), QStringLiteral("Test Duration (10)\nStats Interval = None"));
    EXPECT_EQ(graph().graphTitle(), QStringLiteral("TCP Test,  From This Computer To 10.0.0.5"));

    t->duration = 30;
    t->stats_interval = 2;
    t->bandwidthformat = 1;
    t->reverse = 1; // the direction words stay
    t->testLabel = QStringLiteral("UDP Test");
    view.resetGraph();
    EXPECT_EQ(graph().xAxisTitle(), QStringLiteral("Test Duration (30)\nStats Interval = 2"));
    EXPECT_EQ(graph().xRangeLength(), 31);
    EXPECT_EQ(graph().xMinorTicksPerInterval(), 2);
    EXPECT_EQ(graph().xMajorIntervalLength(), 2);
    EXPECT_EQ(graph().yAxisTitle(), QStringLiteral("Speed (Kbps)"));
    EXPECT_EQ(graph().graphTitle(), QStringLiteral("UDP Test,  From This Computer To 10.0.0.5"));

    view.clearView();
    EXPECT_EQ(graph().graphTitle(), QString());

    settings.store.setObject(QStringLiteral("1"), QStringLiteral("bandwidthformat"));
    settings.store.setObject(QStringLiteral("40"), QStringLiteral("graphMaxSpeed"));
    view.loadGraph();
    EXPECT_EQ(graph().yAxisTitle(), QStringLiteral("Speed (Kbps)"));
    EXPECT_EQ(graph().yRangeLength(), 40);
}

TEST(StandaloneGraphView, ShowsAxesFromTheStoreAndItsOwnPoints)
{
    TempStore settings;
    settings.store.setObject(QStringLiteral("20"), QStringLiteral("testDuration"));
    settings.store.setObject(QStringLiteral("2"), QStringLiteral("statsInterval"));
    settings.store.setObject(QStringLiteral("300"), QStringLiteral("graphMaxSpeed"));
    GraphView view(nullptr, &settings.store);
    view.viewWillDraw();
    EXPECT_EQ(view.graph()->xRangeLength(), 21);
    EXPECT_EQ(view.graph()->yRangeLength(), 300);
    EXPECT_EQ(view.graph()->xAxisTitle(), QStringLiteral("Test Duration (20), (Stats Interval = 2)"));
    EXPECT_EQ(view.graph()->yAxisTitle(), QStringLiteral("Speed (Mbps)"));
    EXPECT_EQ(view.graph()->graphTitle(), QString());
    view.reloadData();
    EXPECT_EQ(view.graph()->pointCount(), 0);
    view.plotData = {{{QStringLiteral("x"), 1}, {QStringLiteral("y"), 5.5}}};
    view.reloadData();
    ASSERT_EQ(view.graph()->pointCount(), 1);
    EXPECT_EQ(view.graph()->pointAt(0), QPointF(1, 5.5));
}

} // namespace
