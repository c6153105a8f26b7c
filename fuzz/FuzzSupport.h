#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares, in the libFuzzer build and in the corpus
// replay programs alike.
namespace FuzzSupport {

// Separates the pieces of one input (output chunks, peer names, the texts of
// the inventory): ASCII record separator, which none of the real texts holds.
constexpr char kSeparator = '\x1e';

// A QCoreApplication for the process, created on first call, with the user
// folders (settings, data, cache) moved to a private temporary folder that
// is removed at exit, so a fuzzer never touches the user's real settings.
void ensureApplication();

// The input split at kSeparator; an input without one is a single piece.
QList<QByteArray> pieces(const uint8_t *data, size_t size);

// UTF-8 text as the engine decodes a chunk: a null QString when the bytes
// are not valid UTF-8.
QString strictUtf8(const QByteArray &bytes);

// Reports a broken invariant and aborts, so the fuzzer (or the replay test)
// records the input as a finding.
[[noreturn]] void fail(const char *what, const QString &detail = QString());

} // namespace FuzzSupport

// Aborts with the condition's text when it does not hold; active in every build.
#define FUZZ_CHECK(condition, detail)                                                                              \
    do {                                                                                                           \
        if (!(condition))                                                                                          \
            ::FuzzSupport::fail(#condition, (detail));                                                             \
    } while (false)
