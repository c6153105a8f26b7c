#include "PerfHelper/PerfHelper.h"

#include "PerfHelper/PerfTest.h"
#include "PerfHelper/TidewaveUtils.h"
#include "shell/Logger.h"
#include "shell/SettingsStore.h"

#include <QStringList>

namespace {

QString orNull(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

bool isWiFiName(const QString &name)
{
    return name == QLatin1String("IEEE80211") || name == QLatin1String("AirPort") || name == QLatin1String("airPort")
        || name == QLatin1String("WiFi");
}

} // namespace

PerfHelper::PerfHelper()
    : PerfHelper(SettingsStore::standard())
{
}

PerfHelper::PerfHelper(SettingsStore &settings)
    : m_settings(settings)
    , m_test(std::make_unique<PerfTest>())
{
    m_test->setDelegate(this);
}

PerfHelper::~PerfHelper() = default;

PerfHelperDelegate *PerfHelper::delegate() const
{
    return liveDelegate();
}

void PerfHelper::setDelegate(PerfHelperDelegate *delegate)
{
    m_delegate = delegate;
    m_delegateLifetime = delegate ? delegate->perfHelperDelegateLifetime() : std::weak_ptr<const void>();
}

PerfHelperDelegate *PerfHelper::liveDelegate() const
{
    if (!m_delegate || m_delegateLifetime.expired())
        return nullptr;
    return m_delegate;
}

void PerfHelper::runTest()
{
    localIP = TidewaveUtils::getIPAddress();
    m_test->invalidTestDuration = invalidTestDuration;
    m_test->server = serverIP;
    m_test->port = serverPort;
    m_test->duration = duration;
    m_test->stats_interval = stats_interval;
    m_test->reverse = reverse;
    m_test->bandwidthformat = bandwidthformat;
    m_test->testType = testType;
    m_test->bufferLength = bufferLength;
    m_test->sendBandwidth = sendBandwidth;
    m_test->parallelStreams = parallelStreams;
    m_test->twoWay = twoWay;
    m_test->run();
}

void PerfHelper::stopTest()
{
    m_test->stop();
}

// The owner may drop this coordinator inside any callback, so nothing of it
// is touched after one.
void PerfHelper::reportInterval(const PerfResultPtr &result)
{
    if (result)
        result->interfaceName = m_usedInterfaceName;
    if (PerfHelperDelegate *target = liveDelegate())
        target->reportIntervalResults(result);
}

void PerfHelper::testDidFinished(const PerfResultPtr &result)
{
    // A "Finished_" chunk without a whole final line finishes the test with
    // no record; the owner is told all the same.
    if (result)
        result->interfaceName = m_usedInterfaceName;
    if (PerfHelperDelegate *target = liveDelegate())
        target->testFinished(result);
}

void PerfHelper::testDidFail(const QString &message)
{
    if (PerfHelperDelegate *target = liveDelegate())
        target->testFail(message);
}

void PerfHelper::didResolvedLocalIP(const QString &address)
{
    TW_LOG(QStringLiteral("PerfHelper: have resolved local ip address to - %1").arg(orNull(address)));
    localIP = address;

    // "Display name: address" entries joined by ", ", the primary one's name
    // followed by " (Primary)".
    const QString stored = m_settings.stringForKey(QStringLiteral("IPAddresss"));
    TW_LOG(QStringLiteral("array of ips is %1   and ip is %2").arg(orNull(localIP), orNull(stored)));
    // An empty address is found nowhere.
    if (stored.isNull() || address.isEmpty() || !stored.contains(address)) {
        m_usedInterfaceName = QStringLiteral("WiFi");
        return;
    }

    // Every entry is looked at: when several end with the address, the last
    // decides. Only the comma is split off, so later names keep a leading blank.
    const QStringList entries = stored.split(QLatin1Char(','));
    for (const QString &entry : entries) {
        TW_LOG(QStringLiteral("ClientTab******reportTestInterval**ip:%1").arg(entry));
        if (!entry.endsWith(address))
            continue;
        // An entry without a name cannot name the interface.
        const qsizetype colon = entry.indexOf(QLatin1Char(':'));
        if (colon < 0)
            continue;
        QString name = entry.left(colon);
        TW_LOG(QStringLiteral("ClientTab******reportTeatInterval**interfaceName:%1").arg(name));
        name.remove(QLatin1String(" (Primary)"));
        m_usedInterfaceName = isWiFiName(name) ? QStringLiteral("WiFi") : name;
    }
}
