#pragma once

#include "shell/Logger.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStringList>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <functional>
#include <ostream>
#include <mutex>
#include <thread>

inline void PrintTo(const QString &text, std::ostream *out) { *out << '"' << text.toStdString() << '"'; } // readable failures

// Collects the log texts written while it exists (the discovery tests use it too).
class LogCapture : public LogSink
{
public:
    LogCapture() { Logger::shared().addSink(m_self); }
    ~LogCapture() override { Logger::shared().removeSink(m_self); }
    void write(const LogMessage &message) override { const std::lock_guard lock(m_mutex); m_lines.append(message.message); }
    QStringList messages() const { const std::lock_guard lock(m_mutex); return m_lines; }
    bool contains(const QString &part) const { return !messages().filter(part).isEmpty(); }

private:
    mutable std::mutex m_mutex;
    QStringList m_lines;
    const std::shared_ptr<LogSink> m_self{this, [](LogSink *) {}};
};

// A network namespace of the test's own ("tw-<tag>-<pid>"), deleted with everything in it when the object goes.
struct TestNamespace
{
    explicit TestNamespace(const QString &tag) : name(QStringLiteral("tw-%1-%2").arg(tag).arg(QCoreApplication::applicationPid()))
    {
        run({"ip", "netns", "del", name}); // left by a killed run with the same pid
        created = run({"ip", "netns", "add", name}) && ip("link set lo up").isEmpty();
    }
    ~TestNamespace() { run({"ip", "netns", "del", name}); }
    // Whether the command exited with 0 within 20 s; its standard output into `output`.
    static bool run(const QStringList &command, QString *output = nullptr)
    {
        QProcess process;
        process.start(command.first(), command.mid(1));
        const bool finished = process.waitForFinished(20000) || (process.kill(), process.waitForFinished(), false);
        if (output)
            *output = QString::fromUtf8(process.readAllStandardOutput());
        return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    }
    // "ip -n <name> …" for each ";"-separated command in turn: the first that fails, "" when none does.
    QString ip(const QString &commands) const
    {
        for (const QString &command : commands.split(u';', Qt::SkipEmptyParts)) {
            if (!run(QStringList{"ip", "-n", name} + command.split(u' ', Qt::SkipEmptyParts)))
                return command;
        }
        return {};
    }
    // Runs the function on a thread that entered the namespace.
    bool runInside(const std::function<void()> &function) const
    {
        const int fd = ::open(("/run/netns/" + name).toUtf8().constData(), O_RDONLY | O_CLOEXEC);
        bool entered = false;
        std::thread([&] { (entered = ::setns(fd, CLONE_NEWNET) == 0) && (function(), true); }).join();
        return ::close(fd), entered;
    }
    const QString name;
    bool created = false;
};
