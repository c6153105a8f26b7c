#pragma once

#include "shell/Logger.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <mutex>
#include <optional>

// Collects the log lines written while it is installed.
class LogCollector : public LogSink
{
public:
    static std::shared_ptr<LogCollector> install();
    ~LogCollector() override = default;

    void write(const LogMessage &message) override;
    QStringList messages() const;
    bool contains(const QString &prefix) const; // a message starting with prefix
    void uninstall();

private:
    mutable std::mutex m_mutex;
    QStringList m_messages;
    std::shared_ptr<LogCollector> m_self;
};

// A network namespace of the test's own, named "tw-<tag>-<pid>", deleted
// with everything in it when the object goes.
class TestNamespace
{
public:
    // None (with the reason) when the machine cannot create a namespace.
    static std::unique_ptr<TestNamespace> create(const QString &tag, QString *reason);
    ~TestNamespace();

    const QString &name() const { return m_name; }
    // Runs "ip -n <name> <arguments>"; true when it succeeded.
    bool ip(const QStringList &arguments) const;
    // Runs a program inside the namespace ("ip netns exec"); its standard
    // output, none when it failed or took longer than 20 s.
    std::optional<QString> exec(const QStringList &command) const;
    // Runs the function on a thread that entered the namespace; false when
    // the namespace could not be entered.
    bool runInside(const std::function<void()> &function) const;

private:
    explicit TestNamespace(QString name);
    QString m_name;
};
