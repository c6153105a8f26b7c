#pragma once

#include <QValidator>

// Digits-only entry for the numeric fields (ports, durations, rates, buffer
// lengths). An edit is accepted when the proposed text is empty or holds only
// Unicode decimal digits; it never suggests a replacement or an error text.
class OnlyNumbersNSNumberFormatter : public QValidator
{
    Q_OBJECT

public:
    explicit OnlyNumbersNSNumberFormatter(QObject *parent = nullptr);

    // The partial-string check of a number formatter: answers whether the
    // proposed text may stand. newString and error, when given, are set to
    // empty strings (nothing is ever proposed).
    static bool isPartialStringValid(const QString &partialString, QString *newString = nullptr,
                                     QString *error = nullptr);

    State validate(QString &input, int &pos) const override;
};
