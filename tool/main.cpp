// mac-native-iperf: runs the system's iperf3 with the caller's options and
// passes its output through, adding after every report line the tagged
// result line the application's parsers read (see LineTagger.h and
// README.md beside this file).

#include "LineTagger.h"
#include "TcpInfoSampler.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#ifndef TIDEWAVE_IPERF3_PATH
#define TIDEWAVE_IPERF3_PATH "/usr/bin/iperf3"
#endif

namespace {

// How long iperf3 gets to end after a forwarded signal before it is killed.
constexpr long kStopGraceMs = 5000;
// How often a TCP client's round-trip times are sampled.
constexpr long kSampleMs = 100;
// A line longer than this without a line end is passed on as it is, so a
// stream without line ends cannot grow the buffer without bound.
constexpr std::size_t kMaxLine = 1 << 20;

long nowMs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

// One write per call as far as the kernel allows, so a report line and its
// tagged line reach the reader together. A reader that went away is not an
// error for the measurement: iperf3 keeps being drained.
void writeAll(int fd, std::string_view data)
{
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        data.remove_prefix(static_cast<std::size_t>(n));
    }
}

// Splits one pipe's bytes into lines and hands each complete line (with its
// line end) on.
class LineReader
{
public:
    template <typename Emit>
    void feed(std::string_view bytes, Emit &&emit)
    {
        m_pending.append(bytes);
        std::size_t from = 0;
        for (std::size_t nl = m_pending.find('\n'); nl != std::string::npos; nl = m_pending.find('\n', from)) {
            emit(std::string_view(m_pending).substr(from, nl + 1 - from));
            from = nl + 1;
        }
        m_pending.erase(0, from);
        if (m_pending.size() > kMaxLine)
            finish(emit);
    }

    template <typename Emit>
    void finish(Emit &&emit)
    {
        if (!m_pending.empty())
            emit(std::string_view(m_pending));
        m_pending.clear();
    }

private:
    std::string m_pending;
};

struct Pipe
{
    int fd = -1;
    LineReader reader;
};

// iperf3 writes its standard output through stdio, which holds everything
// but the interval reports (--forceflush) until the buffer fills or iperf3
// ends: the connection line would come a whole report interval late, in the
// same read as the first report. A terminal makes stdio flush every line, so
// iperf3's standard output is the slave side of a raw pseudo-terminal (no
// line-end translation). Where none can be had, a pipe does.
bool openOutput(int &readSide, int &writeSide)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master >= 0) {
        char name[128];
        int slave = -1;
        if (grantpt(master) == 0 && unlockpt(master) == 0 && ptsname_r(master, name, sizeof name) == 0)
            slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios mode{};
        if (slave >= 0 && tcgetattr(slave, &mode) == 0) {
            cfmakeraw(&mode);
            if (tcsetattr(slave, TCSANOW, &mode) == 0) {
                readSide = master;
                writeSide = slave;
                return true;
            }
        }
        if (slave >= 0)
            close(slave);
        close(master);
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    readSide = ends[0];
    writeSide = ends[1];
    return true;
}

std::vector<char *> iperfArguments(int argc, char **argv)
{
    std::vector<char *> args;
    args.push_back(const_cast<char *>(TIDEWAVE_IPERF3_PATH));
    int first = 1;
    // The caller names the tool as its first word ("./iperf3"); iperf3 would
    // ignore it, but it is no option of ours to pass on.
    if (argc > 1 && std::string_view(argv[1]).ends_with("iperf3"))
        first = 2;
    for (int i = first; i < argc; ++i)
        args.push_back(argv[i]);
    // A client also asks for the server's own report (its retransmits, or
    // what arrived of a UDP test), which comes as a block at the end.
    static char serverOutput[] = "--get-server-output";
    if (std::find_if(args.begin(), args.end(), [](const char *arg) { return std::string_view(arg) == "-c" || std::string_view(arg).starts_with("--client"); }) != args.end())
        args.push_back(serverOutput);
    // Last, so they win over anything the caller passed: flush each interval
    // report at once, and print rates in whole Kbit/s.
    static char forceflush[] = "--forceflush";
    static char format[] = "--format";
    static char kilo[] = "k";
    args.push_back(forceflush);
    args.push_back(format);
    args.push_back(kilo);
    args.push_back(nullptr);
    return args;
}

bool hasArgument(const std::vector<char *> &args, std::string_view a, std::string_view b)
{
    return std::find_if(args.begin(), args.end(), [&](const char *arg) { return arg != nullptr && (arg == a || arg == b); })
        != args.end();
}

bool isClient(const std::vector<char *> &args)
{
    return hasArgument(args, "--get-server-output", "--get-server-output");
}

// The number of parallel streams: "-P4", "-P 4", "--parallel 4", "--parallel=4".
int streamCount(const std::vector<char *> &args)
{
    int streams = 1;
    for (std::size_t i = 1; i + 1 < args.size(); ++i) {
        const std::string_view arg(args[i]);
        std::string_view value;
        if (arg == "-P" || arg == "--parallel")
            value = args[i + 1] != nullptr ? std::string_view(args[i + 1]) : std::string_view();
        else if (arg.starts_with("-P"))
            value = arg.substr(2);
        else if (arg.starts_with("--parallel="))
            value = arg.substr(11);
        else
            continue;
        streams = std::atoi(std::string(value).c_str());
    }
    return streams;
}

[[noreturn]] void runIperf(const std::vector<char *> &args, pid_t launcher, int out, int err,
                           const sigset_t &originalMask, const struct sigaction &originalPipe)
{
    // iperf3 must not outlive the launcher, even when the launcher is killed
    // outright; if that already happened before prctl took effect, stop here.
    // SIGKILL, because a stock iperf3 server in the middle of ending a test
    // can sit on SIGTERM.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != launcher)
        _exit(127);
    if (dup2(out, STDOUT_FILENO) < 0 || dup2(err, STDERR_FILENO) < 0)
        _exit(127);
    sigaction(SIGPIPE, &originalPipe, nullptr);
    sigprocmask(SIG_SETMASK, &originalMask, nullptr);
    execv(args[0], args.data());
    // In iperf3's own error form, so the engine fails the test with this text
    // at once instead of waiting for a report that never comes.
    const std::string message =
        std::string("mac-native-iperf: error - cannot run ") + args[0] + ": " + std::strerror(errno) + "\n";
    writeAll(STDERR_FILENO, message);
    _exit(127);
}

int exitCodeFor(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    // The launcher ends with the shell that started it (which ends with the
    // application), and iperf3 with the launcher: nothing of a test outlives
    // an application that was killed outright. If the parent is already gone
    // before prctl took effect, stop here.
    const pid_t parent = getppid();
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent)
        return 127;

    const std::vector<char *> args = iperfArguments(argc, argv);

    // A reader of our output that goes away must not kill us before iperf3
    // is stopped; iperf3 itself gets the caller's disposition back.
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    struct sigaction originalPipe {};
    sigaction(SIGPIPE, &ignore, &originalPipe);

    // Termination signals and child exit are read from a signalfd in the
    // poll loop rather than handled asynchronously.
    sigset_t handled;
    sigemptyset(&handled);
    for (int sig : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&handled, sig);
    sigset_t originalMask;
    sigprocmask(SIG_BLOCK, &handled, &originalMask);
    const int signals = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);

    int outPipe[2];
    int errPipe[2];
    if (signals < 0 || !openOutput(outPipe[0], outPipe[1]) || pipe2(errPipe, O_CLOEXEC) != 0) {
        writeAll(STDERR_FILENO, std::string("mac-native-iperf: cannot set up pipes: ") + std::strerror(errno) + "\n");
        return 127;
    }

    const pid_t launcher = getpid();
    const pid_t child = fork();
    if (child < 0) {
        writeAll(STDERR_FILENO, std::string("mac-native-iperf: cannot start iperf3: ") + std::strerror(errno) + "\n");
        return 127;
    }
    if (child == 0)
        runIperf(args, launcher, outPipe[1], errPipe[1], originalMask, originalPipe);
    close(outPipe[1]);
    close(errPipe[1]);

    const bool client = isClient(args);
    // A TCP client's connections are watched for their round-trip times.
    std::optional<TcpInfoSampler> sampler;
    if (client && !hasArgument(args, "-u", "--udp"))
        sampler.emplace(child);
    LineTagger::Options options;
    options.streams = streamCount(args);
    options.twoWay = hasArgument(args, "--bidir", "--bidir");
    options.linkHealth = client;
    options.roundTrip = [&sampler](bool up) { return sampler ? sampler->take(up) : std::nullopt; };
    LineTagger tagger(client ? LineTagger::Mode::Client : LineTagger::Mode::Server, options);
    auto onOutLine = [&tagger](std::string_view line) {
        for (const std::string &write : tagger.writes(line))
            writeAll(STDOUT_FILENO, write);
    };
    auto onErrLine = [](std::string_view line) {
        writeAll(STDOUT_FILENO, line);
        writeAll(STDERR_FILENO, line);
    };

    Pipe out{outPipe[0], {}};
    Pipe err{errPipe[0], {}};
    // Reads what one pipe has (everything up to its end when toEnd) and hands
    // the complete lines on.
    auto drain = [](Pipe &pipe, auto &emit, bool toEnd) {
        char buffer[65536];
        while (pipe.fd >= 0) {
            const ssize_t n = ::read(pipe.fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n > 0) {
                pipe.reader.feed(std::string_view(buffer, static_cast<std::size_t>(n)), emit);
                if (!toEnd)
                    return;
                continue;
            }
            // End of file (EIO on a terminal whose slave side is closed), or
            // nothing left once iperf3 is gone.
            pipe.reader.finish(emit);
            close(pipe.fd);
            pipe.fd = -1;
        }
    };

    bool childDone = false;
    int childStatus = 0;
    long killDeadline = -1;
    long nextSample = nowMs() + kSampleMs;
    while (!childDone || out.fd >= 0 || err.fd >= 0) {
        if (childDone) {
            // iperf3 has exited: everything it wrote is in the pipes already.
            for (Pipe *pipe : {&out, &err}) {
                if (pipe->fd >= 0)
                    fcntl(pipe->fd, F_SETFL, fcntl(pipe->fd, F_GETFL) | O_NONBLOCK);
            }
            drain(out, onOutLine, true);
            drain(err, onErrLine, true);
            break;
        }
        pollfd fds[3] = {{signals, POLLIN, 0}, {out.fd, POLLIN, 0}, {err.fd, POLLIN, 0}};
        int timeout = -1;
        if (killDeadline >= 0)
            timeout = static_cast<int>(std::max(0L, killDeadline - nowMs()));
        if (sampler) {
            if (nowMs() >= nextSample) {
                sampler->sample();
                nextSample = nowMs() + kSampleMs;
            }
            const int untilSample = static_cast<int>(std::max(0L, nextSample - nowMs()));
            timeout = timeout < 0 ? untilSample : std::min(timeout, untilSample);
        }
        const int ready = poll(fds, 3, timeout);
        if (ready < 0 && errno != EINTR)
            break;
        if (killDeadline >= 0 && nowMs() >= killDeadline) {
            kill(child, SIGKILL);
            killDeadline = -1;
        }
        if (ready <= 0)
            continue;
        if (fds[1].revents != 0)
            drain(out, onOutLine, false);
        if (fds[2].revents != 0)
            drain(err, onErrLine, false);
        if (fds[0].revents != 0) {
            signalfd_siginfo info{};
            while (::read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
                const int sig = static_cast<int>(info.ssi_signo);
                if (sig == SIGCHLD)
                    continue;
                kill(child, sig);
                if (killDeadline < 0)
                    killDeadline = nowMs() + kStopGraceMs;
            }
            // SIGCHLD may merge with others, so the child is polled for here.
            if (waitpid(child, &childStatus, WNOHANG) == child)
                childDone = true;
        }
    }
    writeAll(STDOUT_FILENO, tagger.flush());
    if (!childDone) {
        while (waitpid(child, &childStatus, 0) < 0 && errno == EINTR) {
        }
    }
    return exitCodeFor(childStatus);
}
