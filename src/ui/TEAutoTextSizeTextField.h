#pragma once

#include <QFont>
#include <QSizeF>
#include <QString>
#include <QWidget>

// The notice window's message: one line of white text that, unless told a
// fixed size, picks the largest font size at which it still fits its frame.
// Sizes are in logical pixels (the unit of widget geometry), so a size and the
// window widths it is compared with are measured alike on every screen.
class TEAutoTextSizeTextField : public QWidget
{
    Q_OBJECT

public:
    explicit TEAutoTextSizeTextField(QWidget *parent = nullptr);

    // 1 or more: draw at exactly this size. 0 or less: fit the frame.
    int minFontSize = 0;

    void setStringValue(const QString &text);
    QString stringValue() const { return m_text; }

    // The message font (Helvetica, else the closest sans-serif face) at a size.
    static QFont messageFont(qreal size);
    // Single-line size of the text in the message font at that size.
    static QSizeF textSize(const QString &text, qreal size);
    // The self-fitting rule: grow from 1 in steps of 1 while the text is no
    // wider than the frame's width - 20 and no taller than its height; the
    // answer is one below the first size that no longer fits (0 when even 1
    // does not).
    static int fittedFontSize(const QString &text, const QSizeF &frame);

    // The size the next drawing uses for the current frame; never cached.
    int fontSizeForFrame(const QSizeF &frame) const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_text;
};
