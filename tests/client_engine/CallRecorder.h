#pragma once

#include "PerfHelper/PerfHelperDelegate.h"
#include "PerfHelper/PerfTestDelegate.h"
#include "records/PerfResult.h"

#include <QByteArrayList>
#include <QList>
#include <QString>
#include <QStringList>

// Delegate calls written as one line of text each, so a test compares the
// whole sequence at once:
//   "ip 127.0.0.1"
//   "interval 0.00-1.00 524288 4194304 jitter=nil loss=nil fmt=0"
//   "finished <as interval>", "fail <text>"
// Coordinator calls add " if=<interfaceName>" to records.
namespace CallText {
QString record(const PerfResult &result);
// The expected text of a record; the numbers go through float as the parser
// stores them.
QString record(const QString &start, const QString &end, double bytes, double bandwidth,
               const QString &jitter = {}, const QString &loss = {}, qint64 format = 0);
QString ip(const QString &address);
QString interval(const QString &recordText);
QString finished(const QString &recordText);
QString fail(const QString &message);
} // namespace CallText

class PerfTestRecorder : public PerfTestDelegate
{
public:
    void reportInterval(const PerfResultPtr &result) override;
    void testDidFinished(const PerfResultPtr &result) override;
    void testDidFail(const QString &message) override;
    void didResolvedLocalIP(const QString &address) override;

    QStringList calls;
    QList<PerfResultPtr> records; // every record passed, in call order
};

class PerfHelperRecorder : public PerfHelperDelegate
{
public:
    void reportIntervalResults(const PerfResultPtr &result) override;
    void testFinished(const PerfResultPtr &result) override;
    void testFail(const QString &message) override;

    QStringList calls;
    QList<PerfResultPtr> records;
};

// Reads a captured chunk fixture: '#' comment lines, then per chunk a line
// "@@ chunk <n> bytes @@" and exactly n bytes. Empty when unreadable.
QByteArrayList readChunkFixture(const QString &path);
