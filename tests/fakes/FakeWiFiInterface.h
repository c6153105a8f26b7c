#pragma once

#include "network/WiFiInterface.h"

#include <atomic>
#include <mutex>

// A Wi-Fi interface whose link state the test sets; counts the reads.
class FakeWiFiInterface : public WiFiInterface
{
public:
    explicit FakeWiFiInterface(QString name = QStringLiteral("wlan0"))
        : m_name(std::move(name))
    {
    }

    void setLinkState(const WiFiLinkState &state)
    {
        std::lock_guard lock(m_mutex);
        m_state = state;
    }
    int reads() const { return m_reads; }

    QString interfaceName() const override { return m_name; }
    WiFiLinkState linkState() override
    {
        ++m_reads;
        std::lock_guard lock(m_mutex);
        return m_state;
    }

private:
    QString m_name;
    std::mutex m_mutex;
    WiFiLinkState m_state;
    std::atomic<int> m_reads{0};
};
