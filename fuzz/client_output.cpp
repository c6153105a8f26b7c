// The client's output parser on arbitrary chunk sequences. The first byte
// picks the run settings (duration 0-7 s, TCP or UDP, normal or reverse);
// the rest is pieces separated by FuzzSupport::kSeparator, decoded as the
// test decodes its pipe; the last piece is also handed to the end-of-process
// path as the unread rest of standard output.
#include "FuzzSupport.h"
#include "PerfHelper/PerfTest.h"

namespace {

// Counts what reaches the owner; nothing may follow a completion.
class CheckingDelegate : public PerfTestDelegate
{
public:
    int calls = 0;
    bool finished = false;
    // The end-of-process path may report a failure whatever came before.
    bool streaming = true;

    void reportInterval(const PerfResultPtr &result) override
    {
        FUZZ_CHECK(result != nullptr, QString());
        heard();
    }
    // The record may be null: a chunk that holds "Finished_" but no line
    // starting with it completes the test before any record was made.
    void testDidFinished(const PerfResultPtr &) override
    {
        heard();
        finished = true;
    }
    void testDidFail(const QString &message) override
    {
        FUZZ_CHECK(!message.isNull(), QString());
        heard();
    }
    void didResolvedLocalIP(const QString &address) override
    {
        FUZZ_CHECK(!address.isNull(), QString());
        heard();
    }

private:
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
    CheckingDelegate delegate;
    PerfTest test;
    test.setDelegate(&delegate);
    test.server = QStringLiteral("127.0.0.1");
    test.port = 5201;
    test.stats_interval = 1;
    test.duration = data[0] & 0x07;
    test.testType = (data[0] >> 3) & 1;
    test.reverse = (data[0] >> 4) & 1;
    test.bandwidthformat = (data[0] >> 5) & 1;

    const QList<QByteArray> chunks = FuzzSupport::pieces(data + 1, size - 1);
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
