#include "client/SpeedPlotItem.h"

#include <QChart>
#include <QPainter>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <vector>

SpeedPlotItem::SpeedPlotItem(QChart *chart, QValueAxis *xAxis, QValueAxis *yAxis)
    : QGraphicsItem(chart)
    , m_chart(chart)
    , m_xAxis(xAxis)
    , m_yAxis(yAxis)
    , m_rect(chart->plotArea())
{
    // Above the grid lines (Qt Charts draws them at 2), below the axis lines
    // and labels (3), so the fill never hides the x axis.
    setZValue(2.5);
    QObject::connect(chart, &QChart::plotAreaChanged, chart, [this] { geometryChanged(); });
    QObject::connect(xAxis, &QValueAxis::rangeChanged, chart, [this] { update(); });
    QObject::connect(yAxis, &QValueAxis::rangeChanged, chart, [this] { update(); });
}

void SpeedPlotItem::setPoints(const QList<QPointF> *points)
{
    m_points = points;
    pointsChanged();
}

void SpeedPlotItem::pointsAppended()
{
    update();
}

void SpeedPlotItem::pointsChanged()
{
    m_cacheValid = false;
    update();
}

void SpeedPlotItem::setLinePen(const QPen &pen)
{
    m_pen = pen;
    update();
}

void SpeedPlotItem::setFillBrush(const QBrush &brush)
{
    m_brush = brush;
    update();
}

void SpeedPlotItem::geometryChanged()
{
    prepareGeometryChange();
    m_rect = m_chart->plotArea();
}

QRectF SpeedPlotItem::boundingRect() const
{
    const qreal margin = m_pen.widthF();
    return m_rect.adjusted(-margin, -margin, margin, margin);
}

QPointF SpeedPlotItem::mapToPlot(const QPointF &value) const
{
    const double xSpan = m_xAxis->max() - m_xAxis->min();
    const double ySpan = m_yAxis->max() - m_yAxis->min();
    return QPointF(m_rect.left() + (value.x() - m_xAxis->min()) * (m_rect.width() / xSpan),
                   m_rect.bottom() - (value.y() - m_yAxis->min()) * (m_rect.height() / ySpan));
}

SpeedPlotItem::Frame SpeedPlotItem::currentFrame() const
{
    return Frame{m_rect, m_xAxis->min(), m_xAxis->max(), m_yAxis->min(), m_yAxis->max()};
}

void SpeedPlotItem::updateColumns() const
{
    const Frame frame = currentFrame();
    const qsizetype count = m_points ? m_points->size() : 0;
    if (!m_cacheValid || !(frame == m_frame) || count < m_cachedPoints) {
        m_frame = frame;
        m_firstColumn = int(std::floor(frame.rect.left()));
        const int columns = std::max(0, int(std::ceil(frame.rect.right())) - m_firstColumn);
        m_top.assign(std::size_t(columns), qInf());
        m_bottom.assign(std::size_t(columns), -qInf());
        m_cachedPoints = 0;
        m_cacheValid = true;
    }
    if (count == m_cachedPoints || frame.rect.width() < 1 || frame.xMax <= frame.xMin || frame.yMax <= frame.yMin)
        return;

    const double xScale = frame.rect.width() / (frame.xMax - frame.xMin);
    const double yScale = frame.rect.height() / (frame.yMax - frame.yMin);
    const auto map = [&](const QPointF &p) {
        return QPointF(frame.rect.left() + (p.x() - frame.xMin) * xScale, frame.rect.bottom() - (p.y() - frame.yMin) * yScale);
    };
    const int columns = int(m_top.size());
    const auto mark = [&](double column, double y0, double y1) {
        const long long c = static_cast<long long>(std::floor(column)) - m_firstColumn;
        if (c < 0 || c >= columns)
            return;
        m_top[std::size_t(c)] = std::min({m_top[std::size_t(c)], y0, y1});
        m_bottom[std::size_t(c)] = std::max({m_bottom[std::size_t(c)], y0, y1});
    };

    // Each segment marks its part of every column it crosses; a new point
    // adds the segment from the last point already marked.
    qsizetype start = m_cachedPoints;
    QPointF previous;
    if (start == 0) {
        previous = map(m_points->first());
        mark(previous.x(), previous.y(), previous.y());
        start = 1;
    } else {
        previous = map(m_points->at(start - 1));
    }
    for (qsizetype i = start; i < count; ++i) {
        const QPointF next = map(m_points->at(i));
        const QPointF a = previous.x() <= next.x() ? previous : next;
        const QPointF b = previous.x() <= next.x() ? next : previous;
        const double from = std::max(a.x(), double(m_firstColumn));
        const double to = std::min(b.x(), double(m_firstColumn + columns));
        if (b.x() - a.x() < 1e-9) {
            mark(a.x(), a.y(), b.y());
        } else if (from <= to) {
            const double slope = (b.y() - a.y()) / (b.x() - a.x());
            for (double left = from;;) {
                const double right = std::min(std::floor(left) + 1.0, to);
                mark(left, a.y() + (left - a.x()) * slope, a.y() + (right - a.x()) * slope);
                if (right >= to)
                    break;
                left = right;
            }
        }
        previous = next;
    }
    m_cachedPoints = count;
}

QList<SpeedPlotItem::ColumnSpan> SpeedPlotItem::columnSpans() const
{
    QList<ColumnSpan> spans;
    if (!m_points || m_points->isEmpty())
        return spans;
    updateColumns();
    for (std::size_t c = 0; c < m_top.size(); ++c)
        if (m_top[c] <= m_bottom[c])
            spans.append({m_firstColumn + int(c), m_top[c], m_bottom[c]});
    return spans;
}

void SpeedPlotItem::paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget)
{
    Q_UNUSED(option);
    Q_UNUSED(widget);
    const QList<ColumnSpan> spans = columnSpans();
    if (spans.isEmpty())
        return;
    painter->save();
    painter->setClipRect(m_rect);
    painter->setRenderHint(QPainter::Antialiasing, false);
    painter->setPen(Qt::NoPen);

    if (m_brush.style() != Qt::NoBrush) {
        // Gradients given relative to the shape span the whole plot here.
        QBrush fill = m_brush;
        if (const QGradient *gradient = m_brush.gradient();
            gradient && gradient->type() == QGradient::LinearGradient && gradient->coordinateMode() != QGradient::LogicalMode) {
            const auto *linear = static_cast<const QLinearGradient *>(gradient);
            QLinearGradient plotGradient(m_rect.left() + linear->start().x() * m_rect.width(),
                                         m_rect.top() + linear->start().y() * m_rect.height(),
                                         m_rect.left() + linear->finalStop().x() * m_rect.width(),
                                         m_rect.top() + linear->finalStop().y() * m_rect.height());
            plotGradient.setStops(linear->stops());
            fill = QBrush(plotGradient);
        }
        const double yZero = std::min(mapToPlot(QPointF(0, 0)).y(), m_rect.bottom());
        for (const ColumnSpan &span : spans)
            if (span.top < yZero)
                painter->fillRect(QRectF(span.column, span.top, 1, yZero - span.top), fill);
    }

    // The line: the pen's width across the span of each column.
    const double half = std::max(m_pen.widthF(), 1.0) / 2;
    const QBrush ink = m_pen.brush();
    for (const ColumnSpan &span : spans)
        painter->fillRect(QRectF(span.column + 0.5 - half, span.top - half, 2 * half, span.bottom - span.top + 2 * half),
                          ink);
    painter->restore();
}
