// The launcher's line transformer on arbitrary iperf3 output, line by line
// with one tagger, as the launcher feeds it. Besides not crashing, every
// tagged line must keep the contract the engine's parsers rely on.
#include "FuzzSupport.h"
#include "LineTagger.h"

#include <QString>

#include <string>
#include <string_view>
#include <vector>

namespace {

std::vector<std::string_view> split(std::string_view text, std::string_view separator)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t at = text.find(separator);
        parts.push_back(text.substr(0, at));
        if (at == std::string_view::npos)
            return parts;
        text.remove_prefix(at + separator.size());
    }
}

bool isWholeNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

void checkTagged(std::string_view line, const std::string &tagged)
{
    const QString detail = QString::fromUtf8(line.data(), qsizetype(line.size())) + QStringLiteral(" -> ")
        + QString::fromStdString(tagged);
    // One whole line per tag, so a write never carries half of one.
    FUZZ_CHECK(tagged.ends_with('\n') && tagged.find('\n') == tagged.size() - 1, detail);
    const std::string_view body(tagged.data(), tagged.size() - 1);
    const std::vector<std::string_view> fields = split(body, "$#");
    FUZZ_CHECK(fields.size() == 5 || fields.size() == 7, detail);
    FUZZ_CHECK(fields[0] == "RESULT_" || fields[0] == "Finished_" || fields[0] == "RESULT_UP" || fields[0] == "RESULT_DOWN" || fields[0] == "Finished_UP" || fields[0] == "Finished_DOWN", detail);
    FUZZ_CHECK(fields[1].ends_with(" sec") && fields[1].find('-', 1) != std::string_view::npos, detail);
    FUZZ_CHECK(isWholeNumber(fields[2]) && isWholeNumber(fields[3]), detail);
    FUZZ_CHECK(fields.back() == "sender" || fields.back() == "receiver", detail);
    // The parsers react to these words anywhere in a chunk.
    FUZZ_CHECK(body.find("error") == std::string_view::npos, detail);
    FUZZ_CHECK(body.find("connected to") == std::string_view::npos, detail);
    FUZZ_CHECK(body.find("Finished", 1) == std::string_view::npos, detail);
}

// A client's link lines: whole lines of a tag of their own, keys with numbers.
void checkLinkLine(std::string_view line, std::string_view linkLine)
{
    const QString detail = QString::fromUtf8(line.data(), qsizetype(line.size())) + QStringLiteral(" -> ")
        + QString::fromUtf8(linkLine.data(), qsizetype(linkLine.size()));
    const std::vector<std::string_view> fields = split(linkLine, "$#");
    FUZZ_CHECK(fields.size() >= 3 && fields[1].ends_with(" sec"), detail);
    FUZZ_CHECK(fields[0] == "LINK_UP" || fields[0] == "LINK_DOWN" || fields[0] == "PEER_UP" || fields[0] == "PEER_DOWN"
                   || fields[0] == "LINK_TOTAL_UP" || fields[0] == "LINK_TOTAL_DOWN", detail);
    for (std::size_t i = 2; i < fields.size(); ++i) {
        const std::size_t equals = fields[i].find('=');
        FUZZ_CHECK(equals != std::string_view::npos && fields[i].substr(equals + 1).find_first_not_of("0123456789.eE+-") == std::string_view::npos, detail);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    LineTagger tagger;
    // A two-way client of two streams, with link lines, on the same text.
    LineTagger client(LineTagger::Mode::Client,
                      {.streams = 2, .twoWay = size % 2 == 0, .linkHealth = true, .roundTrip = [](bool up) { return std::optional<double>(up ? 40.0 : 41.0); }});
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    for (std::string_view line : split(text, "\n")) {
        if (const auto tagged = tagger.tag(line))
            checkTagged(line, *tagged);
        for (const std::string &write : client.writes(line)) {
            for (std::string_view out : split(write, "\n")) {
                if (out.starts_with("LINK_") || out.starts_with("PEER_"))
                    checkLinkLine(line, out);
                else if (out.starts_with("RESULT_") || out.starts_with("Finished_"))
                    checkTagged(line, std::string(out) + "\n");
            }
        }
    }
    return 0;
}
