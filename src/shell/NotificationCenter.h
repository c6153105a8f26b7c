#pragma once

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

// The process-wide notification centre: posts by name with a payload map;
// observers run synchronously on the posting thread, in the order they were
// added. An observer removed while a post is being delivered is not called
// afterwards, even by that post.
class NotificationCenter
{
public:
    using Handler = std::function<void(const QVariantMap &userInfo)>;

    static NotificationCenter &defaultCenter();

    void addObserver(const void *owner, const QString &name, Handler handler);
    void removeObserver(const void *owner);
    void removeObserver(const void *owner, const QString &name);
    void post(const QString &name, const QVariantMap &userInfo = {});

private:
    struct Entry
    {
        const void *owner;
        QString name;
        Handler handler;
        bool removed = false;
    };

    void markRemoved(const std::function<bool(const Entry &)> &match);

    std::mutex m_mutex;
    std::vector<std::shared_ptr<Entry>> m_entries;
};
