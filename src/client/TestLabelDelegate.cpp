#include "client/TestLabelDelegate.h"

#include <QLineEdit>

QWidget *TestLabelDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                                         const QModelIndex &index) const
{
    Q_UNUSED(option);
    auto *editor = new QLineEdit(parent);
    editor->setAlignment(Qt::AlignCenter);
    editor->setFrame(false);
    editor->setFont(index.data(Qt::FontRole).value<QFont>());
    return editor;
}

void TestLabelDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    static_cast<QLineEdit *>(editor)->setText(index.data(Qt::EditRole).toString());
}

void TestLabelDelegate::setModelData(QWidget *editor, QAbstractItemModel *model, const QModelIndex &index) const
{
    model->setData(index, static_cast<QLineEdit *>(editor)->text(), Qt::EditRole);
}

void TestLabelDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    option->displayAlignment = Qt::AlignCenter;
    option->textElideMode = Qt::ElideRight;
}
