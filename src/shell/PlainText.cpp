#include "shell/PlainText.h"

QString PlainText::asRichText(const QString &text)
{
    QString escaped = text.toHtmlEscaped();
    escaped.replace(QLatin1Char('\n'), QStringLiteral("<br>"));
    // The span makes Qt take the text as rich text even when it looks plain,
    // and keeps runs of blanks.
    return QStringLiteral("<span style=\"white-space:pre\">%1</span>").arg(escaped);
}

QString PlainText::escapedControls(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u == '\\')
            out += QStringLiteral("\\\\");
        else if (u == '\n')
            out += QStringLiteral("\\n");
        else if (u == '\r')
            out += QStringLiteral("\\r");
        else if ((u < 0x20 && u != '\t') || u == 0x7f)
            out += QStringLiteral("\\x%1").arg(int(u), 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}
