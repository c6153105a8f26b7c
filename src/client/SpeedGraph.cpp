#include "client/SpeedGraph.h"

#include "client/SpeedPlotItem.h"
#include "shell/PlainText.h"

#include <QChart>
#include <QFontMetricsF>
#include <QtMath>
#include <QLegend>
#include <QLegendMarker>
#include <QLineSeries>
#include <QLinearGradient>
#include <QValueAxis>

#include <algorithm>
#include <cmath>

namespace {

// A colour given as 0-to-1 components that may lie outside that range: each
// channel saturates, as the drawing system does with such values.
QColor saturatedColor(double r, double g, double b, double a)
{
    auto clamp = [](double v) { return std::clamp(v, 0.0, 1.0); };
    return QColor::fromRgbF(float(clamp(r)), float(clamp(g)), float(clamp(b)), float(clamp(a)));
}

// A vertical gradient ("-90 degrees") between two colours over the plot.
QBrush verticalGradient(const QColor &top, const QColor &bottom)
{
    QLinearGradient gradient(0, 0, 0, 1);
    gradient.setCoordinateMode(QGradient::ObjectMode);
    gradient.setColorAt(0, top);
    gradient.setColorAt(1, bottom);
    return QBrush(gradient);
}

QPen hairline(QColor color, double opacity, double width)
{
    color.setAlphaF(float(opacity));
    QPen pen(color);
    pen.setWidthF(width);
    pen.setCosmetic(true);
    return pen;
}

// A major tick spacing of 1, 2 or 5 times a power of ten giving about eight
// intervals over the range, or fewer where fewer labels fit (`most`): Qt's
// stand-in for automatic labelling.
double niceInterval(double length, int most = 8)
{
    if (length <= 0)
        return 1;
    const double rough = length / std::clamp(most, 1, 8);
    const double magnitude = std::pow(10.0, std::floor(std::log10(rough)));
    const double residual = rough / magnitude;
    const double step = residual <= 1 ? 1 : residual <= 2 ? 2 : residual <= 5 ? 5 : 10;
    return std::max(1.0, step * magnitude);
}

// Sets range and tick spacing in the order that never asks the axis for more
// ticks than the old or the new setting has: an axis briefly holding a day's
// range at a one-second spacing would build 86,400 tick items.
void applyRange(QValueAxis *axis, double min, double max, double interval)
{
    if (interval >= axis->tickInterval()) {
        axis->setTickInterval(interval);
        axis->setRange(min, max);
    } else {
        axis->setRange(min, max);
        axis->setTickInterval(interval);
    }
}

} // namespace

SpeedGraph::SpeedGraph(Look look, QWidget *parent)
    : QChartView(parent)
    , m_chart(new QChart)
    , m_xAxis(new QValueAxis(m_chart))
    , m_yAxis(new QValueAxis(m_chart))
    , m_plot(nullptr)
{
    setChart(m_chart); // the view owns the chart from here on
    setRenderHint(QPainter::Antialiasing);
    m_chart->legend()->hide();
    m_chart->addAxis(m_xAxis, Qt::AlignBottom);
    m_chart->addAxis(m_yAxis, Qt::AlignLeft);
    m_plot = new SpeedPlotItem(m_chart, m_xAxis, m_yAxis);
    m_plot->setPoints(&m_points);
    for (QValueAxis *axis : {m_xAxis, m_yAxis})
        axis->setTruncateLabels(false);
    // Whole numbers, no grouping, on both axes.
    m_xAxis->setLabelFormat(QStringLiteral("%d"));
    m_yAxis->setLabelFormat(QStringLiteral("%d"));
    m_xAxis->setTickType(QValueAxis::TicksDynamic);
    m_yAxis->setTickType(QValueAxis::TicksDynamic);
    m_xAxis->setTickAnchor(0);
    m_yAxis->setTickAnchor(0);
    if (look == Look::Detail)
        styleDetail();
    else
        styleStandalone();
    setXRange(0, 1);
    setYRange(0, 10);
    // The plot's height decides how many y labels fit.
    connect(m_chart, &QChart::plotAreaChanged, this, [this] { setYRange(m_yStart, m_yLength); });
}

void SpeedGraph::styleDetail()
{
    // The stock-market look, then white graph and plot area.
    m_chart->setTheme(QChart::ChartThemeDark);
    m_chart->setBackgroundBrush(Qt::white);
    m_chart->setPlotAreaBackgroundBrush(Qt::white);
    m_chart->setPlotAreaBackgroundVisible(true);
    m_chart->setMargins(QMargins(8, 30, 8, 15));
    m_chart->setTitleBrush(QColor(Qt::gray));
    // Sizes are given in the points of the original drawing system, which
    // are logical pixels.
    QFont titleFont(QStringLiteral("Helvetica"));
    titleFont.setPixelSize(14);
    m_chart->setTitleFont(titleFont);

    const QPen major = hairline(QColor(Qt::gray), 0.75, 0);
    const QPen minor = hairline(QColor(Qt::gray), 0.1, 0);
    QPen axisLine(QColor(Qt::darkGray));
    axisLine.setWidthF(1.4);
    QFont axisFont;
    axisFont.setPixelSize(14);
    for (QValueAxis *axis : {m_xAxis, m_yAxis}) {
        axis->setGridLinePen(major);
        axis->setMinorGridLinePen(minor);
        axis->setMinorGridLineVisible(true);
        axis->setLinePen(axisLine);
        axis->setTitleBrush(QColor(Qt::darkGray));
        axis->setTitleFont(axisFont);
        axis->setLabelsBrush(QColor(Qt::darkGray));
        axis->setLabelsFont(axisFont);
    }
    m_xAxis->setMinorTickCount(9);
    m_yAxis->setMinorTickCount(4);
    m_yAxis->setLabelsAngle(-54); // 0.3 pi

    QPen line(QColor::fromRgbF(0.3333f, 0.6157f, 0.8510f));
    line.setWidthF(2);
    m_plot->setLinePen(line);
    const QColor fill = saturatedColor(111.3, 4.0, 6.3, 1.0);
    m_plot->setFillBrush(verticalGradient(fill, fill));
}

void SpeedGraph::styleStandalone()
{
    m_chart->setTheme(QChart::ChartThemeDark);
    m_chart->setMargins(QMargins(8, 30, 8, 15));
    m_chart->setTitleBrush(QColor(Qt::white));
    m_chart->setTitleFont(QFont(QStringLiteral("Helvetica")));
    for (QValueAxis *axis : {m_xAxis, m_yAxis}) {
        axis->setGridLinePen(hairline(QColor(Qt::white), 0.75, 0.75));
        axis->setMinorGridLinePen(hairline(QColor(Qt::white), 0.1, 0.25));
        axis->setMinorGridLineVisible(true);
    }
    m_xAxis->setMinorTickCount(9);
    m_yAxis->setMinorTickCount(4);
    m_yAxis->setLabelsAngle(-45); // pi / 4
    setYAxisTitle(QStringLiteral("Speed (Mbps)"));

    QPen line(QColor(Qt::green));
    line.setWidthF(2);
    m_plot->setLinePen(line);
    const QColor fill = saturatedColor(1.3, 4.0, 6.3, 0.5);
    m_plot->setFillBrush(verticalGradient(fill, fill));
}

void SpeedGraph::setDataSource(CountSource count, ValueSource value)
{
    m_count = std::move(count);
    m_value = std::move(value);
}

void SpeedGraph::reloadData()
{
    const qsizetype n = m_count ? m_count() : 0;
    m_points.clear();
    m_points.reserve(n);
    for (qsizetype i = 0; i < n; ++i)
        m_points.append(QPointF(m_value(0, i), m_value(1, i)));
    m_plot->pointsChanged();
}

void SpeedGraph::appendNewData()
{
    const qsizetype n = m_count ? m_count() : 0;
    const qsizetype shown = m_points.size();
    if (n < shown) {
        reloadData();
        return;
    }
    if (n == shown)
        return;
    for (qsizetype i = shown; i < n; ++i)
        m_points.append(QPointF(m_value(0, i), m_value(1, i)));
    m_plot->pointsAppended();
}

void SpeedGraph::setComparison(const QList<Series> &series)
{
    // Colours far apart, the detail plot's blue first.
    static const QColor palette[] = {QColor(85, 157, 217), QColor(230, 120, 20), QColor(40, 160, 60),
                                     QColor(200, 40, 40),  QColor(140, 90, 190), QColor(120, 80, 50),
                                     QColor(220, 100, 180), QColor(90, 90, 90)};
    for (QLineSeries *line : std::as_const(m_compared)) {
        m_chart->removeSeries(line);
        delete line;
    }
    m_compared.clear();
    for (const Series &one : series) {
        auto *line = new QLineSeries(m_chart);
        // Legend entries are drawn as rich text; a label is shown as typed.
        line->setName(displayTitle(one.label));
        line->replace(one.points);
        QPen pen(palette[m_compared.size() % std::size(palette)]);
        pen.setWidthF(2);
        line->setPen(pen);
        m_chart->addSeries(line);
        line->attachAxis(m_xAxis);
        line->attachAxis(m_yAxis);
        m_compared.append(line);
    }
    m_plot->setVisible(m_compared.isEmpty());
    m_chart->legend()->setVisible(!m_compared.isEmpty());
    m_chart->legend()->setAlignment(Qt::AlignBottom);
    m_chart->legend()->setLabelColor(QColor(Qt::darkGray));
}

void SpeedGraph::setLink(const QList<QPointF> &signal, const QList<double> &roams)
{
    if (!signal.isEmpty() && !m_signal) {
        m_signalAxis = new QValueAxis(m_chart);
        m_signalAxis->setTitleText(QStringLiteral("Signal (dBm)"));
        m_signalAxis->setLabelFormat(QStringLiteral("%d"));
        m_signalAxis->setGridLineVisible(false);
        m_signalAxis->setMinorGridLineVisible(false);
        const QColor colour(150, 90, 190);
        m_signalAxis->setTitleBrush(colour);
        m_signalAxis->setLabelsBrush(colour);
        m_signalAxis->setLabelsFont(m_yAxis->labelsFont());
        m_signalAxis->setTitleFont(m_yAxis->titleFont());
        m_chart->addAxis(m_signalAxis, Qt::AlignRight);
        m_signal = new QLineSeries(m_chart);
        m_signal->setName(QStringLiteral("Signal (dBm)"));
        QPen pen(colour);
        pen.setWidthF(1.5);
        m_signal->setPen(pen);
        m_chart->addSeries(m_signal);
        m_signal->attachAxis(m_xAxis);
        m_signal->attachAxis(m_signalAxis);
    }
    if (m_signal) {
        // Qt Charts lays out every point of a series on each change: a long
        // test's signal is drawn from at most a couple of thousand readings.
        constexpr qsizetype kMostDrawn = 2000;
        QList<QPointF> drawn = signal;
        if (signal.size() > kMostDrawn) {
            const qsizetype step = (signal.size() + kMostDrawn - 1) / kMostDrawn;
            drawn.clear();
            for (qsizetype i = 0; i < signal.size(); i += step)
                drawn.append(signal.at(i));
        }
        m_signal->replace(drawn);
        m_signal->setVisible(!signal.isEmpty());
        m_signalAxis->setVisible(!signal.isEmpty());
        // Wi-Fi signals live between -100 and -20 dBm; a stronger or weaker
        // one widens the axis.
        double low = -100, high = -20;
        for (const QPointF &point : signal)
            low = std::min(low, std::floor(point.y() / 10) * 10), high = std::max(high, std::ceil(point.y() / 10) * 10);
        m_signalAxis->setRange(low, high);
        m_signalAxis->setTickCount(int((high - low) / 20) + 1);
    }
    m_roams = roams;
    placeRoamMarkers();
}

void SpeedGraph::placeRoamMarkers()
{
    for (QLineSeries *marker : std::as_const(m_roamMarkers)) {
        m_chart->removeSeries(marker);
        delete marker;
    }
    m_roamMarkers.clear();
    QPen pen(QColor(230, 120, 20));
    pen.setWidthF(1.5);
    pen.setStyle(Qt::DashLine);
    for (const double x : std::as_const(m_roams)) {
        // From the bottom of the speed axis to its top.
        auto *marker = new QLineSeries(m_chart);
        marker->setName(QStringLiteral("Roam"));
        marker->append(x, m_yStart);
        marker->append(x, m_yStart + m_yLength);
        marker->setPen(pen);
        m_chart->addSeries(marker);
        marker->attachAxis(m_xAxis);
        marker->attachAxis(m_yAxis);
        m_roamMarkers.append(marker);
    }
    // The legend names the compared tests, not these.
    for (QLineSeries *marker : std::as_const(m_roamMarkers))
        for (QLegendMarker *entry : m_chart->legend()->markers(marker))
            entry->setVisible(false);
    if (m_signal)
        for (QLegendMarker *entry : m_chart->legend()->markers(m_signal))
            entry->setVisible(false);
}

QList<double> SpeedGraph::roamMarkers() const
{
    QList<double> at;
    for (const QLineSeries *marker : m_roamMarkers)
        at << marker->at(0).x();
    return at;
}

void SpeedGraph::setXRange(double location, double length)
{
    m_xStart = location;
    m_xLength = length;
    applyRange(m_xAxis, location, location + length, niceInterval(length));
    applyXTicks();
}

void SpeedGraph::setYRange(double location, double length)
{
    const bool moved = location != m_yStart || length != m_yLength;
    m_yStart = location;
    m_yLength = length;
    applyRange(m_yAxis, location, location + length, niceInterval(length, yLabelsThatFit()));
    if (moved && !m_roams.isEmpty())
        placeRoamMarkers();
}

int SpeedGraph::yLabelsThatFit() const
{
    const double height = m_chart->plotArea().height();
    if (height <= 0)
        return 8; // not laid out yet
    // Labels are turned, so each one takes the height of its turned box;
    // the axis drops any label that would touch the one below it.
    const QFontMetricsF metrics(m_yAxis->labelsFont());
    const double turn = qDegreesToRadians(std::abs(m_yAxis->labelsAngle()));
    const double widest = metrics.horizontalAdvance(QString::number(qint64(m_yStart + m_yLength)));
    const double each = widest * std::sin(turn) + metrics.height() * std::cos(turn) + 4;
    return int(std::floor(height / each));
}

double SpeedGraph::xRangeStart() const
{
    return m_xStart;
}

double SpeedGraph::xRangeLength() const
{
    return m_xLength;
}

double SpeedGraph::yRangeStart() const
{
    return m_yStart;
}

double SpeedGraph::yRangeLength() const
{
    return m_yLength;
}

void SpeedGraph::setGraphTitle(const QString &title)
{
    m_graphTitle = title;
    m_chart->setTitle(displayTitle(title));
}

void SpeedGraph::setXAxisTitle(const QString &title)
{
    m_xTitle = title;
    m_xAxis->setTitleText(displayTitle(title));
}

void SpeedGraph::setYAxisTitle(const QString &title)
{
    m_yTitle = title;
    m_yAxis->setTitleText(displayTitle(title));
}

void SpeedGraph::setXMinorTicksPerInterval(qint64 count)
{
    m_xMinorTicks = count;
    applyXTicks();
}

void SpeedGraph::setXMajorIntervalLength(qint64 length)
{
    m_xMajorInterval = length;
    applyXTicks();
}

void SpeedGraph::applyXTicks()
{
    // Labelling is automatic, so the major interval follows the range (see
    // setXRange); more than nine minor lines per interval would only smear
    // the plot.
    m_xAxis->setMinorTickCount(int(std::clamp<qint64>(m_xMinorTicks, 0, 9)));
}

qsizetype SpeedGraph::pointCount() const
{
    return m_points.size();
}

QPointF SpeedGraph::pointAt(qsizetype index) const
{
    return m_points.value(index);
}

QString SpeedGraph::displayTitle(const QString &title)
{
    // Chart titles are read as rich text; a test label is shown as typed.
    return title.isEmpty() ? title : PlainText::asRichText(title);
}
