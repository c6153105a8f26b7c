#include "records/DateUtilites.h"
#include "records/NumberUtilites.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

using D = DateUtilites;
using N = NumberUtilites;

// Local-time rules only show away from UTC, where test machines usually run.
struct Zone
{
    explicit Zone(const char *zone) : saved(qgetenv("TZ")) { qputenv("TZ", zone), tzset(); }
    ~Zone() { saved.isNull() ? qunsetenv("TZ") : qputenv("TZ", saved), tzset(); }
    QByteArray saved;
};

void expectTexts(std::initializer_list<std::pair<std::function<QString()>, const char *>> rows)
{
    for (const auto &[make, expected] : rows)
        EXPECT_EQ(make(), QString::fromUtf8(expected)) << "expected " << expected;
}

QDateTime at(int y, int mo, int d, int h = 0, int mi = 0, Qt::TimeSpec spec = Qt::LocalTime)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi), spec);
}

TEST(Records, NumbersReadTheSameInEveryUserLocale)
{
    const QLocale saved, english(QLocale::English), german(QLocale::German);
    QLocale::setDefault(german);
    expectTexts({
        {[] { return N::byteFormat(10485760); }, "10.00 MB"}, {[] { return N::byteFormat(1048575.99); }, "1.00 MB"},
        {[] { return N::byteFormat(-1); }, "17592186044416.00 MB"}, {[] { return N::KBFormat(1536); }, "1.50 KB"},
        {[] { return N::KBFormat(qint64(-1)); }, "18014398509481984.00 KB"}, {[] { return N::bitFormat(93456789.0f); }, "93.46 Mbps"},
        {[] { return N::bitFormat(999999); }, "1.00 Mbps"}, {[] { return N::bitFormat(15000); }, "0.01 Mbps"}, // 0.015 is below the tie in binary
        {[] { return N::bitFormat(125000); }, "0.12 Mbps"}, {[] { return N::bitFormat(-1); }, "18446744073709.55 Mbps"},
        {[] { return N::kbpsFormat(93456789); }, "93456.79 Kbps"}, {[] { return N::kbpsFormat(1500.9); }, "1.50 Kbps"},
        {[] { return N::kbpsFormat(-0.9); }, "0.00 Kbps"}, {[] { return N::mbpsFormat(93456789); }, "93.46"},
        {[] { return N::mbpsFormat(1e30); }, "9223372036854.78"}, {[] { return N::mbpsFormat(std::nan("")); }, "0.00"},
        {[] { return N::kbpsFormatWithoutString(1234); }, "1.23"}, {[] { return N::durationFormatWithHours(3725); }, "01:02:05"},
        {[] { return N::durationFormatWithHours(3600); }, "01:00:00"}, {[] { return N::durationFormatWithHours(7260); }, "02:01:00"},
        {[] { return N::durationFormatWithHours(360000); }, "100:00:00"}, {[] { return N::durationFormatWithHours(-3725); }, "-1:-2:-5"},
        {[] { return N::durationFormatWithMinutes(3725); }, "62:05"}, {[] { return N::durationFormatWithMinutes(120); }, "02:00"},
        {[] { return N::durationFormatWithMilis(1234.5); }, "1234.50"}, {[&] { return N::moneyFormat(1234.5, english); }, "1,234.50"},
        {[&] { return N::moneyFormat(999.999, english); }, "1,000.00"}, {[&] { return N::moneyFormat(-1234567.5, german); }, "-1.234.567,50"},
        {[] { return N::moneyFormat(1e6, QLocale::c()); }, "1,000,000.00"}, {[&] { return N::moneyFormat(INFINITY, english); }, "inf"},
    });
    QLocale::setDefault(saved);
}

TEST(Records, DatesAreWrittenInLocalTimeAndTheGivenPattern)
{
    const Zone zone("Europe/Berlin");
    const QLocale us(QLocale::English, QLocale::UnitedStates);
    const QDateTime local(QDate(2016, 9, 5), QTime(15, 4, 5, 123)), lateUtc = at(2016, 9, 4, 22, 30, Qt::UTC); // the 5th in Berlin
    const QDateTime monday(QDate(2016, 9, 5), QTime(15, 4, 5, 123), Qt::UTC); // patterns keep the date's own zone
    const auto pattern = [&](const char *p) { return [&, p] { return D::stringWithPattern(monday, QString::fromUtf8(p), us); }; };
    const QString words = u",Jan,Feb,Mar,Apr,May,June,July,Aug,Sept,Oct,Nov,Dec,"_s;
    for (int month = 0; month <= 13; ++month)
        EXPECT_EQ(D::monthWord(month), words.section(u',', month, month)) << month;
    EXPECT_EQ(QList<int>({D::day(lateUtc), D::month(lateUtc), D::year(lateUtc), D::week(lateUtc)}), QList<int>({5, 9, 2016, 36}));
    QLocale::setDefault(QLocale(QLocale::German));
    const QString englishMonths = D::shortMonthName(local) + u' ' + D::monthName(local);
    QLocale::setDefault(us);
    EXPECT_EQ(englishMonths, u"Sep September"_s);
    expectTexts({
        {[&] { return D::formattedDateWithYear(lateUtc, true); }, "Sept 5, 2016"}, {[&] { return D::formattedMonth(lateUtc); }, "Sept 2016"},
        {[] { return D::formattedDateWithYear(at(2016, 6, 12, 23, 59), false); }, "June 12"}, {[&] { return D::dbDateFormat(lateUtc); }, "2016-09-05"},
        {[] { return D::dbDateFormat(at(999, 1, 2, 12)); }, "999-01-02"}, {[&] { return D::timeFormat(lateUtc); }, "00:30"},
        {[&] { return D::fullDateFormat(lateUtc, us); }, "Sep 05, 2016 00:30:00"}, {[&] { return D::UTCString(local); }, "2016-09-05 13:04:05"},
        {[&] { return D::UTCStringWithMilliseconds(local); }, "2016-09-05 13:04:05.123"}, {[&] { return D::shortDateFormat(local, us); }, "9/5/16"},
        {[&] { return D::mediumDateFormat(local, us); }, "Sep 5, 2016"}, {[&] { return D::longDateFormat(local, us); }, "September 5, 2016"},
        {[&] { return D::longDateFormatWithTime(local, us); }, "September 5, 2016 3:04 PM"},
        {pattern("y yy yyy yyyy"), "2016 16 2016 2016"}, {pattern("M MM MMM MMMM MMMMM L LLL"), "9 09 Sep September September 9 Sep"},
        {pattern("d dd ddd E EEE EEEE"), "5 05 05 Mon Mon Monday"}, {pattern("H:m:s HH:mm:ss.SSS HHH h hh a"), "15:4:5 15:04:05.123 15 3 03 PM"},
        {pattern("z Z v V O X x"), "UTC UTC UTC UTC UTC UTC UTC"}, {pattern("G QQ A"), "G QQ A"}, // fields Qt lacks stay as written
        {pattern("'at' HH 'o''clock' EEEE"), "at 15 o'clock Monday"}, {pattern("'x''' EEE"), "x' Mon"}, {pattern("''EEE''"), "'Mon'"},
    });
    QLocale::setDefault(QLocale::system());
}

TEST(Records, CalendarArithmeticAndStoredTextsFollowTheLocalCalendar)
{
    // A 23-hour day counts as one; São Paulo skipped midnight on 16 October 2016: that day begins at 01:00.
    const struct { const char *zone; QDateTime from, to; qint64 days; int firstHour; } counts[] = {
        {"UTC", at(2016, 9, 5, 23, 59), at(2016, 9, 6, 0, 1), 1, 0}, {"UTC", at(2016, 9, 6, 0, 1), at(2016, 9, 5, 23, 59), -1, 0},
        {"Europe/Berlin", at(2017, 3, 25, 23, 30), at(2017, 3, 27, 0, 10), 2, 0},
        {"America/Sao_Paulo", at(2016, 10, 15, 12), at(2016, 10, 16, 12), 1, 1}};
    for (const auto &row : counts) {
        const Zone zone(row.zone);
        EXPECT_EQ(D::daysCountBetweenDate(row.from, row.to), row.days) << row.zone;
        EXPECT_EQ(D::truncate(at(2016, 10, 16, 15)), at(2016, 10, 16, row.firstHour)) << row.zone;
    }
    // Berlin, so reading as UTC and as local time differ. The TZ form's Z is only a letter; 02:30 on a
    // spring-forward night moves past the gap, where the wall clock is kept when adding days.
    const Zone zone("Europe/Berlin");
    EXPECT_EQ(D::dateByAddingDays(at(2017, 3, 25, 12), 1), at(2017, 3, 26, 12));
    const struct { std::optional<QDateTime> (*parse)(const QString &); const char *text; qint64 utc; } rows[] = {
        {&D::dateFromDbString, "2016-9-5", at(2016, 9, 4, 22, 0, Qt::UTC).toMSecsSinceEpoch()}, {&D::dateFromDbString, "2016-13-01", -1},
        {&D::dateFromDbString, "2016-09-05 10:00", -1}, {&D::dateFromRFC1123, "So, 06 Nov. 1994 08:49:37 GMT", -1},
        {&D::dateFromRFC1123, "Sun, 06 Nov 1994 08:49:37 GMT", QDateTime(QDate(1994, 11, 6), QTime(8, 49, 37), Qt::UTC).toMSecsSinceEpoch()},
        {&D::dateFromTZ, "2016-09-05T10:00:00Z", at(2016, 9, 5, 8, 0, Qt::UTC).toMSecsSinceEpoch()},
        {&D::dateFromTZ, "2017-03-26T02:30:00Z", at(2017, 3, 26, 1, 30, Qt::UTC).toMSecsSinceEpoch()},
        {&D::dateFromUTCString, "2017-03-26 02:30:00", at(2017, 3, 26, 2, 30, Qt::UTC).toMSecsSinceEpoch()}};
    for (const auto &row : rows) {
        const std::optional<QDateTime> parsed = row.parse(QString::fromLatin1(row.text));
        EXPECT_EQ(parsed ? parsed->toMSecsSinceEpoch() : -1, row.utc) << row.text;
    }
}

} // namespace
