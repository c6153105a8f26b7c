#include "records/DateUtilites.h"

#include <gtest/gtest.h>

#include <QLocale>

#include <cstdlib>
#include <ctime>
#include <optional>

namespace {

// Runs each test in a given system time zone, so that local-time rules are
// visible (the test machine itself is often on UTC).
class ZoneScope
{
public:
    explicit ZoneScope(const char *zone)
        : m_saved(qgetenv("TZ"))
        , m_hadZone(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~ZoneScope()
    {
        if (m_hadZone)
            qputenv("TZ", m_saved);
        else
            qunsetenv("TZ");
        tzset();
    }

private:
    QByteArray m_saved;
    bool m_hadZone;
};

QDateTime local(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms));
}

const QLocale kEnglishUS(QLocale::English, QLocale::UnitedStates);

struct MonthCase
{
    int month;
    const char *word;
};

void PrintTo(const MonthCase &c, std::ostream *os)
{
    *os << c.word;
}

class MonthWordTest : public ::testing::TestWithParam<MonthCase>
{};

TEST_P(MonthWordTest, FormattedMonthUsesTheIrregularWord)
{
    const MonthCase &c = GetParam();
    EXPECT_EQ(DateUtilites::formattedMonth(local(2016, c.month, 1)), QStringLiteral("%1 2016").arg(QLatin1String(c.word)));
}

INSTANTIATE_TEST_SUITE_P(AllMonths, MonthWordTest,
                         ::testing::Values(MonthCase{1, "Jan"}, MonthCase{2, "Feb"}, MonthCase{3, "Mar"},
                                           MonthCase{4, "Apr"}, MonthCase{5, "May"}, MonthCase{6, "June"},
                                           MonthCase{7, "July"}, MonthCase{8, "Aug"}, MonthCase{9, "Sept"},
                                           MonthCase{10, "Oct"}, MonthCase{11, "Nov"}, MonthCase{12, "Dec"}),
                         [](const auto &info) { return std::string(info.param.word); });

TEST(DateUtilitesTest, FormattedDateHasNoLeadingZeroAndOptionalYear)
{
    EXPECT_EQ(DateUtilites::formattedDateWithYear(local(2016, 9, 5, 23, 59), true), QStringLiteral("Sept 5, 2016"));
    EXPECT_EQ(DateUtilites::formattedDateWithYear(local(2016, 6, 12), false), QStringLiteral("June 12"));
    EXPECT_EQ(DateUtilites::monthWord(0), QString());
    EXPECT_EQ(DateUtilites::monthWord(13), QString());
}

TEST(DateUtilitesTest, CalendarFieldsAreReadInLocalTime)
{
    const ZoneScope zone("America/New_York");
    // 02:00 UTC on the 5th is still the 4th in New York.
    const QDateTime utc(QDate(2016, 9, 5), QTime(2, 0), Qt::UTC);
    EXPECT_EQ(DateUtilites::formattedDateWithYear(utc, true), QStringLiteral("Sept 4, 2016"));
    EXPECT_EQ(DateUtilites::dbDateFormat(utc), QStringLiteral("2016-09-04"));
    EXPECT_EQ(DateUtilites::day(utc), 4);
    EXPECT_EQ(DateUtilites::timeFormat(utc), QStringLiteral("22:00"));
    EXPECT_EQ(DateUtilites::truncate(utc), local(2016, 9, 4));
}

struct DayCountCase
{
    const char *name;
    const char *zone;
    QDateTime from;
    QDateTime to;
    qint64 days;
};

void PrintTo(const DayCountCase &c, std::ostream *os)
{
    *os << c.name;
}

class DaysCountTest : public ::testing::TestWithParam<DayCountCase>
{};

TEST_P(DaysCountTest, CountsCalendarDaysBetweenMidnights)
{
    const ZoneScope zone(GetParam().zone);
    EXPECT_EQ(DateUtilites::daysCountBetweenDate(GetParam().from, GetParam().to), GetParam().days);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DaysCountTest,
    ::testing::Values(
        DayCountCase{"TwoMinutesOverMidnight", "UTC", local(2016, 9, 5, 23, 59), local(2016, 9, 6, 0, 1), 1},
        DayCountCase{"Backwards", "UTC", local(2016, 9, 6, 0, 1), local(2016, 9, 5, 23, 59), -1},
        // A 23-hour day must still count as one.
        DayCountCase{"AcrossSpringForward", "Europe/Berlin", local(2017, 3, 25, 23, 30), local(2017, 3, 27, 0, 10), 2},
        // Midnight itself was skipped in São Paulo on 16 October 2016.
        DayCountCase{"DayWithoutMidnight", "America/Sao_Paulo", local(2016, 10, 15, 12), local(2016, 10, 16, 12), 1}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(DateUtilitesTest, TruncateOfADayWithoutMidnightIsItsFirstMoment)
{
    const ZoneScope zone("America/Sao_Paulo");
    const QDateTime start = DateUtilites::truncate(local(2016, 10, 16, 15));
    ASSERT_TRUE(start.isValid());
    EXPECT_EQ(start.date(), QDate(2016, 10, 16));
    EXPECT_EQ(start.time(), QTime(1, 0));
}

TEST(DateUtilitesTest, AddingDaysKeepsTheWallClockAcrossDaylightSaving)
{
    const ZoneScope zone("Europe/Berlin");
    EXPECT_EQ(DateUtilites::dateByAddingDays(local(2017, 3, 25, 12), 1), local(2017, 3, 26, 12));
    EXPECT_EQ(DateUtilites::dateByAddingDays(local(2017, 3, 26, 12), -1), local(2017, 3, 25, 12));
}

TEST(DateUtilitesTest, FixedPatterns)
{
    const ZoneScope zone("Europe/Berlin");
    const QDateTime date = local(2016, 9, 5, 15, 4, 5, 123);
    EXPECT_EQ(DateUtilites::dbDateFormat(local(999, 1, 2)), QStringLiteral("999-01-02"));
    EXPECT_EQ(DateUtilites::fullDateFormat(date, kEnglishUS), QStringLiteral("Sep 05, 2016 15:04:05"));
    EXPECT_EQ(DateUtilites::UTCString(date), QStringLiteral("2016-09-05 13:04:05"));
    EXPECT_EQ(DateUtilites::UTCStringWithMilliseconds(date), QStringLiteral("2016-09-05 13:04:05.123"));
    EXPECT_EQ(DateUtilites::longDateFormat(date, kEnglishUS), QStringLiteral("September 5, 2016"));
    EXPECT_EQ(DateUtilites::mediumDateFormat(date, kEnglishUS), QStringLiteral("Sep 5, 2016"));

    const QLocale saved;
    QLocale::setDefault(QLocale(QLocale::German));
    const QString shortName = DateUtilites::shortMonthName(date);
    const QString name = DateUtilites::monthName(date);
    QLocale::setDefault(saved);
    EXPECT_EQ(shortName, QStringLiteral("Sep"));
    EXPECT_EQ(name, QStringLiteral("September"));
}

struct ParseCase
{
    const char *name;
    std::optional<QDateTime> (*parse)(const QString &);
    const char *text;
    std::optional<QDateTime> expected;
};

void PrintTo(const ParseCase &c, std::ostream *os)
{
    *os << c.name;
}

class ParseTest : public ::testing::TestWithParam<ParseCase>
{};

TEST_P(ParseTest, ReadsTheTextOrGivesNone)
{
    // Berlin, so that reading a text as UTC or as local time gives different instants.
    const ZoneScope zone("Europe/Berlin");
    const std::optional<QDateTime> parsed = GetParam().parse(QString::fromLatin1(GetParam().text));
    ASSERT_EQ(parsed.has_value(), GetParam().expected.has_value());
    if (parsed) {
        EXPECT_EQ(parsed->toMSecsSinceEpoch(), GetParam().expected->toMSecsSinceEpoch())
            << parsed->toString(Qt::ISODate).toStdString();
    }
}

// Expected instants in UTC, so they do not depend on the zone of the test.
QDateTime utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ParseTest,
    ::testing::Values(
        ParseCase{"DbIsLocalMidnight", &DateUtilites::dateFromDbString, "2016-09-05", utc(2016, 9, 4, 22)},
        ParseCase{"DbSingleDigits", &DateUtilites::dateFromDbString, "2016-9-5", utc(2016, 9, 4, 22)},
        ParseCase{"DbBadMonth", &DateUtilites::dateFromDbString, "2016-13-01", std::nullopt},
        ParseCase{"DbTrailingText", &DateUtilites::dateFromDbString, "2016-09-05 10:00", std::nullopt},
        ParseCase{"RfcIsGmt", &DateUtilites::dateFromRFC1123, "Sun, 06 Nov 1994 08:49:37 GMT",
                  utc(1994, 11, 6, 8, 49, 37)},
        ParseCase{"RfcNotEnglish", &DateUtilites::dateFromRFC1123, "So, 06 Nov. 1994 08:49:37 GMT", std::nullopt},
        // The Z is only a letter: the time is Berlin's, two hours ahead of UTC.
        ParseCase{"TzZIsReadAsLocal", &DateUtilites::dateFromTZ, "2016-09-05T10:00:00Z", utc(2016, 9, 5, 8)},
        // 02:30 does not exist that night; a lenient reading moves it past the gap.
        ParseCase{"TzInsideDaylightGap", &DateUtilites::dateFromTZ, "2017-03-26T02:30:00Z", utc(2017, 3, 26, 1, 30)},
        ParseCase{"UtcString", &DateUtilites::dateFromUTCString, "2016-09-05 10:00:00", utc(2016, 9, 5, 10)},
        ParseCase{"UtcStringInBerlinGapIsFine", &DateUtilites::dateFromUTCString, "2017-03-26 02:30:00",
                  utc(2017, 3, 26, 2, 30)}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
