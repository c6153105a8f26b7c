#pragma once

#include <QDateTime>
#include <QString>

#include <memory>
#include <mutex>
#include <vector>

// One log statement as the loggers see it.
struct LogMessage
{
    QString message;      // the text, already formatted by the caller
    QString file;         // source path relative to src/, without extension ("PerfHelper/PerfTest")
    QString function;     // function name of the call site
    int line = 0;         // line of the call site
    QDateTime timestamp;  // local time of the call
    quint64 threadId = 0; // id of the logging thread
};

// An installed logger (terminal, file, or a test's collector).
class LogSink
{
public:
    virtual ~LogSink() = default;
    virtual void write(const LogMessage &message) = 0;
};

// The central entry point: hands every statement, synchronously and whole, to
// each installed sink in installation order. Safe from any thread.
class Logger
{
public:
    static Logger &shared();

    void addSink(std::shared_ptr<LogSink> sink);
    void removeSink(const std::shared_ptr<LogSink> &sink);
    void removeAllSinks();

    void log(const char *sourcePath, const char *function, int line, const QString &message);

    // "…/src/PerfHelper/PerfTest.cpp" → "PerfHelper/PerfTest".
    static QString sourceNameFromPath(const char *sourcePath);

private:
    std::mutex m_mutex;
    std::vector<std::shared_ptr<LogSink>> m_sinks;
};

// Every log statement of the application goes through this one macro.
#define TW_LOG(message) ::Logger::shared().log(__FILE__, __func__, __LINE__, (message))
