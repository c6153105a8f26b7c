#pragma once

#include <QBrush>
#include <QGraphicsItem>
#include <QList>
#include <QPen>
#include <QPointF>

#include <vector>

class QChart;
class QValueAxis;

// The plotted line and the area under it, drawn inside a chart's plot area
// in the chart's axis coordinates.
//
// A day-long test has tens of thousands of points for a plot a few hundred
// pixels wide, and the raster engine's wide, antialiased strokes and polygon
// fills of such a zigzag cost hundreds of milliseconds. So the item works per
// pixel column: it computes where the line passes in each column (the span
// of its segments there) and draws the column's part of the area and of the
// line as upright rectangles. The picture is the line and area at the plot's
// resolution; the cost follows the number of points once and the plot's
// width, not the stroke geometry.
class SpeedPlotItem : public QGraphicsItem
{
public:
    // Where the line passes in one pixel column, in chart coordinates.
    struct ColumnSpan
    {
        int column = 0;     // left edge of the column
        double top = 0;     // highest point of the line there (smallest y)
        double bottom = 0;  // lowest point of the line there (largest y)
    };

    // The item lives on the chart (its parent) and reads its axes' ranges.
    SpeedPlotItem(QChart *chart, QValueAxis *xAxis, QValueAxis *yAxis);

    // The points in data coordinates, oldest first; not owned, must outlive
    // the item. Call pointsAppended() after adding points at the end, and
    // pointsChanged() after any other change.
    void setPoints(const QList<QPointF> *points);
    void pointsAppended();
    void pointsChanged();

    void setLinePen(const QPen &pen);
    void setFillBrush(const QBrush &brush);
    QPen linePen() const { return m_pen; }
    QBrush fillBrush() const { return m_brush; }

    // The columns the line passes through, left to right, for the current
    // points, ranges and plot area.
    QList<ColumnSpan> columnSpans() const;
    // The chart-coordinate position of a data point.
    QPointF mapToPlot(const QPointF &value) const;

    QRectF boundingRect() const override;
    void paint(QPainter *painter, const QStyleOptionGraphicsItem *option, QWidget *widget) override;

private:
    // The plot geometry and ranges the column cache was computed for.
    struct Frame
    {
        QRectF rect;
        double xMin = 0, xMax = 0, yMin = 0, yMax = 0;
        bool operator==(const Frame &) const = default;
    };

    void geometryChanged();
    Frame currentFrame() const;
    // Brings the per-column spans up to date: only the segments added since
    // the last call while the points only grew and the frame stayed.
    void updateColumns() const;

    QChart *m_chart;
    QValueAxis *m_xAxis;
    QValueAxis *m_yAxis;
    const QList<QPointF> *m_points = nullptr;
    QPen m_pen;
    QBrush m_brush;
    QRectF m_rect;

    mutable Frame m_frame;
    mutable bool m_cacheValid = false;
    mutable qsizetype m_cachedPoints = 0;  // points whose segments are in the cache
    mutable int m_firstColumn = 0;
    mutable std::vector<double> m_top;     // per column; +inf where the line does not pass
    mutable std::vector<double> m_bottom;  // per column; -inf where the line does not pass
};
