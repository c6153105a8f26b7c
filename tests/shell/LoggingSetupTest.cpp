#include "shell/LoggingSetup.h"

#include "shell/DDTTYLogger.h"

#include "LogFolderFixtures.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <unistd.h>

namespace {

QString processName()
{
    return QFileInfo(QCoreApplication::applicationFilePath()).fileName();
}

QStringList logFileNames(const QString &folder)
{
    QStringList names = QDir(folder).entryList(QDir::Files, QDir::Name);
    names.removeIf([](const QString &name) { return !DDLogFileManagerDefault::isLogFile(name); });
    return names;
}

// Leaves the shared logger without sinks whatever the test did.
struct SinkReset
{
    ~SinkReset() { Logger::shared().removeAllSinks(); }
};

TEST(LoggingSetupTest, TerminalLineHasTimeProcessPidAndHexThreadId)
{
    LogMessage m;
    m.message = QStringLiteral("PerfTest: héllo");
    m.timestamp = QDateTime(QDate(2016, 9, 5), QTime(15, 4, 5, 7));
    m.threadId = 0x1a2b;
    const QString expected = QStringLiteral("2016-09-05 15:04:05:007 %1[%2:1a2b] PerfTest: héllo\n")
                                 .arg(processName())
                                 .arg(::getpid());
    EXPECT_EQ(DDTTYLogger::formattedLine(m), expected.toUtf8());
}

TEST(LoggingSetupTest, StatementReachesTerminalAndFileInTheirFormats)
{
    SinkReset reset;
    LogFolder folder;
    StandardErrorCapture terminal;
    LoggingSetup::setupLogging(folder.path());
    // A second call replaces the loggers rather than adding more.
    LoggingSetup::setupLogging(folder.path());
    TW_LOG(QStringLiteral("LoggingSetupTest: hello"));
    Logger::shared().removeAllSinks();

    const QRegularExpression terminalLine(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3} %1\\[%2:[0-9a-f]+\\] "
                                                         "LoggingSetupTest: hello\\n$")
                                              .arg(QRegularExpression::escape(processName()))
                                              .arg(::getpid()));
    EXPECT_TRUE(terminalLine.match(QString::fromUtf8(terminal.text())).hasMatch()) << terminal.text().toStdString();

    const QStringList files = logFileNames(folder.path());
    ASSERT_EQ(files.size(), 1);
    QFile file(QDir(folder.path()).filePath(files.front()));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QRegularExpression fileLine(
        QStringLiteral("^\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3}  LoggingSetupTest: hello\\n$"));
    const QByteArray written = file.readAll();
    EXPECT_TRUE(fileLine.match(QString::fromUtf8(written)).hasMatch()) << written.toStdString();
}

TEST(LoggingSetupTest, KeepsSevenArchivedFiles)
{
    SinkReset reset;
    LogFolder folder;
    QDateTime last;
    for (int i = 0; i < 9; ++i) {
        const QString path = QDir(folder.path()).filePath(QStringLiteral("log-%1.txt").arg(i, 6, 10, QLatin1Char('0')));
        last = createFileAfter(path, "old\n", last);
        DDLogFileManagerDefault(folder.path()).markArchived(path);
    }
    StandardErrorCapture terminal;
    LoggingSetup::setupLogging(folder.path());
    TW_LOG(QStringLiteral("LoggingSetupTest: new file"));
    Logger::shared().removeAllSinks();

    const QStringList files = logFileNames(folder.path());
    EXPECT_EQ(files.size(), 8);
    EXPECT_FALSE(files.contains(QStringLiteral("log-000000.txt")));
    EXPECT_FALSE(files.contains(QStringLiteral("log-000001.txt")));
}

TEST(LoggingSetupTest, UnwritableFolderLeavesTerminalOutput)
{
    SinkReset reset;
    LogFolder folder;
    QFile plain(QDir(folder.path()).filePath(QStringLiteral("plain")));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    StandardErrorCapture terminal;
    LoggingSetup::setupLogging(plain.fileName() + QStringLiteral("/logs"));
    TW_LOG(QStringLiteral("LoggingSetupTest: terminal only"));
    Logger::shared().removeAllSinks();
    EXPECT_TRUE(terminal.text().endsWith("] LoggingSetupTest: terminal only\n")) << terminal.text().toStdString();
}

TEST(LoggingSetupTest, StartBannerLines)
{
    const QStringList lines = LoggingSetup::startBannerLines(QStringLiteral("1.0"), QStringLiteral("7"),
                                                             QStringLiteral("6.1"));
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^-{10,}$")).match(lines[0]).hasMatch());
    EXPECT_EQ(lines[1], QStringLiteral("Starting Mac Tidewave Version 1.0.7"));
    EXPECT_EQ(lines[2], QStringLiteral("OS Version 6.1"));
}

} // namespace
