#include "NetworkTestSupport.h"

#include <QCoreApplication>
#include <QProcess>

#include <fcntl.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

namespace {

// Exit code of the program (-1 when it crashed or ran over 20 s).
int run(const QStringList &command, QString *output = nullptr)
{
    QProcess process;
    process.start(command.first(), command.mid(1));
    if (!process.waitForFinished(20000)) {
        process.kill();
        process.waitForFinished(5000);
        return -1;
    }
    if (output)
        *output = QString::fromUtf8(process.readAllStandardOutput());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

} // namespace

std::unique_ptr<TestNamespace> TestNamespace::create(const QString &tag, QString *reason)
{
    const QString name = QStringLiteral("tw-%1-%2").arg(tag).arg(QCoreApplication::applicationPid());
    run({"ip", "netns", "del", name}); // left by a killed run with the same pid
    if (run({"ip", "netns", "add", name}) != 0) {
        *reason = QStringLiteral("\"ip netns add %1\" failed (needs root and network namespaces)").arg(name);
        return nullptr;
    }
    std::unique_ptr<TestNamespace> space(new TestNamespace(name));
    space->ip({"link", "set", "lo", "up"});
    return space;
}

TestNamespace::~TestNamespace()
{
    run({"ip", "netns", "del", m_name});
}

bool TestNamespace::ip(const QStringList &arguments) const
{
    return run(QStringList{"ip", "-n", m_name} + arguments) == 0;
}

std::optional<QString> TestNamespace::exec(const QStringList &command) const
{
    QString output;
    if (run(QStringList{"ip", "netns", "exec", m_name} + command, &output) != 0)
        return std::nullopt;
    return output;
}

bool TestNamespace::runInside(const std::function<void()> &function) const
{
    const int fd = ::open(("/run/netns/" + m_name).toUtf8().constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool entered = false;
    std::thread([&] {
        entered = ::setns(fd, CLONE_NEWNET) == 0;
        if (entered)
            function();
    }).join();
    ::close(fd);
    return entered;
}
