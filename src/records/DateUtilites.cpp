#include "records/DateUtilites.h"

#include <QRegularExpression>

#include <array>
#include <cstdio>

namespace {

const QLocale &englishLocale()
{
    static const QLocale locale(QLocale::English, QLocale::UnitedStates);
    return locale;
}

// A local wall-clock time as a lenient calendar reads it: a time that a
// daylight-saving gap skips is taken with the offset in force before the
// gap, which lands just after it (02:30 on a spring-forward night is 03:30).
QDateTime localDateTime(const QDate &date, const QTime &time)
{
    QDateTime local(date, time);
    if (local.isValid())
        return local;
    const QDateTime before(date.addDays(-1), time);
    const int offset = before.isValid() ? before.offsetFromUtc() : 0;
    return QDateTime(date, time, Qt::OffsetFromUTC, offset).toLocalTime();
}

// One run of a pattern letter in Qt's date-time letters.
QString qtLetters(QChar letter, qsizetype count)
{
    switch (letter.unicode()) {
    case 'y':
        return count == 2 ? QStringLiteral("yy") : QStringLiteral("yyyy");
    case 'M':
    case 'L':
        return QString(qMin<qsizetype>(count, 4), QLatin1Char('M'));
    case 'd':
        return count == 1 ? QStringLiteral("d") : QStringLiteral("dd");
    case 'E':
        return count <= 3 ? QStringLiteral("ddd") : QStringLiteral("dddd");
    case 'H':
    case 'h':
    case 'm':
    case 's':
        return QString(qMin<qsizetype>(count, 2), letter);
    case 'S':
        return QStringLiteral("zzz");
    case 'a':
        return QStringLiteral("AP");
    case 'z':
    case 'Z':
    case 'v':
    case 'V':
    case 'O':
    case 'X':
    case 'x':
        return QStringLiteral("t");
    default:
        // A field Qt has no letter for is written as it stands.
        return QLatin1Char('\'') + QString(count, letter) + QLatin1Char('\'');
    }
}

// Unicode date pattern → Qt date-time format. Both quote literals the same way.
QString qtFormatFromPattern(const QString &pattern)
{
    QString format;
    qsizetype i = 0;
    while (i < pattern.size()) {
        const QChar c = pattern.at(i);
        if (c == QLatin1Char('\'')) {
            qsizetype end = i + 1;
            while (end < pattern.size()) {
                if (pattern.at(end) == QLatin1Char('\'')) {
                    if (end + 1 < pattern.size() && pattern.at(end + 1) == QLatin1Char('\'')) {
                        end += 2; // '' inside quotes is one quote
                        continue;
                    }
                    break;
                }
                ++end;
            }
            format += pattern.mid(i, end + 1 - i);
            i = end + 1;
        } else if ((c >= QLatin1Char('a') && c <= QLatin1Char('z')) || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))) {
            qsizetype end = i;
            while (end < pattern.size() && pattern.at(end) == c)
                ++end;
            format += qtLetters(c, end - i);
            i = end;
        } else {
            format += c;
            ++i;
        }
    }
    return format;
}

// Qt's long date style names the weekday; the platform's long and medium
// styles do not (its "full" style does).
QString withoutWeekday(QString format)
{
    static const QRegularExpression weekday(QStringLiteral("dddd[,.]?\\s*"));
    static const QRegularExpression trailing(QStringLiteral("[,\\s]+$"));
    format.remove(weekday);
    format.remove(trailing);
    return format;
}

} // namespace

QString DateUtilites::monthWord(int month)
{
    static const std::array<const char *, 12> words = {"Jan", "Feb", "Mar", "Apr", "May", "June",
                                                       "July", "Aug", "Sept", "Oct", "Nov", "Dec"};
    if (month < 1 || month > 12)
        return QString();
    return QString::fromLatin1(words[static_cast<size_t>(month - 1)]);
}

QString DateUtilites::formattedDateWithYear(const QDateTime &date, bool withYear)
{
    const QDate local = date.toLocalTime().date();
    const QString dayPart = withYear ? QStringLiteral("%1, %2").arg(local.day()).arg(local.year())
                                     : QString::number(local.day());
    return monthWord(local.month()) + QLatin1Char(' ') + dayPart;
}

QString DateUtilites::formattedMonth(const QDateTime &date)
{
    const QDate local = date.toLocalTime().date();
    return monthWord(local.month()) + QLatin1Char(' ') + QString::number(local.year());
}

QDateTime DateUtilites::truncate(const QDateTime &date)
{
    return localDateTime(date.toLocalTime().date(), QTime(0, 0));
}

QDateTime DateUtilites::dateByAddingDays(const QDateTime &date, qint64 days)
{
    return date.toLocalTime().addDays(days);
}

qint64 DateUtilites::daysCountBetweenDate(const QDateTime &date, const QDateTime &other)
{
    return truncate(date).date().daysTo(truncate(other).date());
}

QString DateUtilites::dbDateFormat(const QDateTime &date)
{
    const QDate local = date.toLocalTime().date();
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%ld-%.2ld-%.2ld", static_cast<long>(local.year()),
                  static_cast<long>(local.month()), static_cast<long>(local.day()));
    return QString::fromLatin1(buffer);
}

QString DateUtilites::shortDateFormat(const QDateTime &date, const QLocale &locale)
{
    return locale.toString(date.toLocalTime().date(), QLocale::ShortFormat);
}

QString DateUtilites::mediumDateFormat(const QDateTime &date, const QLocale &locale)
{
    QString format = withoutWeekday(locale.dateFormat(QLocale::LongFormat));
    format.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    return locale.toString(date.toLocalTime().date(), format);
}

QString DateUtilites::longDateFormat(const QDateTime &date, const QLocale &locale)
{
    return locale.toString(date.toLocalTime().date(), withoutWeekday(locale.dateFormat(QLocale::LongFormat)));
}

QString DateUtilites::longDateFormatWithTime(const QDateTime &date, const QLocale &locale)
{
    return longDateFormat(date, locale) + QLatin1Char(' ')
        + locale.toString(date.toLocalTime().time(), QLocale::ShortFormat);
}

QString DateUtilites::fullDateFormat(const QDateTime &date, const QLocale &locale)
{
    return stringWithPattern(date.toLocalTime(), QStringLiteral("MMM dd, yyyy HH:mm:ss"), locale);
}

QString DateUtilites::timeFormat(const QDateTime &date)
{
    return stringWithPattern(date.toLocalTime(), QStringLiteral("HH:mm"));
}

QString DateUtilites::shortMonthName(const QDateTime &date)
{
    return stringWithPattern(date.toLocalTime(), QStringLiteral("MMM"), englishLocale());
}

QString DateUtilites::monthName(const QDateTime &date)
{
    return stringWithPattern(date.toLocalTime(), QStringLiteral("MMMM"), englishLocale());
}

int DateUtilites::day(const QDateTime &date)
{
    return date.toLocalTime().date().day();
}

int DateUtilites::year(const QDateTime &date)
{
    return date.toLocalTime().date().year();
}

int DateUtilites::week(const QDateTime &date)
{
    // Qt's calendars know ISO weeks only.
    return date.toLocalTime().date().weekNumber();
}

int DateUtilites::month(const QDateTime &date)
{
    return date.toLocalTime().date().month();
}

std::optional<QDateTime> DateUtilites::parse(const QString &text, const QString &qtFormat, const QLocale &locale,
                                             bool asUtc)
{
    // Parsed as UTC first: Qt refuses a local time that a daylight-saving gap
    // skips, while the lenient platform parser moves it past the gap.
    // Single-letter fields accept one or two digits, as that parser does.
    const QDateTime parsed = locale.toDateTime(text + QStringLiteral(" UTC"), qtFormat + QStringLiteral(" t"));
    if (!parsed.isValid())
        return std::nullopt;
    if (asUtc)
        return parsed;
    return localDateTime(parsed.date(), parsed.time());
}

std::optional<QDateTime> DateUtilites::dateFromDbString(const QString &text)
{
    return parse(text, QStringLiteral("yyyy-M-d"), QLocale::c(), false);
}

std::optional<QDateTime> DateUtilites::dateFromRFC1123(const QString &text)
{
    return parse(text, QStringLiteral("ddd, d MMM yyyy H:m:s 'GMT'"), englishLocale(), true);
}

std::optional<QDateTime> DateUtilites::dateFromTZ(const QString &text)
{
    return parse(text, QStringLiteral("yyyy-M-d'T'H:m:s'Z'"), QLocale::c(), false);
}

std::optional<QDateTime> DateUtilites::dateFromUTCString(const QString &text)
{
    return parse(text, QStringLiteral("yyyy-M-d H:m:s"), QLocale::c(), true);
}

QString DateUtilites::UTCString(const QDateTime &date)
{
    return stringWithPattern(date.toUTC(), QStringLiteral("yyyy-MM-dd HH:mm:ss"), QLocale::c());
}

QString DateUtilites::UTCStringWithMilliseconds(const QDateTime &date)
{
    return stringWithPattern(date.toUTC(), QStringLiteral("yyyy-MM-dd HH:mm:ss.SSS"), QLocale::c());
}

QString DateUtilites::currentDateWithFormat(const QString &pattern)
{
    return stringWithPattern(QDateTime::currentDateTime(), pattern);
}

QString DateUtilites::stringWithPattern(const QDateTime &date, const QString &pattern, const QLocale &locale)
{
    return locale.toString(date, qtFormatFromPattern(pattern));
}
