#include "FuzzSupport.h"

#include <QCoreApplication>
#include <QStringDecoder>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace FuzzSupport {

void ensureApplication()
{
    static std::string folder;
    if (QCoreApplication::instance())
        return;
    std::string pattern = std::filesystem::temp_directory_path() / "tidewave-fuzz-XXXXXX";
    if (!mkdtemp(pattern.data()))
        fail("a private temporary folder can be made");
    folder = pattern;
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
    for (const char *variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) {
        const std::filesystem::path path = std::filesystem::path(folder) / QByteArray(variable).toLower().toStdString();
        std::filesystem::create_directories(path);
        setenv(variable, path.c_str(), 1);
    }
    // Kept for the life of the process: destroying it during exit, after Qt's
    // own globals, crashes. Qt keeps the argument references.
    static int argc = 1;
    static char name[] = "tidewave-fuzz";
    static char *argv[] = {name, nullptr};
    new QCoreApplication(argc, argv);
}

QList<QByteArray> pieces(const uint8_t *data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size))
        .split(kSeparator);
}

QString strictUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    return text.isNull() ? QStringLiteral("") : text;
}

void fail(const char *what, const QString &detail)
{
    std::fprintf(stderr, "invariant broken: %s\n", what);
    if (!detail.isEmpty())
        std::fprintf(stderr, "  %s\n", detail.toUtf8().constData());
    std::fflush(stderr);
    std::abort();
}

} // namespace FuzzSupport
