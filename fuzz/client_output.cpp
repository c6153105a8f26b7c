// The client's output parser on arbitrary chunk sequences, with its events
// relayed by a coordinator as the client tab receives them. The first byte
// picks the run settings (bits 0-2 duration 0-7 s, bit 3 UDP, bit 4 reverse,
// bit 5 kilo units) and, with bit 6, takes the first piece as the stored
// "IPAddresss" text the coordinator names the interface from; the rest is
// pieces separated by FuzzSupport::kSeparator, decoded as the test decodes its
// pipe; the last piece is also handed to the end-of-process path as the
// unread rest of standard output.
#include "FuzzSupport.h"
#include "PerfHelper/PerfHelper.h"
#include "PerfHelper/PerfTest.h"
#include "shell/SettingsStore.h"

#include <QDir>

namespace {

// Counts what reaches the owner; nothing may follow a completion, and every
// record carries the coordinator's interface name.
class CheckingDelegate : public PerfHelperDelegate
{
public:
    explicit CheckingDelegate(const PerfHelper &helper)
        : m_helper(helper)
    {
    }


    int calls = 0;
    bool finished = false;
    // The end-of-process path may report a failure whatever came before.
    bool streaming = true;

    void reportIntervalResults(const PerfResultPtr &result) override
    {
        FUZZ_CHECK(result != nullptr, QString());
        FUZZ_CHECK(result->interfaceName == m_helper.usedInterfaceName(), result->interfaceName);
        heard();
    }
    // The record may be null: a chunk that holds "Finished_" but no line
    // starting with it completes the test before any record was made.
    void testFinished(const PerfResultPtr &result) override
    {
        if (result)
            FUZZ_CHECK(result->interfaceName == m_helper.usedInterfaceName(), result->interfaceName);
        heard();
        finished = true;
    }
    void testFail(const QString &) override { heard(); }

private:
    const PerfHelper &m_helper;

    void heard()
    {
        FUZZ_CHECK(!(streaming && finished), QStringLiteral("a call after testDidFinished"));
        ++calls;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    FuzzSupport::ensureApplication();
    static SettingsStore settings(QDir(qEnvironmentVariable("XDG_CONFIG_HOME")).filePath(QStringLiteral("client.ini")));
    PerfHelper helper(settings);
    CheckingDelegate delegate(helper);
    helper.setDelegate(&delegate);
    PerfTest test;
    test.setDelegate(&helper);
    test.server = QStringLiteral("127.0.0.1");
    test.port = 5201;
    test.stats_interval = 1;
    test.duration = data[0] & 0x07;
    test.testType = (data[0] >> 3) & 1;
    test.reverse = (data[0] >> 4) & 1;
    test.bandwidthformat = (data[0] >> 5) & 1;

    QList<QByteArray> chunks = FuzzSupport::pieces(data + 1, size - 1);
    if ((data[0] & 0x40) && chunks.size() > 1)
        settings.setObject(QString::fromUtf8(chunks.takeFirst()), QStringLiteral("IPAddresss"));
    else
        settings.removeObjectForKey(QStringLiteral("IPAddresss"));
    for (const QByteArray &chunk : chunks) {
        // A decided test ignores every later chunk.
        const bool decided = test.hasTestFinished();
        const int before = delegate.calls;
        test.didReceivePerfTestRespnose(FuzzSupport::strictUtf8(chunk));
        FUZZ_CHECK(!decided || delegate.calls == before, QString::fromUtf8(chunk));
    }
    delegate.streaming = false;
    test.processDidEnd(chunks.last(), QByteArray());
    return 0;
}
