#include "shell/DDLogFileManagerDefault.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {
// Enough draws that only an unwritable folder can exhaust them.
constexpr int kMaximumNameDraws = 100;
} // namespace

DDLogFileManagerDefault::DDLogFileManagerDefault(const QString &logsDirectory)
    : m_logsDirectory(QDir::cleanPath(logsDirectory))
{
}

int DDLogFileManagerDefault::maximumNumberOfLogFiles() const
{
    std::lock_guard lock(m_mutex);
    return m_maximumNumberOfLogFiles;
}

void DDLogFileManagerDefault::setMaximumNumberOfLogFiles(int count)
{
    std::lock_guard lock(m_mutex);
    m_maximumNumberOfLogFiles = std::max(0, count);
}

bool DDLogFileManagerDefault::isLogFile(const QString &fileName)
{
    if (!fileName.startsWith(QLatin1String("log-")) || fileName.size() < 10)
        return false;
    for (qsizetype i = 4; i < 10; ++i) {
        const QChar c = fileName.at(i);
        const bool hexDigit = (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || (c >= QLatin1Char('A') && c <= QLatin1Char('F'));
        if (!hexDigit)
            return false;
    }
    return true;
}

QString DDLogFileManagerDefault::newLogFileName() const
{
    const QString uuid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    return QStringLiteral("log-%1.txt").arg(uuid.left(6));
}

LogFileInfo DDLogFileManagerDefault::infoFor(const QString &filePath) const
{
    const QFileInfo file(filePath);
    LogFileInfo info;
    info.filePath = file.absoluteFilePath();
    info.fileName = file.fileName();
    info.creationDate = file.birthTime();
    if (!info.creationDate.isValid())
        info.creationDate = file.lastModified();
    info.fileSize = file.size();
    info.isArchived = isArchived(info.filePath);
    return info;
}

QList<LogFileInfo> DDLogFileManagerDefault::sortedLogFileInfos() const
{
    QList<LogFileInfo> infos;
    const QDir folder(m_logsDirectory);
    const QStringList names = folder.entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        if (isLogFile(name))
            infos.append(infoFor(folder.absoluteFilePath(name)));
    }
    // Birth times share a clock tick when files are made in quick
    // succession; the name keeps the order stable then.
    std::sort(infos.begin(), infos.end(), [](const LogFileInfo &a, const LogFileInfo &b) {
        if (a.creationDate != b.creationDate)
            return a.creationDate > b.creationDate;
        return a.fileName > b.fileName;
    });
    return infos;
}

QString DDLogFileManagerDefault::createNewLogFile()
{
    if (!QDir().mkpath(m_logsDirectory))
        return {};
    for (int draw = 0; draw < kMaximumNameDraws; ++draw) {
        const QString path = m_logsDirectory + QLatin1Char('/') + newLogFileName();
        const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ::close(fd);
            deleteOldLogFiles(path);
            return path;
        }
        if (errno != EEXIST)
            return {};
    }
    return {};
}

void DDLogFileManagerDefault::deleteOldLogFiles()
{
    deleteOldLogFiles(QString());
}

void DDLogFileManagerDefault::deleteOldLogFiles(const QString &newestFilePath)
{
    const int keep = maximumNumberOfLogFiles();
    if (keep <= 0)
        return;
    QList<LogFileInfo> infos = sortedLogFileInfos();
    // A file made a moment ago may share its birth tick with an older one;
    // it is the newest all the same and must never be pruned.
    const QString newest = QFileInfo(newestFilePath).absoluteFilePath();
    for (qsizetype i = 1; !newestFilePath.isEmpty() && i < infos.size(); ++i) {
        if (infos.at(i).filePath == newest) {
            infos.move(i, 0);
            break;
        }
    }
    qsizetype first = keep;
    if (!infos.isEmpty() && !infos.front().isArchived)
        ++first; // the file being written is not one of the kept archives
    for (qsizetype i = first; i < infos.size(); ++i) {
        QFile::remove(infos.at(i).filePath);
        std::lock_guard lock(m_mutex);
        m_archivedInMemory.remove(infos.at(i).filePath);
    }
}

bool DDLogFileManagerDefault::isArchived(const QString &filePath) const
{
    const QByteArray path = QFile::encodeName(filePath);
    if (::getxattr(path.constData(), kArchivedAttributeName, nullptr, 0) >= 0)
        return true;
    std::lock_guard lock(m_mutex);
    return m_archivedInMemory.contains(QFileInfo(filePath).absoluteFilePath());
}

void DDLogFileManagerDefault::markArchived(const QString &filePath)
{
    const QByteArray path = QFile::encodeName(filePath);
    if (::setxattr(path.constData(), kArchivedAttributeName, "", 0, 0) == 0)
        return;
    std::lock_guard lock(m_mutex);
    m_archivedInMemory.insert(QFileInfo(filePath).absoluteFilePath());
}
