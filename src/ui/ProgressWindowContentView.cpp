#include "ui/ProgressWindowContentView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

ProgressWindowContentView::ProgressWindowContentView(QWidget *parent)
    : QWidget(parent)
{
}

void ProgressWindowContentView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath panel;
    panel.addRoundedRect(QRectF(rect()), kCornerRadius, kCornerRadius);
    painter.fillPath(panel, backgroundColor());
}

void ProgressWindowContentView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    emit pressed();
}
