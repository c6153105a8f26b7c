#pragma once

#include "shell/Logger.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

// Collects the log lines written while it exists.
class LogCapture
{
public:
    LogCapture() { Logger::shared().addSink(m_sink); }
    ~LogCapture() { Logger::shared().removeSink(m_sink); }
    QStringList messages() const { return m_sink->messages(); }
    bool contains(const QString &prefix) const
    {
        const QStringList all = messages();
        return std::any_of(all.begin(), all.end(), [&](const QString &m) { return m.startsWith(prefix); });
    }

private:
    struct Sink : LogSink
    {
        void write(const LogMessage &message) override
        {
            std::lock_guard lock(mutex);
            lines.append(message.message);
        }
        QStringList messages()
        {
            std::lock_guard lock(mutex);
            return lines;
        }
        std::mutex mutex;
        QStringList lines;
    };
    std::shared_ptr<Sink> m_sink = std::make_shared<Sink>();
};

// Readable names for table rows that carry a "name" field.
template<typename Case>
std::string caseName(const testing::TestParamInfo<Case> &info)
{
    return info.param.name;
}

// A network namespace of the test's own, "tw-<tag>-<pid>", deleted with
// everything in it when the object goes.
class TestNamespace
{
public:
    // None (with the reason) when the machine cannot create a namespace.
    static std::unique_ptr<TestNamespace> create(const QString &tag, QString *reason);
    ~TestNamespace();

    // "ip -n <name> <arguments>"; true when it succeeded.
    bool ip(const QStringList &arguments) const;
    // A program run inside ("ip netns exec"); its output, none on failure.
    std::optional<QString> exec(const QStringList &command) const;
    // Runs the function on a thread that entered the namespace.
    bool runInside(const std::function<void()> &function) const;

private:
    explicit TestNamespace(QString name) : m_name(std::move(name)) {}
    QString m_name;
};
