// The defaults resource as the application reads it at start: an arbitrary
// file handed to SettingsStore::registerDefaultsFromFile, then every key the
// program reads, through every typed read. Also: whatever the property-list
// reader accepts, the writer turns into a list the reader accepts again.
#include "FuzzSupport.h"
#include "shell/PropertyList.h"
#include "shell/SettingsStore.h"

#include <QDir>
#include <QFile>

#include <sys/mman.h>
#include <unistd.h>

namespace {

const QStringList kKeys = {
    QStringLiteral("serverPort"),         QStringLiteral("clientToServerIpAddress"),
    QStringLiteral("clientToServerPort"), QStringLiteral("testDuration"),
    QStringLiteral("statsInterval"),      QStringLiteral("testType"),
    QStringLiteral("transfer_Direction"), QStringLiteral("bandwidthformat"),
    QStringLiteral("sendBandwidth"),      QStringLiteral("graphMaxSpeed"),
    QStringLiteral("bufferLength"),       QStringLiteral("audioAlert"),
    QStringLiteral("IPAddresss")};

// The resource lives in an anonymous in-memory file, rewritten per input, so
// fuzzing does no disk I/O.
int resourceDescriptor()
{
    static const int fd = memfd_create("tidewave-defaults", 0);
    if (fd < 0)
        FuzzSupport::fail("memfd_create works");
    return fd;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzSupport::ensureApplication();
    static SettingsStore store(QDir(qEnvironmentVariable("XDG_CONFIG_HOME")).filePath(QStringLiteral("fuzz.ini")));

    const int fd = resourceDescriptor();
    if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        FuzzSupport::fail("the in-memory resource can be written");
    store.clearRegisteredDefaults();
    const bool registered = store.registerDefaultsFromFile(QStringLiteral("/proc/self/fd/%1").arg(fd));
    for (const QString &key : kKeys) {
        (void)store.stringForKey(key);
        (void)store.integerForKey(key);
        (void)store.boolForKey(key);
        (void)store.hasStringForKey(key);
        // A resource that is refused registers nothing at all.
        if (!registered)
            FUZZ_CHECK(!store.objectForKey(key).isValid(), key);
    }

    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const std::optional<QVariant> root = PropertyList::fromXml(bytes)) {
        const QByteArray written = PropertyList::toXml(*root);
        FUZZ_CHECK(PropertyList::fromXml(written).has_value(), QString::fromUtf8(written));
    }
    return 0;
}
