#include "records/NumberUtilites.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {
constexpr double kBytesPerMB = 1048576.0;
constexpr double kBitsPerMbps = 1000000.0;
} // namespace

qint64 NumberUtilites::longLongValueOfDouble(double value)
{
    if (std::isnan(value))
        return 0;
    // 2^63 is exactly representable; anything at or beyond it saturates.
    constexpr double limit = 9223372036854775808.0;
    if (value >= limit)
        return std::numeric_limits<qint64>::max();
    if (value <= -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value); // truncates toward zero
}

double NumberUtilites::unsignedReading(qint64 value)
{
    return static_cast<double>(static_cast<quint64>(value));
}

QString NumberUtilites::fixedTwoDecimals(double value)
{
    // std::to_chars is printf's "%.2f" without the locale: the application
    // calls setlocale(), and a "," decimal mark must never reach these texts.
    std::array<char, 400> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                       std::chars_format::fixed, 2);
    if (result.ec != std::errc())
        return {};
    return QString::fromLatin1(buffer.data(), result.ptr - buffer.data());
}

QString NumberUtilites::byteFormatOf(qint64 value)
{
    return fixedTwoDecimals(unsignedReading(value) * (1.0 / kBytesPerMB)) + QStringLiteral(" MB");
}

QString NumberUtilites::KBFormatOf(qint64 value)
{
    return fixedTwoDecimals(unsignedReading(value) * (1.0 / kBytesPerMB) * 1024.0) + QStringLiteral(" KB");
}

QString NumberUtilites::bitFormatOf(qint64 value)
{
    return fixedTwoDecimals(unsignedReading(value) / kBitsPerMbps) + QStringLiteral(" Mbps");
}

QString NumberUtilites::kbpsFormatOf(qint64 value)
{
    return fixedTwoDecimals(unsignedReading(value) / kBitsPerMbps * 1000.0) + QStringLiteral(" Kbps");
}

QString NumberUtilites::mbpsFormatOf(qint64 value)
{
    return fixedTwoDecimals(unsignedReading(value) / kBitsPerMbps);
}

QString NumberUtilites::kbpsFormatWithoutStringOf(qint64 value)
{
    return fixedTwoDecimals(unsignedReading(value) / kBitsPerMbps * 1000.0);
}

QString NumberUtilites::moneyFormat(double value, const QLocale &locale)
{
    // Round as the fixed formatters do, then put in the locale's marks; the
    // "#,##0.00" pattern always groups, even where the locale's own default
    // (the C locale) would not.
    QString digits = fixedTwoDecimals(value);
    if (!digits.front().isDigit() && digits.front() != QLatin1Char('-'))
        return digits; // inf, nan
    const bool negative = digits.startsWith(QLatin1Char('-'));
    if (negative)
        digits.remove(0, 1);
    const qsizetype point = digits.indexOf(QLatin1Char('.'));
    const QString whole = digits.left(point);
    QString grouped;
    for (qsizetype i = 0; i < whole.size(); ++i) {
        if (i > 0 && (whole.size() - i) % 3 == 0)
            grouped += locale.groupSeparator();
        grouped += whole.at(i);
    }
    return (negative ? locale.negativeSign() : QString()) + grouped + locale.decimalPoint() + digits.mid(point + 1);
}

QString NumberUtilites::durationFormatWithHoursOf(qint32 seconds)
{
    const qint32 hours = seconds / 3600;
    const qint32 minutes = (seconds - 3600 * hours) / 60;
    const qint32 rest = seconds - 3600 * hours - 60 * minutes;
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d", hours, minutes, rest);
    return QString::fromLatin1(buffer);
}

QString NumberUtilites::durationFormatWithMinutesOf(qint32 seconds)
{
    const qint32 minutes = seconds / 60;
    const qint32 rest = seconds - 60 * minutes;
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%02d:%02d", minutes, rest);
    return QString::fromLatin1(buffer);
}

QString NumberUtilites::durationFormatWithMilis(double seconds)
{
    // "%02.02f": the width of 2 never pads a number that already has two
    // decimals, so this is "%.2f".
    return fixedTwoDecimals(seconds);
}
