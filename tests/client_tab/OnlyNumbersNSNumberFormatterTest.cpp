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
    QString proposed = QStringLiteral("x"), error = QStringLiteral("x");
    EXPECT_EQ(OnlyNumbersNSNumberFormatter::isPartialStringValid(GetParam().text, &proposed, &error),
              GetParam().accepted);
    // Nothing is ever proposed in place of the edit.
    EXPECT_TRUE(proposed.isEmpty() && error.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Texts, DigitsOnly,
    ::testing::Values(DigitsCase{"empty", QString(), true}, DigitsCase{"port", QStringLiteral("5201"), true},
                      DigitsCase{"minus", QStringLiteral("-1"), false},
                      DigitsCase{"decimalPoint", QStringLiteral("1.5"), false},
                      // Other scripts' decimal digits count, even outside the basic plane.
                      DigitsCase{"arabicIndic", QStringLiteral("\u0661\u0662"), true},
                      DigitsCase{"astralDigit", QString::fromUcs4(U"\U0001D7CF"), true},
                      DigitsCase{"superscript", QStringLiteral("\u00B2"), false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(DigitsOnlyField, TypingLettersIntoAFieldLeavesOnlyTheDigits)
{
    QLineEdit field;
    field.setValidator(new OnlyNumbersNSNumberFormatter(&field));
    QTest::keyClicks(&field, QStringLiteral("5a2-0.1"));
    EXPECT_EQ(field.text(), QStringLiteral("5201"));
}

} // namespace
