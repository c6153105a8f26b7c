#pragma once

#include "shell/Logger.h"

#include <QStringList>

#include <memory>
#include <mutex>

// Collects log texts while installed.
class LogCollector : public LogSink
{
public:
    static std::shared_ptr<LogCollector> install()
    {
        auto collector = std::make_shared<LogCollector>();
        Logger::shared().addSink(collector);
        return collector;
    }
    ~LogCollector() override = default;

    void write(const LogMessage &message) override
    {
        std::lock_guard lock(m_mutex);
        m_messages.append(message.message);
    }
    bool contains(const QString &part) const
    {
        std::lock_guard lock(m_mutex);
        for (const QString &message : m_messages) {
            if (message.contains(part))
                return true;
        }
        return false;
    }

private:
    mutable std::mutex m_mutex;
    QStringList m_messages;
};
