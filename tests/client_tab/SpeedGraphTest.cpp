#include "client_tab/ClientTestSupport.h"

#include "client/GraphView.h"
#include "client/SpeedGraph.h"
#include "client/SpeedPlotItem.h"
#include "client/TestInformationView.h"

#include <QChart>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace ClientTestSupport;

namespace {

class SpeedGraphTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const auto &[key, value] : {std::pair{"testDuration", "10"}, {"statsInterval", "1"},
                                         {"graphMaxSpeed", "0"}, {"bandwidthformat", "0"}})
            settings.store.setObject(QString::fromLatin1(value), QString::fromLatin1(key));
    }

    SpeedGraph &graph() { return *view.graph(); }
    double yEnd() { return graph().yRangeStart() + graph().yRangeLength(); }

    TempStore settings;
    TestInformationView view{nullptr, &settings.store};
};

TEST_F(SpeedGraphTest, PointsRunFromTheOriginThroughTheRecordsOldestFirst)
{
    view.loadGraph();
    view.updateView();
    EXPECT_EQ(view.numberOfRecordsForPlot(), 0);
    EXPECT_EQ(graph().pointCount(), 0);

    auto t = test(settings.store);
    view.setPerfHelper(t);
    view.resetGraph();
    view.updateView();
    ASSERT_EQ(graph().pointCount(), 1);
    EXPECT_EQ(graph().pointAt(0), QPointF(0, 0));

    t->resultss.prepend(record(QStringLiteral("0.00"), QStringLiteral("1.00"), 0, 12345678));
    view.updateView();
    t->resultss.prepend(record(QStringLiteral("1.00"), QStringLiteral("2.50"), 0, 1234567, 1));
    t->resultss.prepend(record(QStringLiteral("9.00"), QStringLiteral("10.00"), 0, 93456789.0f));
    view.updateView();
    ASSERT_EQ(view.numberOfRecordsForPlot(), 4);
    ASSERT_EQ(graph().pointCount(), 4);
    EXPECT_EQ(graph().pointAt(1), QPointF(1, 12.35));
    // Kilo records plot Kbps; "2.50" counts as second 2.
    EXPECT_EQ(graph().pointAt(2), QPointF(2, 1234.57));
    EXPECT_EQ(graph().pointAt(3), QPointF(10, 93.46));
    view.clearView();
    EXPECT_EQ(graph().pointCount(), 0);
}

struct RangeCase
{
    const char *name;
    qint64 testMax;     // the test's graphMaxSpeed
    qint64 settingMax;  // the stored "graphMaxSpeed"
    float fastest;      // bits per second of the fastest interval; 0: none
    qint64 format;      // the test's bandwidthformat
    double expectedEnd; // y range end after the next refresh
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
    EXPECT_EQ(yEnd(), c.testMax > 0 ? double(c.testMax) : 10.0);
    if (c.fastest > 0)
        t->resultss.prepend(record(QStringLiteral("0.00"), QStringLiteral("1.00"), 0, c.fastest, c.format));
    view.updateView();
    EXPECT_EQ(graph().yRangeStart(), 0);
    EXPECT_EQ(yEnd(), c.expectedEnd);
    // A slower interval never shrinks it; only a reset does.
    t->resultss.prepend(record(QStringLiteral("1.00"), QStringLiteral("2.00"), 0, 1e6f, c.format));
    view.updateView();
    EXPECT_EQ(yEnd(), c.expectedEnd);
}

INSTANTIATE_TEST_SUITE_P(Ranges, YRange,
                         ::testing::Values(RangeCase{"noMaximumGivesTen", 0, 0, 0, 0, 10},
                                           RangeCase{"fastIntervalWidens", 50, 50, 93456789.0f, 0, 98},
                                           RangeCase{"largeMaximumStays", 200, 200, 93456789.0f, 0, 200},
                                           // The stored setting, not the test's value, bounds the growth.
                                           RangeCase{"settingLargerThanData", 50, 120, 93456789.0f, 0, 120},
                                           RangeCase{"kiloUnits", 100, 0, 93456789.0f, 1, 93461}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_F(SpeedGraphTest, TitlesAfterLoadAndReset)
{
    view.loadGraph();
    EXPECT_EQ(graph().xAxisTitle(), QStringLiteral("Test Duration (10) \nStats Interval = 1"));
    EXPECT_EQ(graph().yAxisTitle(), QStringLiteral("Speed (Mbps)"));
    EXPECT_EQ(graph().xRangeLength(), 11);
    EXPECT_EQ(graph().yRangeLength(), 10);

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
    view.resetGraph();
    EXPECT_EQ(graph().xAxisTitle(), QStringLiteral("Test Duration (30)\nStats Interval = 2"));
    EXPECT_EQ(graph().xRangeLength(), 31);
    EXPECT_EQ(graph().yAxisTitle(), QStringLiteral("Speed (Kbps)"));
    EXPECT_EQ(graph().graphTitle(), QStringLiteral("TCP Test,  From This Computer To 10.0.0.5"));
    view.clearView();
    EXPECT_EQ(graph().graphTitle(), QString());
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
    view.plotData = {{{QStringLiteral("x"), 1}, {QStringLiteral("y"), 5.5}}};
    view.reloadData();
    ASSERT_EQ(view.graph()->pointCount(), 1);
    EXPECT_EQ(view.graph()->pointAt(0), QPointF(1, 5.5));
}

// The plot draws per pixel column; these check it against the points.
class PlotColumns : public ::testing::Test
{
protected:
    void SetUp() override
    {
        graph.resize(800, 360);
        graph.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&graph));
        graph.setDataSource([this] { return points.size(); },
                            [this](int field, qsizetype i) { return field == 0 ? points[i].x() : points[i].y(); });
    }

    SpeedPlotItem &plot() { return *graph.plotItem(); }

    SpeedGraph graph{SpeedGraph::Look::Detail};
    QList<QPointF> points;
};

TEST_F(PlotColumns, DayLongTestFitsThePlotWidthAndAppendingMatchesRedrawing)
{
    graph.setXRange(0, 86401);
    graph.setYRange(0, 100);
    const auto speed = [](int second) { return second == 43200 ? 99.5 : 40 + (second * 7919 % 5501) / 100.0; };
    points.append(QPointF(0, 0));
    for (int second = 1; second <= 86400; ++second) {
        points.append(QPointF(second, speed(second)));
        if (second == 50000) {
            // Drawn half-way, then the rest arrives.
            graph.reloadData();
            plot().columnSpans();
        }
    }
    graph.appendNewData();
    const QList<SpeedPlotItem::ColumnSpan> appended = plot().columnSpans();
    graph.reloadData();
    const QList<SpeedPlotItem::ColumnSpan> redrawn = plot().columnSpans();

    EXPECT_LE(redrawn.size(), int(std::ceil(graph.chart()->plotArea().width())) + 1);
    const auto highest = std::min_element(redrawn.begin(), redrawn.end(),
                                          [](const auto &a, const auto &b) { return a.top < b.top; });
    EXPECT_NEAR(highest->top, plot().mapToPlot(QPointF(0, 99.5)).y(), 1e-6);
    ASSERT_EQ(appended.size(), redrawn.size());
    for (qsizetype i = 0; i < redrawn.size(); ++i)
        EXPECT_TRUE(appended[i].column == redrawn[i].column && appended[i].top == redrawn[i].top
                    && appended[i].bottom == redrawn[i].bottom)
            << i;
}

} // namespace
