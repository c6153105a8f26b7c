#include "NetworkTestSupport.h"

#include <QCoreApplication>
#include <QProcess>

#include <fcntl.h>
#include <sched.h>
#include <thread>
#include <unistd.h>

std::shared_ptr<LogCollector> LogCollector::install()
{
    auto collector = std::make_shared<LogCollector>();
    collector->m_self = collector;
    Logger::shared().addSink(collector);
    return collector;
}

void LogCollector::write(const LogMessage &message)
{
    std::lock_guard lock(m_mutex);
    m_messages.append(message.message);
}

QStringList LogCollector::messages() const
{
    std::lock_guard lock(m_mutex);
    return m_messages;
}

bool LogCollector::contains(const QString &prefix) const
{
    std::lock_guard lock(m_mutex);
    for (const QString &message : m_messages) {
        if (message.startsWith(prefix))
            return true;
    }
    return false;
}

void LogCollector::uninstall()
{
    Logger::shared().removeSink(m_self);
    m_self.reset();
}

namespace {

int run(const QString &program, const QStringList &arguments, QString *output = nullptr)
{
    QProcess process;
    process.start(program, arguments);
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
    // A namespace left by an earlier, killed run of the same pid is reused.
    run(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("del"), name});
    if (run(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("add"), name}) != 0) {
        if (reason)
            *reason = QStringLiteral("\"ip netns add %1\" failed (needs root and network namespaces)").arg(name);
        return nullptr;
    }
    std::unique_ptr<TestNamespace> space(new TestNamespace(name));
    space->ip({QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("lo"), QStringLiteral("up")});
    return space;
}

TestNamespace::TestNamespace(QString name)
    : m_name(std::move(name))
{
}

TestNamespace::~TestNamespace()
{
    run(QStringLiteral("ip"), {QStringLiteral("netns"), QStringLiteral("del"), m_name});
}

bool TestNamespace::ip(const QStringList &arguments) const
{
    return run(QStringLiteral("ip"), QStringList{QStringLiteral("-n"), m_name} + arguments) == 0;
}

std::optional<QString> TestNamespace::exec(const QStringList &command) const
{
    QString output;
    if (run(QStringLiteral("ip"), QStringList{QStringLiteral("netns"), QStringLiteral("exec"), m_name} + command,
            &output)
        != 0)
        return std::nullopt;
    return output;
}

bool TestNamespace::runInside(const std::function<void()> &function) const
{
    const int fd = ::open(QStringLiteral("/run/netns/%1").arg(m_name).toUtf8().constData(), O_RDONLY | O_CLOEXEC);
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
