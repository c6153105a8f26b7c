#pragma once

#include "shell/Logger.h"

#include <QByteArray>

#include <memory>

#include <unistd.h>

// The terminal logger: one line per statement on standard error,
// "yyyy-MM-dd HH:mm:ss:SSS <process>[<pid>:<thread id in hex>] <message>",
// without colours.
class DDTTYLogger : public LogSink
{
public:
    // The process-wide instance on standard error.
    static std::shared_ptr<DDTTYLogger> sharedInstance();

    // A logger on another descriptor (tests); the descriptor stays the caller's.
    explicit DDTTYLogger(int fd = STDERR_FILENO);

    void write(const LogMessage &message) override;

    // The line as written, newline included.
    static QByteArray formattedLine(const LogMessage &message);

private:
    const int m_fd;
};
