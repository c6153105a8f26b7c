#include "records/NumberUtilites.h"

#include <gtest/gtest.h>

#include <QLocale>

#include <functional>
#include <limits>

namespace {

struct FormatCase
{
    const char *name;
    std::function<QString()> format;
    const char *expected;
};

void PrintTo(const FormatCase &c, std::ostream *os)
{
    *os << c.name;
}

class NumberFormatTest : public ::testing::TestWithParam<FormatCase>
{};

TEST_P(NumberFormatTest, GivesTheExactText)
{
    EXPECT_EQ(GetParam().format(), QString::fromLatin1(GetParam().expected));
}

using N = NumberUtilites;

INSTANTIATE_TEST_SUITE_P(
    Volumes, NumberFormatTest,
    ::testing::Values(
        FormatCase{"byteTenMB", [] { return N::byteFormat(10485760); }, "10.00 MB"},
        FormatCase{"byteJustUnderOneMBRoundsUp", [] { return N::byteFormat(1048575); }, "1.00 MB"},
        FormatCase{"byteMinusOneReadUnsigned", [] { return N::byteFormat(-1); }, "17592186044416.00 MB"},
        FormatCase{"byteFractionTruncated", [] { return N::byteFormat(1048575.99); }, "1.00 MB"},
        FormatCase{"KBOneAndAHalf", [] { return N::KBFormat(1536); }, "1.50 KB"},
        FormatCase{"KBJustUnderOneRoundsUp", [] { return N::KBFormat(1023); }, "1.00 KB"},
        FormatCase{"KBZero", [] { return N::KBFormat(0); }, "0.00 KB"},
        FormatCase{"KBMinusOneReadUnsigned", [] { return N::KBFormat(qint64(-1)); }, "18014398509481984.00 KB"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Rates, NumberFormatTest,
    ::testing::Values(
        FormatCase{"bitTypical", [] { return N::bitFormat(93456789); }, "93.46 Mbps"},
        FormatCase{"bitZero", [] { return N::bitFormat(0); }, "0.00 Mbps"},
        FormatCase{"bitRoundsUpToOne", [] { return N::bitFormat(999999); }, "1.00 Mbps"},
        FormatCase{"bitRoundsDownToZero", [] { return N::bitFormat(4999); }, "0.00 Mbps"},
        // 0.015 is a hair under the tie in binary: printf rounds it down.
        FormatCase{"bitNearTieRoundsOnExactValue", [] { return N::bitFormat(15000); }, "0.01 Mbps"},
        FormatCase{"bitExactTieRoundsToEven", [] { return N::bitFormat(125000); }, "0.12 Mbps"},
        FormatCase{"bitFromFloatRecord", [] { return N::bitFormat(93456789.0f); }, "93.46 Mbps"},
        FormatCase{"bitMinusOneReadUnsigned", [] { return N::bitFormat(-1); }, "18446744073709.55 Mbps"},
        FormatCase{"kbpsTypical", [] { return N::kbpsFormat(93456789); }, "93456.79 Kbps"},
        FormatCase{"kbpsFractionDroppedBeforeScaling", [] { return N::kbpsFormat(1500.9); }, "1.50 Kbps"},
        FormatCase{"kbpsNegativeFractionTruncatesTowardZero", [] { return N::kbpsFormat(-0.9); }, "0.00 Kbps"},
        FormatCase{"mbpsPlotted", [] { return N::mbpsFormat(93456789); }, "93.46"},
        FormatCase{"kbpsWithoutString", [] { return N::kbpsFormatWithoutString(1234); }, "1.23"},
        FormatCase{"hugeDoubleSaturates", [] { return N::mbpsFormat(1e30); }, "9223372036854.78"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Durations, NumberFormatTest,
    ::testing::Values(
        FormatCase{"hoursExample", [] { return N::durationFormatWithHours(3725); }, "01:02:05"},
        FormatCase{"hoursUnderAMinute", [] { return N::durationFormatWithHours(59); }, "00:00:59"},
        FormatCase{"hoursNotCapped", [] { return N::durationFormatWithHours(360000); }, "100:00:00"},
        FormatCase{"hoursNegativeTruncatesTowardZero", [] { return N::durationFormatWithHours(-3725); },
                   "-1:-2:-5"},
        FormatCase{"minutesNotCapped", [] { return N::durationFormatWithMinutes(3725); }, "62:05"},
        FormatCase{"milis", [] { return N::durationFormatWithMilis(3.14159); }, "3.14"}),
    [](const auto &info) { return std::string(info.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Money, NumberFormatTest,
    ::testing::Values(
        FormatCase{"englishGrouping", [] { return N::moneyFormat(1234.5, QLocale(QLocale::English)); }, "1,234.50"},
        FormatCase{"germanMarks", [] { return N::moneyFormat(-1234567.5, QLocale(QLocale::German)); },
                   "-1.234.567,50"},
        FormatCase{"cLocaleStillGroups", [] { return N::moneyFormat(1000000, QLocale::c()); }, "1,000,000.00"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(NumberUtilitesTest, DecimalPointIgnoresTheDefaultLocale)
{
    const QLocale saved;
    QLocale::setDefault(QLocale(QLocale::German));
    const QString rate = NumberUtilites::bitFormat(93456789);
    const QString duration = NumberUtilites::durationFormatWithMilis(1234.5);
    QLocale::setDefault(saved);
    EXPECT_EQ(rate, QStringLiteral("93.46 Mbps"));
    EXPECT_EQ(duration, QStringLiteral("1234.50"));
}

} // namespace
