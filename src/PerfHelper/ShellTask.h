#pragma once

#include <QString>

#include <memory>
#include <optional>

class QProcess;

// Runs command texts through "/bin/sh" "-c". Every shell starts in a process
// group of its own (Debian's sh keeps the command as its child), so signalling
// the group reaches the command and everything it started.
class ShellTask
{
public:
    // A configured, not yet started process: "/bin/sh" with exactly "-c" and
    // the command unchanged; standard input is the null device.
    static std::unique_ptr<QProcess> taskForShellCommand(const QString &command);

    // Runs the command with standard output and error on one pipe and returns
    // what it wrote, up to end of file; none when it is not valid UTF-8 or the
    // shell cannot be started.
    static std::optional<QString> executeShellCommandSynchronously(const QString &command);

    // Starts the command and returns at once; its output goes to ours and
    // nothing waits for it.
    static void executeShellCommandAsynchronously(const QString &command);

    // Sends the signal to the whole process group led by pid (the shell).
    // Answers false when there is no such group.
    static bool signalProcessGroup(qint64 pid, int signal);
};
