#include "network/Reachability.h"

#include "network/NetlinkReachabilitySource.h"
#include "shell/NotificationCenter.h"

#include <QCoreApplication>
#include <QVariantMap>

const QString Reachability::kReachabilityChangedNotification = QStringLiteral("kReachabilityChangedNotification");

namespace {

// Runs the function on the main thread without waiting; directly when there
// is no application object to queue it on.
void onMainThread(std::function<void()> function)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        function();
        return;
    }
    QMetaObject::invokeMethod(app, std::move(function), Qt::QueuedConnection);
}

} // namespace

std::shared_ptr<Reachability> Reachability::reachabilityWithHostname(const QString &hostname)
{
    if (hostname.trimmed().isEmpty())
        return nullptr;
    return reachabilityWithSource(std::make_unique<NetlinkReachabilitySource>(hostname));
}

std::shared_ptr<Reachability> Reachability::reachabilityWithSource(std::unique_ptr<ReachabilitySource> source)
{
    if (!source)
        return nullptr;
    return std::shared_ptr<Reachability>(new Reachability(std::move(source)));
}

Reachability::Reachability(std::unique_ptr<ReachabilitySource> source)
    : reachabilityRef(std::move(source))
{
}

Reachability::~Reachability()
{
    reachabilityRef->stop();
}

void Reachability::setReachableBlock(Block block)
{
    std::lock_guard lock(m_blockMutex);
    reachableBlock = std::move(block);
}

void Reachability::setUnreachableBlock(Block block)
{
    std::lock_guard lock(m_blockMutex);
    unreachableBlock = std::move(block);
}

bool Reachability::startNotifier()
{
    reachabilityObject = shared_from_this();
    const std::weak_ptr<Reachability> weak = reachabilityObject;
    const bool started = reachabilityRef->start([weak](ReachabilityFlags flags) {
        // Held for the call, so a handler that stops the monitor cannot
        // destroy it underneath this call.
        if (const std::shared_ptr<Reachability> self = weak.lock())
            self->reachabilityChanged(flags);
    });
    if (!started)
        reachabilityObject.reset();
    return started;
}

void Reachability::stopNotifier()
{
    reachabilityRef->stop();
    reachabilityObject.reset();
}

bool Reachability::isReachableWithFlags(ReachabilityFlags flags)
{
    if (!(flags & kReachabilityFlagReachable))
        return false;
    const ReachabilityFlags both = kReachabilityFlagConnectionRequired | kReachabilityFlagTransientConnection;
    return (flags & both) != both;
}

bool Reachability::isReachable()
{
    return isReachableWithFlags(reachabilityFlags());
}

bool Reachability::isReachableViaWiFi()
{
    return isReachable();
}

Reachability::NetworkStatus Reachability::currentReachabilityStatus()
{
    return isReachable() ? ReachableViaWiFi : NotReachable;
}

QString Reachability::currentReachabilityString()
{
    switch (currentReachabilityStatus()) {
    case ReachableViaWiFi:
        return QStringLiteral("WiFi");
    case ReachableViaWWAN:
        return QStringLiteral("Cellular");
    default:
        return QStringLiteral("No Connection");
    }
}

ReachabilityFlags Reachability::reachabilityFlags()
{
    return reachabilityRef->currentFlags();
}

void Reachability::reachabilityChanged(ReachabilityFlags flags)
{
    Block block;
    {
        std::lock_guard lock(m_blockMutex);
        block = isReachableWithFlags(flags) ? reachableBlock : unreachableBlock;
    }
    if (block)
        block(this);
    const std::weak_ptr<Reachability> weak = weak_from_this();
    onMainThread([weak] {
        const std::shared_ptr<Reachability> self = weak.lock();
        QVariantMap userInfo;
        userInfo.insert(QStringLiteral("object"), QVariant::fromValue(static_cast<void *>(self.get())));
        NotificationCenter::defaultCenter().post(kReachabilityChangedNotification, userInfo);
    });
}
