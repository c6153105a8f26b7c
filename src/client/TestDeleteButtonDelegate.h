#pragma once

#include <QIcon>
#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

// The list's delete column: a borderless button showing the "Delete-Orange"
// image, and "appbar.close" while it is held down. Releasing the button over
// its cell reports the row; what deleting means is the list owner's business.
class TestDeleteButtonDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit TestDeleteButtonDelegate(QObject *parent = nullptr);

    // Our own artwork for the two images, drawn at any size.
    static QIcon deleteOrangeImage();
    static QIcon appbarCloseImage();

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

signals:
    // The button of this row was clicked (the button's tag is its row).
    void removeRequested(int row);

private:
    static QRect buttonRect(const QRect &cell);

    QIcon m_image;
    QIcon m_pressedImage;
    QPersistentModelIndex m_pressed;
};
