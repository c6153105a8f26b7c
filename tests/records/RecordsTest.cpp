#include "records/DateUtilites.h"
#include "records/NumberUtilites.h"
#include "records/ResultsFile.h"
#include "shell/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <optional>

#include <sys/mount.h>
#include <sched.h>

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

// Every field of a record or settings record set to a value of its own, varied by n; the edge values
// (nil and "" strings, NaN, infinities, 64-bit extremes, an invalid date) come round in turn.
template <typename Record>
void fill(Record &record, std::span<const RecordField<Record>> fields, int n)
{
    for (size_t i = 0; i < fields.size(); ++i) {
        const int v = n * 37 + int(i), pick = v % 5;
        std::visit([&](auto member) {
            auto &value = record.*member;
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, QString>)
                value = pick == 0 ? QString() : pick == 1 ? u""_s : QStringLiteral("v%1 \"é,\n\t%2").arg(v).arg(QChar(0x1F30A));
            else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
                value = pick == 0 ? std::nan("") : pick == 1 ? -INFINITY : T(v) / T(3);
            else if constexpr (std::is_same_v<T, QDateTime>)
                value = pick == 0 ? QDateTime() : QDateTime::fromMSecsSinceEpoch(1'700'000'000'123LL + v, Qt::UTC);
            else if constexpr (std::is_same_v<T, QVariant>)
                value = pick == 0 ? QVariant() : QVariant(v * 1.5);
            else if constexpr (std::is_same_v<T, bool>)
                value = v % 2;
            else
                value = pick == 0 ? std::numeric_limits<T>::min() : pick == 1 ? std::numeric_limits<T>::max() : T(-v);
        }, fields[i].member);
    }
}

// The fields whose values differ, by name.
template <typename Record>
QStringList differences(const Record &a, const Record &b, std::span<const RecordField<Record>> fields)
{
    QStringList names;
    for (const RecordField<Record> &field : fields)
        names << (RecordFields::equal(a, b, field.member) ? QString() : QString(field.name));
    names.removeAll(QString());
    return names;
}

struct ResultsFileTest : ::testing::Test
{
    QTemporaryDir dir;
    SettingsStore store{dir.filePath(u"settings.ini"_s)};
    // Tests of 0, 1 and 40 intervals; the first has no final record, the others constant and varying columns.
    QList<SavedTest> tests()
    {
        QList<SavedTest> list;
        for (int t = 0; t < 3; ++t) {
            SavedTest saved{std::make_shared<PerfHelper>(store), {}};
            fill<PerfHelper>(*saved.test, ResultsFile::settingsFields(), t), saved.test->isTestRunning = 0; // what an opened test reads
            for (int r = 0; r < (t == 2 ? 40 : t); ++r) {
                saved.test->resultss.prepend(std::make_shared<PerfResult>());
                fill<PerfResult>(*saved.test->resultss.first(), ResultsFile::resultFields(), r % 7 == 0 ? 0 : r);
            }
            if (t)
                saved.extras.finalResult = std::make_shared<PerfResult>(), fill<PerfResult>(*saved.extras.finalResult, ResultsFile::resultFields(), t + 100);
            saved.extras.startDate = t ? QDateTime::fromMSecsSinceEpoch(1'763'884'800'042LL + t, Qt::UTC) : QDateTime();
            saved.extras.note = t == 1 ? u"2.4 GHz, kitchen,\r\n\"door\" shut"_s : QString();
            list << saved;
        }
        return list;
    }
};

TEST_F(ResultsFileTest, EveryFieldOfEveryRecordComesBackAsSavedAndTheFileSaysWhatWroteIt)
{
    const QList<SavedTest> saved = tests();
    const QString path = dir.filePath(u"a.tidewave.json"_s);
    ASSERT_EQ(ResultsFile::write(path, saved, u"Tidewave 1.0 (build 1)"_s), QString());
    const ResultsFile::ReadResult read = ResultsFile::read(path, store);
    ASSERT_EQ(read.error, QString());
    ASSERT_EQ(read.tests.size(), saved.size());
    for (qsizetype t = 0; t < saved.size(); ++t) {
        const SavedTest &a = saved.at(t), &b = read.tests.at(t);
        QStringList wrong = differences<PerfHelper>(*a.test, *b.test, ResultsFile::settingsFields());
        for (qsizetype r = 0; r < a.test->resultss.size() && r < b.test->resultss.size(); ++r)
            wrong << differences<PerfResult>(*a.test->resultss.at(r), *b.test->resultss.at(r), ResultsFile::resultFields());
        if (a.extras.finalResult && b.extras.finalResult)
            wrong << differences<PerfResult>(*a.extras.finalResult, *b.extras.finalResult, ResultsFile::resultFields());
        EXPECT_EQ(wrong, QStringList()) << "test " << t;
        EXPECT_TRUE(a.test->resultss.size() == b.test->resultss.size() && !a.extras.finalResult == !b.extras.finalResult);
        EXPECT_TRUE(a.extras.startDate == b.extras.startDate && a.extras.note == b.extras.note && a.extras.note.isNull() == (t != 1));
    }
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_EQ(QStringList({root["format"_L1].toString(), QString::number(root["version"_L1].toInt()), root["application"_L1].toString()}),
              QStringList({u"Tidewave results"_s, u"1"_s, u"Tidewave 1.0 (build 1)"_s}));
    EXPECT_EQ(ResultsFile::serialize(read.tests, u"Tidewave 1.0 (build 1)"_s).toStdString(), (file.seek(0), file.readAll()).toStdString());
}

TEST_F(ResultsFileTest, ABadFileOpensNothingAndSaysWhichFileAndWhatIsWrongInOneSentence)
{
    const QByteArray good = ResultsFile::serialize(tests(), u"Tidewave 1.0 (build 1)"_s);
    // Each edit changes the first place the text appears: in the first test, unless only a later one has it.
    const auto edited = [&](const char *from, const char *to) { return QByteArray(good).replace(good.indexOf(from), qsizetype(strlen(from)), to); };
    const struct { const char *name; QByteArray bytes; const char *says; } rows[] = {
        {"newer version", edited("\"version\":1", "\"version\":2"), "it was written by a newer Tidewave (format version 2; this version reads up to 1)"},
        {"version as text", edited("\"version\":1", "\"version\":\"1\""), "its format version is missing or not valid"},
        {"another program's JSON", R"({"name":"tidewave","version":"1.0.0"})", "it is not a Tidewave results file"},
        {"an array", "[1,2]", "it is not a Tidewave results file"},
        {"Latin-1 text", edited("kitchen", "k\xe9tchen"), "it is not UTF-8 text"},
        {"a port as text", edited("\"serverPort\":", "\"serverPort\":\"5201\",\"x\":"), "test 1 has a wrong value for \"serverPort\""},
        {"a fraction for an integer", edited("\"duration\":", "\"duration\":0.5,\"x\":"), "test 1 has a wrong value for \"duration\""},
        {"a rate as text", edited("\"sentBandwidth\":", "\"sentBandwidth\":\"fast\",\"x\":"), "test 1's intervals has a wrong value for \"sentBandwidth\""},
        {"a float beyond floats", edited("\"sentBytes\":", "\"sentBytes\":1e300,\"x\":"), "test 1's intervals has a wrong value for \"sentBytes\""},
        {"a column of another length", edited("\"intervalCount\":0", "\"intervalCount\":1"), "test 1's intervals holds 0 values of \"ip\" for 1 intervals"},
        {"start times as one value", edited("\"startTime\":[\"\"]", "\"startTime\":\"\""), "test 2's intervals has no list of \"startTime\""},
        {"more intervals than bytes", edited("\"intervalCount\":0", "\"intervalCount\":99999999"), "test 1 has a wrong interval count"},
        {"a date that is none", edited("\"startDate\":null", "\"startDate\":\"yesterday\""), "test 1 has a wrong start date"},
        {"a final record as a list", edited("\"final\":null", "\"final\":[]"), "test 1 has a wrong final record"},
        {"a flag in a final record", edited("\"final\":{\"OSXVersion\":", "\"final\":{\"OSXVersion\":true,\"x\":"), "test 2's final record has a wrong value for \"OSXVersion\""},
    };
    for (const auto &row : rows) {
        const ResultsFile::ReadResult read = ResultsFile::parse(row.bytes, u"/x/y/a.tidewave.json"_s, store);
        EXPECT_TRUE(read.tests.isEmpty()) << row.name;
        EXPECT_EQ(read.error.toStdString(), "Could not open \"a.tidewave.json\": " + std::string(row.says) + ".") << row.name;
    }
    for (qsizetype cut = 0; cut < good.size(); cut += 97) {
        const ResultsFile::ReadResult read = ResultsFile::parse(good.left(cut), u"a.tidewave.json"_s, store);
        ASSERT_TRUE(read.tests.isEmpty() && read.error.startsWith("Could not open \"a.tidewave.json\": it is cut short or damaged (")) << cut << " " << read.error.toStdString();
    }
    EXPECT_TRUE(ResultsFile::read(dir.filePath(u"none.tidewave.json"_s), store).error.endsWith(": it cannot be read (No such file or directory)."));
}

TEST_F(ResultsFileTest, ASaveThatCannotCompleteLeavesTheEarlierFileAsItWas)
{
    // A file system of 64 KiB in a mount namespace of this test's own, too small for a second copy.
    ASSERT_TRUE(::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
    ASSERT_EQ(::mount("tw", dir.path().toUtf8(), "tmpfs", 0, "size=64k"), 0);
    const std::unique_ptr<QTemporaryDir, void (*)(QTemporaryDir *)> unmount(&dir, [](QTemporaryDir *d) { ::umount2(d->path().toUtf8(), MNT_DETACH); });
    const QString path = dir.filePath(u"kept.tidewave.json"_s);
    QList<SavedTest> one = tests().mid(1, 1), many = tests();
    ASSERT_EQ(ResultsFile::write(path, one, u"T"_s), QString());
    for (int r = 0; r < 2000; ++r)
        many.last().test->resultss.prepend(std::make_shared<PerfResult>()), many.last().test->resultss.first()->sentBytes = float(r);
    EXPECT_EQ(ResultsFile::write(path, many, u"T"_s).toStdString(), "Could not save \"kept.tidewave.json\": No space left on device.");
    EXPECT_EQ(ResultsFile::read(path, store).tests.size(), 1);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).join(u' ').toStdString(), "kept.tidewave.json");
}

} // namespace
