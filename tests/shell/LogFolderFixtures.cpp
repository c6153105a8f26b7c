#include "LogFolderFixtures.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

LogFolder::LogFolder(Kind kind)
{
    if (!m_dir.isValid())
        return;
    if (kind == Kind::Disk) {
        m_ready = true;
        return;
    }
    const QByteArray target = QFile::encodeName(m_dir.path());
    const unsigned long flags = kind == Kind::ReadOnly ? MS_RDONLY : 0;
    m_mounted = ::mount("tidewave-test", target.constData(), "ramfs", flags, "mode=0755") == 0;
    m_ready = m_mounted;
}

LogFolder::~LogFolder()
{
    if (m_mounted)
        ::umount2(QFile::encodeName(m_dir.path()).constData(), MNT_DETACH);
}

void PrintTo(LogFolder::Kind kind, std::ostream *os)
{
    switch (kind) {
    case LogFolder::Kind::Disk:
        *os << "Disk";
        break;
    case LogFolder::Kind::NoExtendedAttributes:
        *os << "NoExtendedAttributes";
        break;
    case LogFolder::Kind::ReadOnly:
        *os << "ReadOnly";
        break;
    }
}

QDateTime createFileAfter(const QString &path, const QByteArray &content, const QDateTime &after)
{
    const QDeadlineTimer deadline(2000);
    for (;;) {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return {};
        file.write(content);
        const QDateTime birth = QFileInfo(path).birthTime();
        if (!birth.isValid()) {
            const QDateTime stamp = after.isValid() ? after.addSecs(1) : QDateTime::currentDateTime().addSecs(-3600);
            file.setFileTime(stamp, QFileDevice::FileModificationTime);
            return stamp;
        }
        file.close();
        if (!after.isValid() || birth > after || deadline.hasExpired())
            return birth;
        QFile::remove(path); // same clock tick as the previous file: draw again
    }
}

StandardErrorCapture::StandardErrorCapture()
{
    std::fflush(stderr);
    const int fd = ::open(QFile::encodeName(m_dir.filePath(QStringLiteral("stderr"))).constData(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    m_savedFd = ::dup(STDERR_FILENO);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);
}

StandardErrorCapture::~StandardErrorCapture()
{
    if (m_savedFd >= 0) {
        std::fflush(stderr);
        ::dup2(m_savedFd, STDERR_FILENO);
        ::close(m_savedFd);
    }
}

QByteArray StandardErrorCapture::text() const
{
    QFile file(m_dir.filePath(QStringLiteral("stderr")));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
