// The results-file reader on arbitrary bytes. A refused file says so in one
// sentence naming it and opens nothing; an accepted one, written again and
// read back, gives the same file (nothing is lost or changed on the way).
#include "FuzzSupport.h"
#include "records/ResultsFile.h"
#include "shell/SettingsStore.h"

#include <QDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    static SettingsStore store(QDir::temp().filePath(QStringLiteral("fuzz-results-file.ini")));
    static const QString name = QStringLiteral("in.tidewave.json");
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const ResultsFile::ReadResult read = ResultsFile::parse(bytes, name, store);
    if (!read.error.isEmpty()) {
        FUZZ_CHECK(read.tests.isEmpty(), read.error);
        FUZZ_CHECK(read.error.startsWith(QStringLiteral("Could not open \"in.tidewave.json\": ")), read.error);
        FUZZ_CHECK(read.error.endsWith(QLatin1Char('.')) && !read.error.contains(QLatin1Char('\n')), read.error);
        return 0;
    }
    const QByteArray written = ResultsFile::serialize(read.tests, QStringLiteral("fuzz"));
    const ResultsFile::ReadResult again = ResultsFile::parse(written, name, store);
    FUZZ_CHECK(again.error.isEmpty(), again.error);
    FUZZ_CHECK(ResultsFile::serialize(again.tests, QStringLiteral("fuzz")) == written, QString::fromUtf8(written.left(200)));
    return 0;
}
