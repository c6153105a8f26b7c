#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QString>

#include <chrono>

// A command run the way the application runs the tool: "/bin/sh" "-c" in a
// process group of its own, with its standard output kept chunk by chunk as
// it was read. Whatever is still running when the object goes is killed.
class ToolProcess
{
public:
    explicit ToolProcess(const QString &command);
    ~ToolProcess();
    ToolProcess(const ToolProcess &) = delete;
    ToolProcess &operator=(const ToolProcess &) = delete;

    // The shell's pid, which is also its process group id.
    qint64 pid() const;
    QByteArray output() const;
    // Standard output as it arrived, one entry per read.
    QList<QByteArray> chunks() const;
    QByteArray errorOutput();
    bool waitForOutput(const QByteArray &text, std::chrono::milliseconds timeout);
    bool waitForFinished(std::chrono::milliseconds timeout);
    bool finished() const;
    // The shell's exit status (the status of the command it ran); -1 while
    // running or when the shell itself was killed.
    int exitCode() const;

    // Pids of the direct children of a process.
    static QList<qint64> childrenOf(qint64 pid);
    // The command line of a process, word by word.
    static QList<QByteArray> commandLine(qint64 pid);

private:
    QProcess m_process;
    QList<QByteArray> m_chunks;
    QByteArray m_error;
};
