#pragma once

#include <QChartView>
#include <QString>

#include <functional>

class QChart;
class QLineSeries;
class QValueAxis;
class SpeedPlotItem;

// The speed-over-time chart on Qt Charts: one line from the origin through
// one point per interval with the area under it filled. The points come from
// a data source (a point count and a value per field and index), asked afresh
// on every full reload. Axes, grid and titles are the chart's; the line and
// area are drawn by a plot item of ours, whose cost does not grow with the
// length of the test (Qt Charts' own line series re-strokes every point on
// each change, which a day-long test cannot afford once a second).
class SpeedGraph : public QChartView
{
    Q_OBJECT

public:
    // Detail: the detail view's light chart. Standalone: the dark, axes-only
    // chart of GraphView.
    enum class Look { Detail, Standalone };

    // Field 0 is x, field 1 is y.
    using CountSource = std::function<qsizetype()>;
    using ValueSource = std::function<double(int field, qsizetype index)>;

    explicit SpeedGraph(Look look, QWidget *parent = nullptr);

    void setDataSource(CountSource count, ValueSource value);

    // Asks the data source for every point again.
    void reloadData();
    // Asks only for the points past those already shown: for a series that
    // has only grown at its end since the last reload.
    void appendNewData();

    void setXRange(double location, double length);
    void setYRange(double location, double length);
    double xRangeStart() const;
    double xRangeLength() const;
    double yRangeStart() const;
    double yRangeLength() const;

    void setGraphTitle(const QString &title);
    QString graphTitle() const { return m_graphTitle; }
    // Titles may hold "\n" line breaks; they are kept as given.
    void setXAxisTitle(const QString &title);
    QString xAxisTitle() const { return m_xTitle; }
    void setYAxisTitle(const QString &title);
    QString yAxisTitle() const { return m_yTitle; }

    void setXMinorTicksPerInterval(qint64 count);
    qint64 xMinorTicksPerInterval() const { return m_xMinorTicks; }
    void setXMajorIntervalLength(qint64 length);
    qint64 xMajorIntervalLength() const { return m_xMajorInterval; }

    // Compare mode: one line per test, named in the legend, in place of the
    // plot; an empty list returns to the plot.
    struct Series
    {
        QString label;         // the test's name, shown in the legend
        QList<QPointF> points; // oldest first, from the origin
    };
    void setComparison(const QList<Series> &series);
    bool isComparing() const { return !m_compared.isEmpty(); }
    const QList<QLineSeries *> &comparedSeries() const { return m_compared; }

    // The Wi-Fi link beside the rate: each interval's signal (x, dBm) on an
    // axis of its own at the right, and a line at each x where the client
    // roamed to another access point. Empty lists take them away.
    void setLink(const QList<QPointF> &signal, const QList<double> &roams);
    const QLineSeries *signalSeries() const { return m_signal; }
    QList<double> roamMarkers() const;

    // The plotted points, oldest first (point 0 is the origin).
    qsizetype pointCount() const;
    QPointF pointAt(qsizetype index) const;
    QString plotIdentifier() const { return QStringLiteral("Data Source Plot"); }
    SpeedPlotItem *plotItem() const { return m_plot; }

private:
    int yLabelsThatFit() const;
    void styleDetail();
    void styleStandalone();
    void applyXTicks();
    void placeRoamMarkers();
    static QString displayTitle(const QString &title);

    QChart *m_chart;
    QValueAxis *m_xAxis;
    QValueAxis *m_yAxis;
    SpeedPlotItem *m_plot;
    QList<QPointF> m_points;
    QList<QLineSeries *> m_compared;
    QValueAxis *m_signalAxis = nullptr;    // made with the first signal shown
    QLineSeries *m_signal = nullptr;
    QList<double> m_roams;                 // where the roam markers stand
    QList<QLineSeries *> m_roamMarkers;
    CountSource m_count;
    ValueSource m_value;
    QString m_graphTitle;
    QString m_xTitle;
    QString m_yTitle;
    qint64 m_xMinorTicks = 9;
    qint64 m_xMajorInterval = 1;
    double m_xStart = 0;
    double m_xLength = 1;
    double m_yStart = 0;
    double m_yLength = 10;
};
