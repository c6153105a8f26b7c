#include "shell/Logger.h"

#include "shell/PlainText.h"

#include <QThread>

#include <algorithm>

#include <sys/syscall.h>
#include <unistd.h>

Logger &Logger::shared()
{
    static Logger logger;
    return logger;
}

void Logger::addSink(std::shared_ptr<LogSink> sink)
{
    std::lock_guard lock(m_mutex);
    m_sinks.push_back(std::move(sink));
}

void Logger::removeSink(const std::shared_ptr<LogSink> &sink)
{
    std::lock_guard lock(m_mutex);
    m_sinks.erase(std::remove(m_sinks.begin(), m_sinks.end(), sink), m_sinks.end());
}

void Logger::removeAllSinks()
{
    std::lock_guard lock(m_mutex);
    m_sinks.clear();
}

void Logger::log(const char *sourcePath, const char *function, int line, const QString &message)
{
    LogMessage entry;
    // One statement, one line: text from peers and tools cannot add lines.
    entry.message = PlainText::escapedControls(message);
    entry.file = sourceNameFromPath(sourcePath);
    entry.function = QString::fromUtf8(function);
    entry.line = line;
    entry.timestamp = QDateTime::currentDateTime();
    entry.threadId = static_cast<quint64>(::syscall(SYS_gettid));

    // One lock around all sinks: a statement is complete in every logger
    // before the next one starts, so lines never interleave.
    std::lock_guard lock(m_mutex);
    for (const auto &sink : m_sinks)
        sink->write(entry);
}

QString Logger::sourceNameFromPath(const char *sourcePath)
{
    QString path = QString::fromUtf8(sourcePath);
    const QString root = QStringLiteral(TIDEWAVE_SOURCE_ROOT);
    if (path.startsWith(root)) {
        path = path.mid(root.size());
    } else {
        const qsizetype src = path.lastIndexOf(QLatin1String("/src/"));
        if (src >= 0)
            path = path.mid(src + 5);
    }
    const qsizetype dot = path.lastIndexOf(QLatin1Char('.'));
    if (dot > path.lastIndexOf(QLatin1Char('/')))
        path.truncate(dot);
    return path;
}
