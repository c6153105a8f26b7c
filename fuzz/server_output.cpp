// The server's output parser on arbitrary chunk sequences (pieces of the
// input, separated by FuzzSupport::kSeparator), decoded as the server decodes
// its pipe.
#include "FuzzSupport.h"
#include "PerfHelper/PerfServer.h"

namespace {

class CheckingDelegate : public PerfServerDelegate
{
public:
    void reportIntervalNew(const iPerfServerResultsPtr &test) override { check(test); }
    void testDidFinished(const iPerfServerResultsPtr &test) override { check(test); }

private:
    static void check(const iPerfServerResultsPtr &test)
    {
        FUZZ_CHECK(test != nullptr, QString());
        for (const PerfResultPtr &record : test->intervalResults)
            FUZZ_CHECK(record != nullptr, QString());
        for (const PerfResultPtr &record : test->finalResults)
            FUZZ_CHECK(record != nullptr, QString());
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    CheckingDelegate delegate;
    PerfServer server;
    server.setDelegate(&delegate);
    server.setPort(5201);
    for (const QByteArray &chunk : FuzzSupport::pieces(data, size)) {
        const QString text = FuzzSupport::strictUtf8(chunk);
        if (!text.isNull())
            server.didReceivePerfTestRespnose(text);
    }
    return 0;
}
