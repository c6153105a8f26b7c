#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

#include <optional>

// The date formatters of the `Utilites` group. The receiver is the first
// argument; it is read in the system time zone (local time) unless a
// formatter says otherwise. "User locale" is the default QLocale.
//
// Patterns are written in the Unicode form ("yyyy-MM-dd HH:mm:ss.SSS",
// "EEE", "a") and translated to Qt's own letters here.
class DateUtilites
{
public:
    // "Sept 5, 2016" with the year, "June 12" without; the day has no
    // leading zero. Uses the fixed month words below.
    static QString formattedDateWithYear(const QDateTime &date, bool withYear);
    // "Sept 2016".
    static QString formattedMonth(const QDateTime &date);
    // The month word: "Jan" "Feb" "Mar" "Apr" "May" "June" "July" "Aug"
    // "Sept" "Oct" "Nov" "Dec"; "" outside 1..12.
    static QString monthWord(int month);

    // The same calendar day at 00:00:00 local time.
    static QDateTime truncate(const QDateTime &date);
    // Calendar addition of n days (wall-clock time kept); n may be negative.
    static QDateTime dateByAddingDays(const QDateTime &date, qint64 days);
    // Whole days from truncate(date) to truncate(other); positive when other is later.
    static qint64 daysCountBetweenDate(const QDateTime &date, const QDateTime &other);

    // "2016-09-05" ("%ld-%.2ld-%.2ld" of year, month, day).
    static QString dbDateFormat(const QDateTime &date);
    // The locale's short, medium and long date styles, without the time.
    static QString shortDateFormat(const QDateTime &date, const QLocale &locale = QLocale());
    static QString mediumDateFormat(const QDateTime &date, const QLocale &locale = QLocale());
    static QString longDateFormat(const QDateTime &date, const QLocale &locale = QLocale());
    // Long date style, a blank, short time style.
    static QString longDateFormatWithTime(const QDateTime &date, const QLocale &locale = QLocale());
    // "MMM dd, yyyy HH:mm:ss" in the locale.
    static QString fullDateFormat(const QDateTime &date, const QLocale &locale = QLocale());
    // "HH:mm".
    static QString timeFormat(const QDateTime &date);
    // "MMM" / "MMMM" in English whatever the user's locale.
    static QString shortMonthName(const QDateTime &date);
    static QString monthName(const QDateTime &date);

    // Day of the month, year, ISO week number and month number.
    static int day(const QDateTime &date);
    static int year(const QDateTime &date);
    static int week(const QDateTime &date);
    static int month(const QDateTime &date);

    // "yyyy-MM-dd" read as local midnight.
    static std::optional<QDateTime> dateFromDbString(const QString &text);
    // "EEE, dd MMM yyyy HH:mm:ss 'GMT'" in English, read as GMT.
    static std::optional<QDateTime> dateFromRFC1123(const QString &text);
    // "yyyy-MM-dd'T'HH:mm:ss'Z'": the Z is a literal and the time is read as
    // local time, not UTC. Kept so on purpose: stored texts were written that way.
    static std::optional<QDateTime> dateFromTZ(const QString &text);
    // "yyyy-MM-dd HH:mm:ss" read as UTC.
    static std::optional<QDateTime> dateFromUTCString(const QString &text);

    // "yyyy-MM-dd HH:mm:ss" / "yyyy-MM-dd HH:mm:ss.SSS" in UTC.
    static QString UTCString(const QDateTime &date);
    static QString UTCStringWithMilliseconds(const QDateTime &date);

    // Now, local time, in the given Unicode pattern and the user's locale.
    static QString currentDateWithFormat(const QString &pattern);

    // The date in a Unicode pattern (y M L d E H h m s S a, 'quoted'
    // literals), in the given locale, in the date's own time zone.
    static QString stringWithPattern(const QDateTime &date, const QString &pattern,
                                     const QLocale &locale = QLocale());

private:
    static std::optional<QDateTime> parse(const QString &text, const QString &qtFormat, const QLocale &locale,
                                          bool asUtc);
};
