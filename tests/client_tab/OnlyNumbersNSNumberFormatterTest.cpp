#include "client/OnlyNumbersNSNumberFormatter.h"

#include <QLineEdit>
#include <QTest>

#include <gtest/gtest.h>

namespace {

struct DigitsCase
{
    const char *name;
    QString text;
    bool accepted;
    friend void PrintTo(const DigitsCase &c, std::ostream *os) { *os << c.name; }
};

class DigitsOnly : public ::testing::TestWithParam<DigitsCase>
{
};

TEST_P(DigitsOnly, AcceptsOnlyEmptyOrDecimalDigits)
{
    const auto &c = GetParam();
    QString proposed = QStringLiteral("x");
    QString error = QStringLiteral("x");
    EXPECT_EQ(OnlyNumbersNSNumberFormatter::isPartialStringValid(c.text, &proposed, &error), c.accepted);
    // Nothing is ever proposed in place of the edit.
    EXPECT_TRUE(proposed.isEmpty());
    EXPECT_TRUE(error.isEmpty());

    OnlyNumbersNSNumberFormatter formatter;
    QString input = c.text;
    int pos = int(input.size());
    EXPECT_EQ(formatter.validate(input, pos), c.accepted ? QValidator::Acceptable : QValidator::Invalid);
    EXPECT_EQ(input, c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, DigitsOnly,
    ::testing::Values(DigitsCase{"empty", QString(), true}, DigitsCase{"port", QStringLiteral("5201"), true},
                      DigitsCase{"leadingZero", QStringLiteral("0"), true},
                      DigitsCase{"minus", QStringLiteral("-1"), false},
                      DigitsCase{"decimalPoint", QStringLiteral("1.5"), false},
                      DigitsCase{"blank", QStringLiteral("52 01"), false},
                      DigitsCase{"letter", QStringLiteral("12a"), false},
                      DigitsCase{"plus", QStringLiteral("+5"), false},
                      // Arabic-Indic and fullwidth digits are decimal digits too.
                      DigitsCase{"arabicIndic", QStringLiteral("\u0661\u0662"), true},
                      DigitsCase{"fullwidth", QStringLiteral("\uFF15\uFF12"), true},
                      // Mathematical bold digit one, outside the basic plane.
                      DigitsCase{"astralDigit", QString::fromUcs4(U"\U0001D7CF"), true},
                      DigitsCase{"superscript", QStringLiteral("\u00B2"), false},
                      DigitsCase{"romanNumeral", QStringLiteral("\u2167"), false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(DigitsOnlyField, TypingLettersIntoAFieldLeavesOnlyTheDigits)
{
    QLineEdit field;
    field.setValidator(new OnlyNumbersNSNumberFormatter(&field));
    QTest::keyClicks(&field, QStringLiteral("5a2-0.1"));
    EXPECT_EQ(field.text(), QStringLiteral("5201"));
    field.clear();
    EXPECT_TRUE(field.hasAcceptableInput());
}

} // namespace
