#include "client/OnlyNumbersNSNumberFormatter.h"

OnlyNumbersNSNumberFormatter::OnlyNumbersNSNumberFormatter(QObject *parent)
    : QValidator(parent)
{
}

bool OnlyNumbersNSNumberFormatter::isPartialStringValid(const QString &partialString, QString *newString,
                                                        QString *error)
{
    if (newString)
        *newString = QString();
    if (error)
        *error = QString();
    if (partialString.isEmpty())
        return true;
    // Walk by code point so that digits outside the basic plane (surrogate
    // pairs) are judged as one character.
    const auto ucs4 = partialString.toUcs4();
    for (char32_t cp : ucs4) {
        if (QChar::category(cp) != QChar::Number_DecimalDigit)
            return false;
    }
    return true;
}

QValidator::State OnlyNumbersNSNumberFormatter::validate(QString &input, int &pos) const
{
    Q_UNUSED(pos);
    return isPartialStringValid(input) ? Acceptable : Invalid;
}
