#include "shell/NotificationCenter.h"

#include <algorithm>

NotificationCenter &NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

void NotificationCenter::addObserver(const void *owner, const QString &name, Handler handler)
{
    auto entry = std::make_shared<Entry>(Entry{owner, name, std::move(handler)});
    std::lock_guard lock(m_mutex);
    m_entries.push_back(std::move(entry));
}

void NotificationCenter::removeObserver(const void *owner)
{
    markRemoved([owner](const Entry &e) { return e.owner == owner; });
}

void NotificationCenter::removeObserver(const void *owner, const QString &name)
{
    markRemoved([owner, &name](const Entry &e) { return e.owner == owner && e.name == name; });
}

void NotificationCenter::markRemoved(const std::function<bool(const Entry &)> &match)
{
    std::lock_guard lock(m_mutex);
    for (const auto &entry : m_entries) {
        if (match(*entry))
            entry->removed = true;
    }
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(),
                                   [](const auto &e) { return e->removed; }),
                    m_entries.end());
}

void NotificationCenter::post(const QString &name, const QVariantMap &userInfo)
{
    // Deliver from a snapshot without holding the lock, so handlers may add or
    // remove observers (themselves included) or post again.
    std::vector<std::shared_ptr<Entry>> targets;
    {
        std::lock_guard lock(m_mutex);
        for (const auto &entry : m_entries) {
            if (entry->name == name)
                targets.push_back(entry);
        }
    }
    for (const auto &entry : targets) {
        bool removed;
        {
            std::lock_guard lock(m_mutex);
            removed = entry->removed;
        }
        if (!removed)
            entry->handler(userInfo);
    }
}
