#pragma once

#include <QStyledItemDelegate>

// The list's check-box column: a centred check box without a title. A click
// asks the model to flip the box (the model decides whether it may).
class TestCheckBoxDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

private:
    static QRect boxRect(const QStyleOptionViewItem &option);
};
