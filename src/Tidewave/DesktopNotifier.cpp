#include "Tidewave/DesktopNotifier.h"

#include "shell/Logger.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

DesktopNotifier::DesktopNotifier(QWidget *window, QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_bus(std::move(bus))
{
}

void DesktopNotifier::testEnded(const QString &label, const QString &outcome)
{
    if (!m_window || m_window->isActiveWindow() || !m_bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    // Services may read the body as markup; the outcome can be the tool's own words.
    call << QStringLiteral("Tidewave") << uint(0) << QStringLiteral("com.norvale.Tidewave")
         << (label.isEmpty() ? tr("Test ended") : label) << outcome.toHtmlEscaped() << QStringList()
         << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("com.norvale.Tidewave")}} << -1;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        if (finished->isError() && !std::exchange(m_failureLogged, true))
            TW_LOG(QStringLiteral("No desktop notification: %1").arg(finished->error().message()));
    });
}
