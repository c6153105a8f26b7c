#include "shell/DDTTYLogger.h"

#include <cerrno>
#include <cstdio>

DDTTYLogger::DDTTYLogger(int fd)
    : m_fd(fd)
{
}

std::shared_ptr<DDTTYLogger> DDTTYLogger::sharedInstance()
{
    static const auto instance = std::make_shared<DDTTYLogger>(STDERR_FILENO);
    return instance;
}

QByteArray DDTTYLogger::formattedLine(const LogMessage &message)
{
    const QDate date = message.timestamp.date();
    const QTime time = message.timestamp.time();
    char prefix[160];
    // The full executable name, not the kernel's 15-character comm.
    std::snprintf(prefix, sizeof prefix, "%04d-%02d-%02d %02d:%02d:%02d:%03d %s[%d:%llx] ", date.year(), date.month(),
                  date.day(), time.hour(), time.minute(), time.second(), time.msec(), program_invocation_short_name,
                  static_cast<int>(::getpid()), static_cast<unsigned long long>(message.threadId));
    return QByteArray(prefix) + message.message.toUtf8() + '\n';
}

void DDTTYLogger::write(const LogMessage &message)
{
    // One write() per line where the terminal takes it whole, so lines from
    // other processes on the same terminal do not cut into ours.
    const QByteArray line = formattedLine(message);
    qsizetype done = 0;
    while (done < line.size()) {
        const ssize_t n = ::write(m_fd, line.constData() + done, static_cast<size_t>(line.size() - done));
        if (n > 0)
            done += n;
        else if (n < 0 && errno == EINTR)
            continue;
        else
            return;
    }
}
