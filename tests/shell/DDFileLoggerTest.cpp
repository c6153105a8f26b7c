#include "shell/DDFileLogger.h"

#include "LogFolderFixtures.h"
#include "common/TestEnvironment.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSet>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr qint64 kMiB = 1024 * 1024;

LogMessage message(const QString &text)
{
    LogMessage m;
    m.message = text;
    m.timestamp = QDateTime(QDate(2016, 9, 5), QTime(15, 4, 5, 7));
    return m;
}

QByteArray fileLine(const char *text)
{
    return QByteArray("2016/09/05 15:04:05:007  ") + text + '\n';
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList logFiles(const QString &folder)
{
    QStringList files;
    for (const QString &name : QDir(folder).entryList(QDir::Files, QDir::Name)) {
        if (DDLogFileManagerDefault::isLogFile(name))
            files << QDir(folder).filePath(name);
    }
    return files;
}

// A clock the test moves forward.
struct TestClock
{
    std::atomic<qint64> aheadMs{0};
    DDFileLogger::Clock clock()
    {
        return [this] { return QDateTime::currentDateTimeUtc().addMSecs(aheadMs.load()); };
    }
};

struct StartCase
{
    const char *name;
    bool newestArchived;
    qint64 newestSize;
    int clockAheadHours;
    bool continues;
};

void PrintTo(const StartCase &c, std::ostream *os)
{
    *os << c.name;
}

class StartTest : public ::testing::TestWithParam<StartCase>
{};

TEST_P(StartTest, ContinuesTheNewestFileOnlyWhenItIsOpenSmallAndYoung)
{
    const StartCase &c = GetParam();
    LogFolder folder;
    auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    // An older file that is not archived must never be the one continued.
    const QString older = folder.file(QStringLiteral("log-000000.txt"));
    const QDateTime olderBirth = createFileAfter(older, "older\n", {});
    const QString newest = folder.file(QStringLiteral("log-111111.txt"));
    const QByteArray earlier = QByteArray(c.newestSize - 1, 'x') + '\n';
    createFileAfter(newest, earlier, olderBirth);
    if (c.newestArchived)
        manager->markArchived(newest);

    TestClock clock;
    clock.aheadMs = qint64(c.clockAheadHours) * 3600 * 1000;
    DDFileLogger logger(manager, clock.clock());
    logger.write(message(QStringLiteral("first")));

    EXPECT_EQ(contents(older), QByteArray("older\n"));
    if (c.continues) {
        EXPECT_EQ(logger.currentLogFilePath(), newest);
        EXPECT_EQ(contents(newest), earlier + fileLine("first"));
        EXPECT_EQ(logFiles(folder.path()).size(), 2);
    } else {
        const QString created = logger.currentLogFilePath();
        ASSERT_FALSE(created.isNull());
        EXPECT_NE(created, newest);
        EXPECT_NE(created, older);
        EXPECT_EQ(contents(created), fileLine("first"));
        EXPECT_EQ(contents(newest), earlier);
        EXPECT_TRUE(manager->isArchived(newest));
        EXPECT_EQ(logFiles(folder.path()).size(), 3);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, StartTest,
                         ::testing::Values(StartCase{"OpenSmallYoung", false, 10, 0, true},
                                           StartCase{"Archived", true, 10, 0, false},
                                           StartCase{"RoomForOneMoreLine", false, kMiB - 64, 0, true},
                                           StartCase{"AtMaximumSize", false, kMiB, 0, false},
                                           StartCase{"YoungerThanADay", false, 10, 23, true},
                                           StartCase{"OlderThanADay", false, 10, 25, false}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(DDFileLoggerTest, FileThatReachesMaximumSizeIsArchivedAndTheNextLineStartsANewOne)
{
    LogFolder folder;
    auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    DDFileLogger logger(manager);
    logger.setMaximumFileSize(100); // each line is 51 bytes: the second one reaches it
    const char *texts[] = {"line number 0 of the test", "line number 1 of the test", "line number 2 of the test",
                           "line number 3 of the test", "line number 4 of the test"};
    logger.write(message(QString::fromLatin1(texts[0])));
    const QString first = logger.currentLogFilePath();
    ASSERT_FALSE(first.isNull());
    logger.write(message(QString::fromLatin1(texts[1])));
    EXPECT_TRUE(logger.currentLogFilePath().isNull()) << "rolled right after the write that reached the size";
    logger.write(message(QString::fromLatin1(texts[2])));
    const QString second = logger.currentLogFilePath();
    logger.write(message(QString::fromLatin1(texts[3])));
    logger.write(message(QString::fromLatin1(texts[4])));
    const QString third = logger.currentLogFilePath();

    const QStringList files = logFiles(folder.path());
    EXPECT_EQ(QSet<QString>(files.cbegin(), files.cend()), (QSet<QString>{first, second, third}));
    EXPECT_EQ(contents(first), fileLine(texts[0]) + fileLine(texts[1]));
    EXPECT_EQ(contents(second), fileLine(texts[2]) + fileLine(texts[3]));
    EXPECT_EQ(contents(third), fileLine(texts[4]));
    EXPECT_TRUE(manager->isArchived(first));
    EXPECT_TRUE(manager->isArchived(second));
    EXPECT_FALSE(manager->isArchived(third));
}

TEST(DDFileLoggerTest, FileOlderThanTheRollingPeriodIsRolledBeforeTheNextLine)
{
    LogFolder folder;
    auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    TestClock clock;
    DDFileLogger logger(manager, clock.clock());
    logger.write(message(QStringLiteral("a")));
    const QString first = logger.currentLogFilePath();

    clock.aheadMs = (24 * 3600 - 60) * 1000LL;
    logger.write(message(QStringLiteral("b")));
    EXPECT_EQ(logger.currentLogFilePath(), first);

    clock.aheadMs = 24 * 3600 * 1000LL;
    logger.write(message(QStringLiteral("c")));
    EXPECT_NE(logger.currentLogFilePath(), first);
    EXPECT_TRUE(manager->isArchived(first));
    EXPECT_EQ(contents(first), fileLine("a") + fileLine("b"));
    EXPECT_EQ(contents(logger.currentLogFilePath()), fileLine("c"));
}

TEST(DDFileLoggerTest, TimerArchivesTheFileAtItsRollingAgeWithoutFurtherLines)
{
    LogFolder folder;
    auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    DDFileLogger logger(manager);
    logger.setRollingFrequency(0.3);
    logger.write(message(QStringLiteral("a")));
    const QString first = logger.currentLogFilePath();
    ASSERT_FALSE(first.isNull());

    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return manager->isArchived(first); }, 5s));
    EXPECT_TRUE(logger.currentLogFilePath().isNull());
    EXPECT_EQ(logFiles(folder.path()).size(), 1) << "a roll must not create a file before a line needs it";

    logger.write(message(QStringLiteral("b")));
    EXPECT_NE(logger.currentLogFilePath(), first);
    EXPECT_EQ(logFiles(folder.path()).size(), 2);
}

class SevenArchivedTest : public ::testing::TestWithParam<LogFolder::Kind>
{};

TEST_P(SevenArchivedTest, RollKeepsSevenArchivedFilesAndTheNewCurrentOne)
{
    LogFolder folder(GetParam());
    if (!folder.isReady())
        GTEST_SKIP() << "this machine cannot mount a ramfs (a file system without user extended attributes)";
    auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    manager->setMaximumNumberOfLogFiles(7);
    QStringList archived; // oldest first
    QDateTime last;
    for (int i = 0; i < 7; ++i) {
        archived << folder.file(QStringLiteral("log-00000%1.txt").arg(i));
        last = createFileAfter(archived.back(), "old\n", last);
        manager->markArchived(archived.back());
    }
    const QString current = folder.file(QStringLiteral("log-CCCCCC.txt"));
    createFileAfter(current, "current\n", last);

    DDFileLogger logger(manager);
    // The next line fills the current file, which rolls.
    logger.setMaximumFileSize(8 + fileLine("fills it").size());
    logger.write(message(QStringLiteral("fills it")));
    EXPECT_TRUE(logger.currentLogFilePath().isNull());
    logger.write(message(QStringLiteral("starts the next")));

    const QString next = logger.currentLogFilePath();
    const QStringList files = logFiles(folder.path());
    EXPECT_EQ(files.size(), 8);
    EXPECT_FALSE(files.contains(archived.front())) << "the oldest archived file is deleted";
    for (int i = 1; i < 7; ++i)
        EXPECT_TRUE(files.contains(archived[i])) << i;
    EXPECT_TRUE(files.contains(current));
    EXPECT_TRUE(manager->isArchived(current));
    EXPECT_EQ(contents(current), QByteArray("current\n") + fileLine("fills it"));
    ASSERT_TRUE(files.contains(next));
    EXPECT_FALSE(manager->isArchived(next));
    EXPECT_EQ(contents(next), fileLine("starts the next"));
}

INSTANTIATE_TEST_SUITE_P(FileSystems, SevenArchivedTest,
                         ::testing::Values(LogFolder::Kind::Disk, LogFolder::Kind::NoExtendedAttributes),
                         [](const auto &info) {
                             return std::string(info.param == LogFolder::Kind::Disk ? "Disk" : "NoExtendedAttributes");
                         });

TEST(DDFileLoggerTest, ReadOnlyFolderIsSkippedSilently)
{
    LogFolder folder(LogFolder::Kind::ReadOnly);
    if (!folder.isReady())
        GTEST_SKIP() << "this machine cannot mount a read-only ramfs";
    DDFileLogger logger(std::make_shared<DDLogFileManagerDefault>(folder.path()));
    logger.write(message(QStringLiteral("nowhere to go")));
    EXPECT_TRUE(logger.currentLogFilePath().isNull());
    EXPECT_TRUE(QDir(folder.path()).entryList(QDir::Files).isEmpty());
}

TEST(DDFileLoggerTest, LinesFromManyThreadsStayWholeAcrossRolls)
{
    LogFolder folder;
    auto manager = std::make_shared<DDLogFileManagerDefault>(folder.path());
    manager->setMaximumNumberOfLogFiles(0); // keep every file, to count every line
    auto fileLogger = std::make_shared<DDFileLogger>(manager);
    fileLogger->setMaximumFileSize(16 * 1024);
    Logger::shared().addSink(fileLogger);

    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int n = 0; n < kLines; ++n)
                TW_LOG(QStringLiteral("thread %1 line %2 %3").arg(t).arg(n).arg(QString(40, QLatin1Char('x'))));
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    Logger::shared().removeSink(fileLogger);

    const QRegularExpression fileFormat(
        QStringLiteral("^\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3}  thread (\\d) line (\\d+) x{40}$"));
    QSet<QString> seen;
    const QStringList files = logFiles(folder.path());
    EXPECT_GT(files.size(), 2);
    for (const QString &path : files) {
        for (const QByteArray &line : contents(path).split('\n')) {
            if (line.isEmpty())
                continue;
            const auto match = fileFormat.match(QString::fromUtf8(line));
            ASSERT_TRUE(match.hasMatch()) << line.toStdString();
            seen.insert(match.captured(1) + QLatin1Char('/') + match.captured(2));
        }
    }
    EXPECT_EQ(seen.size(), kThreads * kLines);
}

} // namespace
