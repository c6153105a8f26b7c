#include "shell/DDFileLogger.h"

#include <QFile>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool writeAll(int fd, const QByteArray &bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n > 0)
            done += n;
        else if (n < 0 && errno == EINTR)
            continue;
        else
            return false;
    }
    return true;
}

} // namespace

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManagerDefault> logFileManager, Clock clock)
    : m_logFileManager(std::move(logFileManager))
    , m_clock(clock ? std::move(clock) : Clock([] { return QDateTime::currentDateTimeUtc(); }))
{
}

DDFileLogger::~DDFileLogger()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        closeLogFileLocked();
    }
    m_rollTimerWake.notify_all();
    if (m_rollTimer.joinable())
        m_rollTimer.join();
}

qint64 DDFileLogger::maximumFileSize() const
{
    std::lock_guard lock(m_mutex);
    return m_maximumFileSize;
}

void DDFileLogger::setMaximumFileSize(qint64 bytes)
{
    std::lock_guard lock(m_mutex);
    m_maximumFileSize = std::max<qint64>(0, bytes);
}

double DDFileLogger::rollingFrequency() const
{
    std::lock_guard lock(m_mutex);
    return m_rollingFrequency;
}

void DDFileLogger::setRollingFrequency(double seconds)
{
    std::lock_guard lock(m_mutex);
    m_rollingFrequency = std::max(0.0, seconds);
    if (m_fd >= 0)
        scheduleRollLocked();
}

QString DDFileLogger::currentLogFilePath() const
{
    std::lock_guard lock(m_mutex);
    return m_filePath;
}

QByteArray DDFileLogger::formattedLine(const LogMessage &message)
{
    const QDate date = message.timestamp.date();
    const QTime time = message.timestamp.time();
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%04d/%02d/%02d %02d:%02d:%02d:%03d  ", date.year(), date.month(), date.day(),
                  time.hour(), time.minute(), time.second(), time.msec());
    return QByteArray(stamp) + message.message.toUtf8() + '\n';
}

void DDFileLogger::write(const LogMessage &message)
{
    const QByteArray line = formattedLine(message);
    std::lock_guard lock(m_mutex);
    // The timer may be late (a suspended machine); the age rule still holds.
    if (m_fd >= 0 && isTooOldLocked(m_createdAt))
        rollLogFileLocked();
    if (m_fd < 0 && !openLogFileLocked())
        return;
    if (!writeAll(m_fd, line)) {
        // Try again with the next statement (a full disk may free up).
        closeLogFileLocked();
        return;
    }
    m_fileSize += line.size();
    if (m_maximumFileSize > 0 && m_fileSize >= m_maximumFileSize)
        rollLogFileLocked();
}

void DDFileLogger::rollLogFile()
{
    std::lock_guard lock(m_mutex);
    rollLogFileLocked();
}

bool DDFileLogger::isTooOldLocked(const QDateTime &created) const
{
    if (m_rollingFrequency <= 0 || !created.isValid())
        return false;
    return static_cast<double>(created.msecsTo(m_clock())) >= m_rollingFrequency * 1000.0;
}

bool DDFileLogger::openLogFileLocked()
{
    const QList<LogFileInfo> infos = m_logFileManager->sortedLogFileInfos();
    if (!infos.isEmpty()) {
        const LogFileInfo &newest = infos.front();
        const bool fits = m_maximumFileSize <= 0 || newest.fileSize < m_maximumFileSize;
        if (!newest.isArchived && fits && !isTooOldLocked(newest.creationDate)
            && openForAppendLocked(newest.filePath, newest.creationDate))
            return true;
        if (!newest.isArchived)
            m_logFileManager->markArchived(newest.filePath);
    }
    const QString path = m_logFileManager->createNewLogFile();
    return !path.isNull() && openForAppendLocked(path, m_clock());
}

bool DDFileLogger::openForAppendLocked(const QString &path, const QDateTime &created)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status = {};
    m_fileSize = ::fstat(fd, &status) == 0 ? static_cast<qint64>(status.st_size) : 0;
    m_fd = fd;
    m_filePath = path;
    m_createdAt = created;
    scheduleRollLocked();
    return true;
}

void DDFileLogger::closeLogFileLocked()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
    m_filePath.clear();
    m_createdAt = QDateTime();
    m_fileSize = 0;
    m_rollDeadline.reset();
}

void DDFileLogger::rollLogFileLocked()
{
    if (m_fd < 0)
        return;
    const QString path = m_filePath;
    closeLogFileLocked();
    m_logFileManager->markArchived(path);
}

void DDFileLogger::scheduleRollLocked()
{
    m_rollDeadline.reset();
    if (m_rollingFrequency <= 0 || !m_createdAt.isValid())
        return;
    const double remainingMs = m_rollingFrequency * 1000.0 - static_cast<double>(m_createdAt.msecsTo(m_clock()));
    m_rollDeadline = std::chrono::system_clock::now()
        + std::chrono::milliseconds(static_cast<qint64>(std::max(0.0, remainingMs)));
    if (!m_rollTimer.joinable())
        m_rollTimer = std::thread([this] { rollTimerLoop(); });
    m_rollTimerWake.notify_all();
}

void DDFileLogger::rollTimerLoop()
{
    // Wall-clock deadlines, so time spent suspended counts toward the age.
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        if (!m_rollDeadline) {
            m_rollTimerWake.wait(lock);
            continue;
        }
        const auto deadline = *m_rollDeadline;
        m_rollTimerWake.wait_until(lock, deadline);
        if (!m_stopping && m_rollDeadline == deadline && std::chrono::system_clock::now() >= deadline)
            rollLogFileLocked();
    }
}
