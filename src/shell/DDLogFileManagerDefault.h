#pragma once

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>

#include <mutex>

// What the file manager knows of one log file.
struct LogFileInfo
{
    QString filePath;     // absolute path
    QString fileName;     // "log-XXXXXX.txt"
    QDateTime creationDate; // birth time, or the modification time where the file system has none
    qint64 fileSize = 0;  // bytes
    bool isArchived = false; // closed for good; never written again
};

// The folder of rolling log files: naming, listing, the archived mark and
// pruning. Safe to use from any thread.
//
// The archived mark is the extended attribute "user.lumberjack.log.archived"
// (Linux only accepts user attributes under "user."). Where the file system
// refuses user attributes (ramfs, some network and FAT mounts) the mark is
// kept in memory for this process. That is enough for correct rolling and
// pruning: a file is only ever archived when it is full, too old, or replaced
// by a newer one, so after a restart the size and age rules and the "newest
// file only" rule reach the same decisions without the mark.
class DDLogFileManagerDefault
{
public:
    explicit DDLogFileManagerDefault(const QString &logsDirectory);
    virtual ~DDLogFileManagerDefault() = default;

    DDLogFileManagerDefault(const DDLogFileManagerDefault &) = delete;
    DDLogFileManagerDefault &operator=(const DDLogFileManagerDefault &) = delete;

    QString logsDirectory() const { return m_logsDirectory; }

    // Archived files kept besides the one being written; 0 keeps all.
    int maximumNumberOfLogFiles() const;
    void setMaximumNumberOfLogFiles(int count);

    // "log-" + at least 6 more characters, the 5th to 10th all in "0123456789ABCDEF".
    static bool isLogFile(const QString &fileName);

    // The log files of the folder, newest first.
    QList<LogFileInfo> sortedLogFileInfos() const;

    // Creates an empty log file under a fresh name (the folder too, when
    // missing), then deletes the files beyond the limit. The path, or a null
    // QString when the folder cannot be written.
    QString createNewLogFile();

    // Deletes every archived file beyond the newest maximumNumberOfLogFiles(),
    // not counting the newest file when it is the one being written.
    void deleteOldLogFiles();

    bool isArchived(const QString &filePath) const;
    void markArchived(const QString &filePath);

    static constexpr const char *kArchivedAttributeName = "user.lumberjack.log.archived";

protected:
    // One draw of a file name: "log-" + the first 6 characters of a new
    // UUID in upper case + ".txt".
    virtual QString newLogFileName() const;

private:
    LogFileInfo infoFor(const QString &filePath) const;
    void deleteOldLogFiles(const QString &newestFilePath);

    const QString m_logsDirectory;
    mutable std::mutex m_mutex;
    int m_maximumNumberOfLogFiles = 5;
    QSet<QString> m_archivedInMemory; // archived files whose file system refused the attribute
};
