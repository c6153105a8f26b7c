#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariant>

#include <memory>

// One parsed line of the measurement tool's output (an interval or a summary)
// plus a snapshot of the Wi-Fi link. Plain storage, no behaviour.
// A null QString stands for "nil"; an empty one for "".
class PerfResult
{
public:
    QString ip;                 // address of the remote client of a server-side record
    QString startTime;          // interval start in seconds, as the tool printed it
    QString endTime;            // interval end in seconds, as the tool printed it
    float sentBytes = 0;        // bytes transferred in the interval, as printed
    float sentBandwidth = 0;    // bits per second of the interval, as printed
    float receivedBytes = 0;    // bytes received, server side
    float receivedBandwidth = 0; // bits per second received, server side
    QDateTime createdAt;        // declared; nothing assigns it
    QVariant total_packets;     // declared; nothing assigns it
    QVariant lost_packets;      // declared; nothing assigns it
    QVariant avg_jitter;        // declared; nothing assigns it
    qint64 txPowerField = 0;    // Wi-Fi transmit power, mW
    qint64 rssiField = 0;       // received signal strength, dBm
    qint64 noiseField = 0;      // noise level, dBm
    QString ssidField;          // network name; "" when the test did not run over "WiFi"
    qint64 securityModeField = 0; // security mode code of the Wi-Fi interface
    QString bssidField;         // access point MAC; "" when not over "WiFi"
    qint64 phyModeField = 0;    // active PHY mode code
    qint64 txRateField = 0;     // transmit rate, Mbps
    qint64 opModeField = 0;     // interface (operating) mode code
    QString channeField;        // channel number as decimal text
    qint64 bandwidthformat = 0; // unit choice of the producing test: 1 kilo, else mega
    float OSXVersion = 0;       // declared; nothing assigns it, so it reads 0
    QString localIP;            // declared; nothing assigns it
    QString interfaceName;      // interface that carried the test ("WiFi" for Wi-Fi)
    qint64 reverse = 0;         // declared; the parsers never set it
    QString receivedBandwidth1; // declared; nothing assigns it
    QString receivedBytes1;     // declared; nothing assigns it
    QString intervals;          // interval text of a server-side line, as printed
    QString typeName;           // trimmed last field of a server-side line
    QString jitter;             // UDP jitter as printed
    QString lostTotalDataGrams; // UDP lost/total datagrams as printed
    QString totalDataGrams;     // declared; nothing assigns it
    QString currentDate;        // time stamp of a server-side record

    // Link health of a client record: the figures of the record's own
    // direction and interval, -1 where not known. Figures this computer sees
    // are set before the record is reported; the far end's (from the server's
    // own report) are written into the same, already reported interval
    // records when the test ends, before testDidFinished. A final record
    // carries the totals of its direction's intervals (retransmits and
    // datagram counts summed, round-trip time averaged).
    qint64 direction = -1;         // 0: this computer sent the data (up), 1: it received them (down);
                                   // a two-way test has records of both; -1 on server-side records
    qint64 retransmits = -1;       // TCP: segments the sender retransmitted in the interval; live when
                                   // this computer sends, from the server's report at the end otherwise;
                                   // the last interval also gets what iperf3's total counts past it
    double roundTripMs = -1;       // TCP round-trip time, ms, mean over the interval: the sender's
                                   // smoothed RTT when this computer sends, its receiver's estimate
                                   // (tcp_info rcv_rtt, which runs high under a paced sender) otherwise
    qint64 congestionWindow = -1;  // TCP: the sender's congestion window at the interval's end, bytes
                                   // (one stream only; not on sums of several streams)
    double udpJitterMs = -1;       // UDP: the receiver's jitter, ms; live when this computer receives,
                                   // from the server's report at the end when it sends
    qint64 udpLostDatagrams = -1;  // UDP: datagrams the receiver counted lost in the interval
    qint64 udpTotalDatagrams = -1; // UDP: datagrams the receiver expected in the interval
};

// Records sit in several lists at once (a test's results, a table, the graph).
using PerfResultPtr = std::shared_ptr<PerfResult>;
using PerfResultList = QList<PerfResultPtr>;
