#include "client/TestCheckBoxDelegate.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>

QRect TestCheckBoxDelegate::boxRect(const QStyleOptionViewItem &option)
{
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    const int w = style->pixelMetric(QStyle::PM_IndicatorWidth, &option, option.widget);
    const int h = style->pixelMetric(QStyle::PM_IndicatorHeight, &option, option.widget);
    return QStyle::alignedRect(option.direction, Qt::AlignCenter, QSize(w, h), option.rect);
}

void TestCheckBoxDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    // Background and selection only; the box is drawn centred below.
    item.features &= ~QStyleOptionViewItem::HasCheckIndicator;
    item.text.clear();
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &item, painter, option.widget);

    QStyleOptionButton box;
    box.rect = boxRect(option);
    box.state = QStyle::State_Enabled;
    box.state |= index.data(Qt::CheckStateRole).toInt() == Qt::Checked ? QStyle::State_On : QStyle::State_Off;
    style->drawControl(QStyle::CE_CheckBox, &box, painter, option.widget);
}

QSize TestCheckBoxDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    Q_UNUSED(index);
    const QRect box = boxRect(option);
    return QSize(box.width() + 16, box.height() + 8);
}

bool TestCheckBoxDelegate::editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                                       const QModelIndex &index)
{
    if (!(index.flags() & Qt::ItemIsUserCheckable))
        return false;
    if (event->type() == QEvent::MouseButtonRelease) {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton || !option.rect.contains(mouse->position().toPoint()))
            return false;
    } else if (event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key != Qt::Key_Space && key != Qt::Key_Select)
            return false;
    } else {
        // Swallow presses and double clicks so the view does not start an edit.
        return event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonDblClick;
    }
    const bool checked = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
    return model->setData(index, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
}
