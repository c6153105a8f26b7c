#pragma once

#include <QString>

// Text that came from outside (peer names, test labels, tool output) shown or
// logged as the characters it holds, never as markup or as extra lines.
namespace PlainText {

// Qt rich text that renders the text literally, with its blanks and line
// breaks: for the places Qt reads as rich text (tooltips, chart titles).
QString asRichText(const QString &text);

// The text on one line: line breaks, other control characters but the tab,
// and DEL are written as escapes ("\n", "\r", "\x1b"), and a backslash as
// "\\", so no text can forge a line of the log or drive a terminal.
QString escapedControls(const QString &text);

} // namespace PlainText
