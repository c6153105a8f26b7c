#pragma once

#include <QLocale>
#include <QString>
#include <QtGlobal>

#include <concepts>
#include <type_traits>

// Any plain number a formatter can take: integers of every width and
// floating point (speeds are kept as floats in the records).
template <typename T>
concept UtilitesNumber = std::is_arithmetic_v<T> && !std::same_as<T, bool>;

// The number formatters of the `Utilites` group: rates, volumes, money and
// durations as the client workspace shows them. Pure functions; "." is the
// decimal point whatever the locale (except moneyFormat, which is localised).
//
// Volumes are binary (1 KB = 1024 bytes), rates decimal (1 Kbps = 1000 bit/s).
// The volume and rate formatters read their number as a 64-bit integer
// (fractions truncated toward zero) whose bits are then taken as unsigned, so
// a negative input shows as a huge value; callers never pass negatives.
class NumberUtilites
{
public:
    // "%.2f MB" of bytes.
    static QString byteFormat(UtilitesNumber auto value) { return byteFormatOf(longLongValue(value)); }
    // "%.2f KB" of bytes.
    static QString KBFormat(UtilitesNumber auto value) { return KBFormatOf(longLongValue(value)); }
    // "%.2f Mbps" of bits per second.
    static QString bitFormat(UtilitesNumber auto value) { return bitFormatOf(longLongValue(value)); }
    // "%.2f Kbps" of bits per second.
    static QString kbpsFormat(UtilitesNumber auto value) { return kbpsFormatOf(longLongValue(value)); }
    // "%.2f" of bits per second in Mbps (the graph's plotted value).
    static QString mbpsFormat(UtilitesNumber auto value) { return mbpsFormatOf(longLongValue(value)); }
    // "%.2f" of bits per second in Kbps (the graph's plotted value).
    static QString kbpsFormatWithoutString(UtilitesNumber auto value)
    {
        return kbpsFormatWithoutStringOf(longLongValue(value));
    }

    // "#,##0.00" with the grouping and decimal marks of the locale.
    static QString moneyFormat(double value, const QLocale &locale = QLocale());

    // "%02d:%02d:%02d" of hours (not capped), minutes and seconds.
    static QString durationFormatWithHours(UtilitesNumber auto seconds)
    {
        return durationFormatWithHoursOf(intValue(seconds));
    }
    // "%02d:%02d" of minutes (not capped) and seconds.
    static QString durationFormatWithMinutes(UtilitesNumber auto seconds)
    {
        return durationFormatWithMinutesOf(intValue(seconds));
    }
    // "%02.02f" of a number of seconds.
    static QString durationFormatWithMilis(double seconds);

    // The number's 64-bit integer reading: integers as they are, floating
    // point truncated toward zero, saturating at the ends, NaN as 0.
    static qint64 longLongValue(UtilitesNumber auto value)
    {
        if constexpr (std::is_floating_point_v<decltype(value)>)
            return longLongValueOfDouble(static_cast<double>(value));
        else
            return static_cast<qint64>(value);
    }
    // The number's 32-bit integer reading (the low 32 bits of the 64-bit one).
    static qint32 intValue(UtilitesNumber auto value) { return static_cast<qint32>(longLongValue(value)); }

    // "%.2f" in the C locale: two decimals, rounded to nearest (ties to even
    // on the exact binary value, as printf does), no grouping.
    static QString fixedTwoDecimals(double value);

private:
    static qint64 longLongValueOfDouble(double value);
    static double unsignedReading(qint64 value);

    static QString byteFormatOf(qint64 value);
    static QString KBFormatOf(qint64 value);
    static QString bitFormatOf(qint64 value);
    static QString kbpsFormatOf(qint64 value);
    static QString mbpsFormatOf(qint64 value);
    static QString kbpsFormatWithoutStringOf(qint64 value);
    static QString durationFormatWithHoursOf(qint32 seconds);
    static QString durationFormatWithMinutesOf(qint32 seconds);
};
