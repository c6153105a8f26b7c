#pragma once

#include "PerfHelper/PerfHelperDelegate.h"
#include "PerfHelper/PerfTestDelegate.h"
#include "records/PerfResult.h"

#include <QString>

#include <memory>

class PerfTest;
class SettingsStore;

// The coordinator of one client test: the test's settings record, the run of
// its PerfTest, the name of the interface that carried the test, and the
// test's interval records.
//
// Ownership: a coordinator is one entry of the client tab's test list and is
// read at the same time by the detail view and the graph, so it is owned
// through shared pointers (PerfHelperPtr); it is not a QObject and not
// copyable. It owns its PerfTest, which holds it as a non-owning delegate.
// Dropping the last reference while the tool runs cancels the run and ends
// the tool's process group; nothing is reported afterwards.
//
// Its own delegate (the client tab) is held without owning. Events reach it
// only while it exists; a callback may stop the test or drop the coordinator.
// Everything runs on the main thread.
class PerfHelper final : public PerfTestDelegate
{
public:
    // The test settings record.
    QString serverIP;                 // address of the measurement server
    qint64 serverPort = 0;            // server port
    QString localIP;                  // this computer's address: getIPAddress at run, then the tool's
    qint64 duration = 0;              // test length, seconds
    qint64 stats_interval = 0;        // report interval, seconds
    qint64 testType = 0;              // 0 TCP, 1 UDP
    qint64 reverse = 0;               // 1: the server sends
    qint64 bandwidthformat = 0;       // 0 mega, 1 kilo
    qint64 sendBandwidth = 0;         // target rate in the unit above; 0 or less: none
    qint64 bufferLength = 0;          // buffer (TCP) or datagram (UDP) length, KB
    qint64 datagramSize = 0;          // declared; nothing sets or reads it
    qint64 graphMaxSpeed = 0;         // upper bound of the speed graph's axis
    QString testLabel;                // "TCP Test"/"UDP Test", renamed by the user
    qint64 isTestRunning = 0;         // 1 while the test runs
    qint64 isSelected = 0;            // the test's check box in the list
    qint64 index = 0;                 // row of the test in the list
    qint64 invalidTestDuration = 0;   // handed down to the run unchanged
    qint64 parallelStreams = 1;       // 1-16 parallel streams (settings key kParallelStreamsKey)
    qint64 twoWay = 0;                // 1: both directions at once (settings key kTwoWayKey)
    PerfResultList resultss;          // interval records, newest first (the client tab fills it)

    // Settings keys of the stream settings. Nothing stored (or 0) means one
    // stream and one direction, which run exactly the plain command line.
    static constexpr const char *kParallelStreamsKey = "parallelStreams";
    static constexpr const char *kTwoWayKey = "twoWayTest";

    // The settings store supplies the interface list ("IPAddresss").
    PerfHelper();
    explicit PerfHelper(SettingsStore &settings);
    ~PerfHelper() override;

    PerfHelperDelegate *delegate() const;
    // Held without owning; null clears it.
    void setDelegate(PerfHelperDelegate *delegate);

    // Hands the settings down to the PerfTest and starts it; returns at once.
    void runTest();
    // Stops the PerfTest; before runTest it only marks it cancelled.
    void stopTest();

    // "WiFi", another interface's display name, or null while the local
    // address is unknown.
    QString usedInterfaceName() const { return m_usedInterfaceName; }
    // The run this coordinator drives.
    const PerfTest &test() const { return *m_test; }

    // Events of the PerfTest.
    void reportInterval(const PerfResultPtr &result) override;
    void testDidFinished(const PerfResultPtr &result) override;
    void testDidFail(const QString &message) override;
    void didResolvedLocalIP(const QString &address) override;

private:
    PerfHelperDelegate *liveDelegate() const;

    SettingsStore &m_settings;
    std::unique_ptr<PerfTest> m_test;
    QString m_usedInterfaceName;
    PerfHelperDelegate *m_delegate = nullptr;
    std::weak_ptr<const void> m_delegateLifetime;
};

using PerfHelperPtr = std::shared_ptr<PerfHelper>;
