#pragma once

#include <QColor>
#include <QWidget>

// The notice window's content: a rounded, dark, translucent panel. A press
// anywhere on it asks the window to close (pressed()).
class ProgressWindowContentView : public QWidget
{
    Q_OBJECT

public:
    explicit ProgressWindowContentView(QWidget *parent = nullptr);

    static constexpr qreal kCornerRadius = 10.0;
    // 45/255 grey at 90 % opacity.
    static QColor backgroundColor() { return QColor::fromRgbF(45.0 / 255.0, 45.0 / 255.0, 45.0 / 255.0, 0.9); }

signals:
    void pressed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
};
