#include "shell/DDLogFileManagerDefault.h"

#include "LogFolderFixtures.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace {

struct NameCase
{
    const char *name;
    const char *fileName;
    bool isLog;
};

void PrintTo(const NameCase &c, std::ostream *os)
{
    *os << c.fileName;
}

class LogFileNameTest : public ::testing::TestWithParam<NameCase>
{};

TEST_P(LogFileNameTest, CountsAsLogFileOnlyWithSixUpperCaseHexCharacters)
{
    EXPECT_EQ(DDLogFileManagerDefault::isLogFile(QString::fromLatin1(GetParam().fileName)), GetParam().isLog);
}

INSTANTIATE_TEST_SUITE_P(Table, LogFileNameTest,
                         ::testing::Values(NameCase{"UpperCaseHex", "log-ABC123.txt", true},
                                           NameCase{"LowerCaseHex", "log-abc123.txt", false},
                                           NameCase{"TooShort", "log-AB.txt", false},
                                           NameCase{"ExactlyTenCharacters", "log-ABC123", true},
                                           NameCase{"NineCharacters", "log-ABC12", false},
                                           NameCase{"DotWithinTheSix", "log-ABC12.txt", false},
                                           NameCase{"LongerHexRun", "log-ABCDEF0123.txt", true},
                                           NameCase{"NotHexLetter", "log-ABG123.txt", false},
                                           NameCase{"CapitalPrefix", "Log-ABC123.txt", false},
                                           NameCase{"PrefixNotAtStart", "xlog-ABC123.txt", false},
                                           NameCase{"OtherExtension", "log-ABC123.log", true}),
                         [](const auto &info) { return std::string(info.param.name); });

// Draws names from a script instead of UUIDs.
class ScriptedNames : public DDLogFileManagerDefault
{
public:
    ScriptedNames(const QString &folder, QStringList names)
        : DDLogFileManagerDefault(folder)
        , m_names(std::move(names))
    {
    }

protected:
    QString newLogFileName() const override { return m_names.isEmpty() ? QString() : m_names.takeFirst(); }

private:
    mutable QStringList m_names;
};

TEST(DDLogFileManagerDefaultTest, NewFileNameIsSixUpperCaseHexCharactersOfAUuid)
{
    LogFolder folder;
    DDLogFileManagerDefault manager(folder.path() + QStringLiteral("/created/on/demand"));
    const QString path = manager.createNewLogFile();
    ASSERT_FALSE(path.isNull());
    const QString name = QFileInfo(path).fileName();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^log-[0-9A-F]{6}\\.txt$")).match(name).hasMatch()) << name.toStdString();
    EXPECT_TRUE(DDLogFileManagerDefault::isLogFile(name));
    EXPECT_EQ(QFileInfo(path).size(), 0);
}

TEST(DDLogFileManagerDefaultTest, NameAlreadyPresentIsDrawnAgainAndLeftAlone)
{
    LogFolder folder;
    createFileAfter(folder.file(QStringLiteral("log-AAAAAA.txt")), "earlier run\n", {});
    ScriptedNames manager(folder.path(), {QStringLiteral("log-AAAAAA.txt"), QStringLiteral("log-BBBBBB.txt")});

    EXPECT_EQ(manager.createNewLogFile(), folder.file(QStringLiteral("log-BBBBBB.txt")));
    QFile existing(folder.file(QStringLiteral("log-AAAAAA.txt")));
    ASSERT_TRUE(existing.open(QIODevice::ReadOnly));
    EXPECT_EQ(existing.readAll(), QByteArray("earlier run\n"));
}

struct PruneCase
{
    const char *name;
    int archivedFiles;
    bool newestIsCurrent; // the newest file is not archived
    int keep;
    int expectedRemaining;
};

void PrintTo(const PruneCase &c, std::ostream *os)
{
    *os << c.name;
}

class PruneTest : public ::testing::TestWithParam<PruneCase>
{};

TEST_P(PruneTest, KeepsTheNewestArchivedFilesBesidesTheCurrentOne)
{
    const PruneCase &c = GetParam();
    LogFolder folder;
    DDLogFileManagerDefault manager(folder.path());
    manager.setMaximumNumberOfLogFiles(c.keep);
    // Not a log file by its name, and the oldest: never pruned.
    const QString notALog = folder.file(QStringLiteral("log-abcdef.txt"));
    QDateTime last = createFileAfter(notALog, "x", {});
    QStringList oldestFirst;
    for (int i = 0; i < c.archivedFiles + (c.newestIsCurrent ? 1 : 0); ++i) {
        const QString path = folder.file(QStringLiteral("log-%1.txt").arg(i, 6, 10, QLatin1Char('0')));
        last = createFileAfter(path, "x", last);
        if (i < c.archivedFiles)
            manager.markArchived(path);
        oldestFirst << path;
    }

    manager.deleteOldLogFiles();

    EXPECT_TRUE(QFile::exists(notALog));
    const QStringList survivors = QDir(folder.path()).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(survivors.size(), c.expectedRemaining + 1);
    // The survivors are the newest ones.
    for (qsizetype i = 0; i < oldestFirst.size(); ++i)
        EXPECT_EQ(QFile::exists(oldestFirst[i]), i >= oldestFirst.size() - c.expectedRemaining) << i;
}

INSTANTIATE_TEST_SUITE_P(Table, PruneTest,
                         ::testing::Values(PruneCase{"CurrentNotCounted", 8, true, 7, 8},
                                           PruneCase{"NoCurrentFile", 8, false, 7, 7},
                                           PruneCase{"UnderTheLimit", 3, true, 7, 4},
                                           PruneCase{"ZeroKeepsAll", 9, true, 0, 10},
                                           PruneCase{"KeepOne", 3, true, 1, 2}),
                         [](const auto &info) { return std::string(info.param.name); });

class ArchivedMarkTest : public ::testing::TestWithParam<LogFolder::Kind>
{};

TEST_P(ArchivedMarkTest, IsTheUserAttributeOrKeptInMemory)
{
    LogFolder folder(GetParam());
    if (!folder.isReady())
        GTEST_SKIP() << "this machine cannot mount a ramfs (a file system without user extended attributes)";
    const QString path = folder.file(QStringLiteral("log-123456.txt"));
    createFileAfter(path, "x", {});
    DDLogFileManagerDefault manager(folder.path());
    EXPECT_FALSE(manager.isArchived(path));
    manager.markArchived(path);
    EXPECT_TRUE(manager.isArchived(path));
    // A later run sees the mark only where the attribute could be set.
    EXPECT_EQ(DDLogFileManagerDefault(folder.path()).isArchived(path), GetParam() == LogFolder::Kind::Disk);
}

INSTANTIATE_TEST_SUITE_P(FileSystems, ArchivedMarkTest,
                         ::testing::Values(LogFolder::Kind::Disk, LogFolder::Kind::NoExtendedAttributes),
                         [](const auto &info) {
                             return std::string(info.param == LogFolder::Kind::Disk ? "Disk" : "NoExtendedAttributes");
                         });

} // namespace
