// Runs a fuzz target's entry over files, without libFuzzer: the normal (gcc)
// build uses it to replay each target's seed corpus as a quick, deterministic
// test. A crash or a broken invariant aborts, which fails the test.
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <corpus folder or file>...\n", argv[0]);
        return 2;
    }
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        if (QFileInfo(path).isDir()) {
            const QDir folder(path);
            for (const QString &name : folder.entryList(QDir::Files, QDir::Name))
                files.append(folder.filePath(name));
        } else {
            files.append(path);
        }
    }
    // An empty corpus would make the test pass without running anything.
    if (files.isEmpty()) {
        std::fprintf(stderr, "no input files\n");
        return 1;
    }
    for (const QString &path : files) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
            return 1;
        }
        const QByteArray bytes = file.readAll();
        std::printf("%s (%lld bytes)\n", qPrintable(QFileInfo(path).fileName()), static_cast<long long>(bytes.size()));
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size()));
    }
    std::printf("%lld inputs replayed\n", static_cast<long long>(files.size()));
    return 0;
}
