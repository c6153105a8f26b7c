#include "ui/TEAutoTextSizeTextField.h"

#include <QFontMetricsF>
#include <QPainter>

namespace {
// Far above anything a notice can show; only bounds the loop for absurd frames.
constexpr int kLargestFontSize = 512;
} // namespace

TEAutoTextSizeTextField::TEAutoTextSizeTextField(QWidget *parent)
    : QWidget(parent)
{
    // Presses fall through to the notice's content view, which closes it.
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void TEAutoTextSizeTextField::setStringValue(const QString &text)
{
    m_text = text;
    update();
}

QFont TEAutoTextSizeTextField::messageFont(qreal size)
{
    QFont font(QStringLiteral("Helvetica"));
    font.setStyleHint(QFont::SansSerif);
    font.setWeight(QFont::Normal);
    font.setBold(false);
    font.setPixelSize(qMax(1, qRound(size)));
    return font;
}

QSizeF TEAutoTextSizeTextField::textSize(const QString &text, qreal size)
{
    const QFontMetricsF metrics(messageFont(size));
    return {metrics.horizontalAdvance(text), metrics.height()};
}

int TEAutoTextSizeTextField::fittedFontSize(const QString &text, const QSizeF &frame)
{
    int size = 1;
    while (size <= kLargestFontSize) {
        const QSizeF needed = textSize(text, size);
        if (needed.width() > frame.width() - 20 || needed.height() > frame.height())
            break;
        ++size;
    }
    return size - 1;
}

int TEAutoTextSizeTextField::fontSizeForFrame(const QSizeF &frame) const
{
    return minFontSize >= 1 ? minFontSize : fittedFontSize(m_text, frame);
}

void TEAutoTextSizeTextField::paintEvent(QPaintEvent *)
{
    const int chosen = fontSizeForFrame(size());
    if (chosen < 1 || m_text.isEmpty())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setPen(Qt::white);
    painter.setFont(messageFont(chosen));
    painter.drawText(rect(), Qt::AlignHCenter | Qt::AlignTop | Qt::TextSingleLine, m_text);
}
