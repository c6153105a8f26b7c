#include "PerfHelper/ShellTask.h"

#include <QByteArray>
#include <QProcess>
#include <QStringDecoder>

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
const QString kShell = QStringLiteral("/bin/sh");
}

std::unique_ptr<QProcess> ShellTask::taskForShellCommand(const QString &command)
{
    auto process = std::make_unique<QProcess>();
    process->setProgram(kShell);
    process->setArguments({QStringLiteral("-c"), command});
    process->setStandardInputFile(QProcess::nullDevice());
    const pid_t application = ::getpid();
    process->setChildProcessModifier([application] {
        ::setpgid(0, 0);
        // The shell ends with the application even when the application is
        // killed outright; the launcher and iperf3 follow the shell the same
        // way. If the application is already gone, the shell never starts.
        if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != application)
            ::_exit(127);
    });
    return process;
}

std::optional<QString> ShellTask::executeShellCommandSynchronously(const QString &command)
{
    // fork/exec rather than QProcess: this may run on any thread, without an
    // event loop, and must return at end of file, not at the shell's exit.
    const QByteArray cmd = command.toUtf8();
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return std::nullopt;
    const pid_t pid = ::fork();
    if (pid < 0) {
        ::close(fds[0]);
        ::close(fds[1]);
        return std::nullopt;
    }
    if (pid == 0) {
        ::setpgid(0, 0);
        const int null = ::open("/dev/null", O_RDONLY);
        if (null >= 0)
            ::dup2(null, STDIN_FILENO);
        ::dup2(fds[1], STDOUT_FILENO);
        ::dup2(fds[1], STDERR_FILENO);
        ::execl("/bin/sh", "sh", "-c", cmd.constData(), static_cast<char *>(nullptr));
        ::_exit(127);
    }
    ::close(fds[1]);
    QByteArray output;
    char buffer[8192];
    for (;;) {
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n > 0)
            output.append(buffer, n);
        else if (n == 0 || errno != EINTR)
            break;
    }
    ::close(fds[0]);
    // End of file ends the call, not the shell's exit: a command may close
    // its output and keep running. It is reaped in the background then.
    if (::waitpid(pid, nullptr, WNOHANG) == 0) {
        std::thread([pid] {
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }

    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(output);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

void ShellTask::executeShellCommandAsynchronously(const QString &command)
{
    QProcess process;
    process.setProgram(kShell);
    process.setArguments({QStringLiteral("-c"), command});
    process.setStandardInputFile(QProcess::nullDevice());
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.startDetached();
}

bool ShellTask::signalProcessGroup(qint64 pid, int signal)
{
    if (pid <= 0)
        return false;
    return ::kill(-static_cast<pid_t>(pid), signal) == 0;
}
