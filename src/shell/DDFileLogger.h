#pragma once

#include "shell/DDLogFileManagerDefault.h"
#include "shell/Logger.h"

#include <QByteArray>
#include <QDateTime>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// The file logger: appends "yyyy/MM/dd HH:mm:ss:SSS  <message>" lines to the
// current file of its file manager's folder and rolls files by size and age.
//
// The first write continues the newest log file when it is not archived,
// smaller than the maximum size and younger than the rolling period;
// otherwise that file is archived and a new one started. A file that reaches
// the maximum size after a write is archived and the next statement starts a
// new file; a timer archives the current file when it reaches the rolling
// age, even when nothing is being logged. A folder or file that cannot be
// written is skipped silently (the terminal still has every line).
class DDFileLogger : public LogSink
{
public:
    // The time source for file ages (tests move it forward).
    using Clock = std::function<QDateTime()>;

    explicit DDFileLogger(std::shared_ptr<DDLogFileManagerDefault> logFileManager, Clock clock = {});
    ~DDFileLogger() override;

    DDFileLogger(const DDFileLogger &) = delete;
    DDFileLogger &operator=(const DDFileLogger &) = delete;

    const std::shared_ptr<DDLogFileManagerDefault> &logFileManager() const { return m_logFileManager; }

    // Bytes after which a file is rolled (1 MiB); 0 disables size rolling.
    qint64 maximumFileSize() const;
    void setMaximumFileSize(qint64 bytes);
    // Age in seconds at which a file is rolled (24 hours); 0 disables it.
    double rollingFrequency() const;
    void setRollingFrequency(double seconds);

    void write(const LogMessage &message) override;

    // Archives the current file now; the next statement starts a new one.
    void rollLogFile();
    // The file being written; a null QString before the first write or after a roll.
    QString currentLogFilePath() const;

    // The line as written, newline included.
    static QByteArray formattedLine(const LogMessage &message);

private:
    bool openLogFileLocked();
    bool openForAppendLocked(const QString &path, const QDateTime &created);
    void closeLogFileLocked();
    void rollLogFileLocked();
    bool isTooOldLocked(const QDateTime &created) const;
    void scheduleRollLocked();
    void rollTimerLoop();

    const std::shared_ptr<DDLogFileManagerDefault> m_logFileManager;
    const Clock m_clock;

    mutable std::mutex m_mutex;
    qint64 m_maximumFileSize = 1024 * 1024;
    double m_rollingFrequency = 60 * 60 * 24;
    int m_fd = -1;         // the current file, appending
    QString m_filePath;    // its path
    QDateTime m_createdAt; // its creation, for the age rule
    qint64 m_fileSize = 0; // its size

    // The age timer: a thread that sleeps until the current file's deadline.
    std::condition_variable m_rollTimerWake;
    std::optional<std::chrono::system_clock::time_point> m_rollDeadline;
    bool m_stopping = false;
    std::thread m_rollTimer;
};
