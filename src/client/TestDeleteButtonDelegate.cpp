#include "client/TestDeleteButtonDelegate.h"

#include <QApplication>
#include <QIconEngine>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>

namespace {

// A round badge with a cross, painted to the requested size so that it stays
// crisp at every scale.
class CrossBadgeEngine : public QIconEngine
{
public:
    CrossBadgeEngine(QColor fill, QColor cross, QColor ring)
        : m_fill(fill)
        , m_cross(cross)
        , m_ring(ring)
    {
    }

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode mode, QIcon::State) override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const qreal side = qMin(rect.width(), rect.height());
        const QRectF box(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2, side, side);
        const qreal ringWidth = qMax<qreal>(1.0, side / 14);
        const QRectF circle = box.adjusted(ringWidth, ringWidth, -ringWidth, -ringWidth);
        QColor fill = m_fill;
        if (mode == QIcon::Disabled)
            fill.setAlphaF(0.4f);
        painter->setPen(m_ring.isValid() ? QPen(m_ring, ringWidth) : Qt::NoPen);
        painter->setBrush(fill.isValid() ? QBrush(fill) : Qt::NoBrush);
        painter->drawEllipse(circle);
        const qreal arm = circle.width() * 0.22;
        QPen crossPen(m_cross, qMax<qreal>(1.5, side / 9), Qt::SolidLine, Qt::RoundCap);
        painter->setPen(crossPen);
        const QPointF c = circle.center();
        painter->drawLine(c + QPointF(-arm, -arm), c + QPointF(arm, arm));
        painter->drawLine(c + QPointF(-arm, arm), c + QPointF(arm, -arm));
        painter->restore();
    }

    QIconEngine *clone() const override { return new CrossBadgeEngine(m_fill, m_cross, m_ring); }

    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        return pixmap;
    }

private:
    QColor m_fill;
    QColor m_cross;
    QColor m_ring;
};

} // namespace

TestDeleteButtonDelegate::TestDeleteButtonDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
    , m_image(deleteOrangeImage())
    , m_pressedImage(appbarCloseImage())
{
}

QIcon TestDeleteButtonDelegate::deleteOrangeImage()
{
    return QIcon(new CrossBadgeEngine(QColor(0xF2, 0x6B, 0x1D), Qt::white, QColor()));
}

QIcon TestDeleteButtonDelegate::appbarCloseImage()
{
    return QIcon(new CrossBadgeEngine(QColor(0xB8, 0x4A, 0x0E), Qt::white, QColor(0x5A, 0x23, 0x06)));
}

QRect TestDeleteButtonDelegate::buttonRect(const QRect &cell)
{
    // Image scaled down proportionally, at the cell's trailing edge.
    const int side = qMax(8, qMin(cell.height() - 8, 22));
    return QRect(cell.right() - side - 6, cell.center().y() - side / 2, side, side);
}

void TestDeleteButtonDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                     const QModelIndex &index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    item.text.clear();
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &item, painter, option.widget);
    const bool pressed = m_pressed.isValid() && m_pressed == index;
    (pressed ? m_pressedImage : m_image).paint(painter, buttonRect(option.rect));
}

QSize TestDeleteButtonDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    Q_UNUSED(option);
    Q_UNUSED(index);
    return QSize(40, 30);
}

bool TestDeleteButtonDelegate::editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                                           const QModelIndex &index)
{
    Q_UNUSED(model);
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        // Any other press disarms a button whose release went elsewhere.
        m_pressed = QPersistentModelIndex();
        if (mouse->button() != Qt::LeftButton || !buttonRect(option.rect).contains(mouse->position().toPoint()))
            return false;
        m_pressed = index;
        return true;
    }
    case QEvent::MouseButtonRelease: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton)
            return false;
        const bool clicked = m_pressed.isValid() && m_pressed == index
                             && buttonRect(option.rect).contains(mouse->position().toPoint());
        const bool wasPressed = m_pressed.isValid();
        m_pressed = QPersistentModelIndex();
        if (clicked)
            emit removeRequested(index.row());
        return wasPressed;
    }
    default:
        return false;
    }
}
