#include "LineTagger.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view kSeparator = "$#";

// Intervals at least this long take their byte count from the rate column
// (see byteCount); shorter ones from the Transfer column.
constexpr double kRateDerivedMinimumSeconds = 0.5;

std::vector<std::string_view> words(std::string_view text)
{
    std::vector<std::string_view> out;
    std::size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
            ++i;
        const std::size_t start = i;
        while (i < text.size() && text[i] != ' ' && text[i] != '\t')
            ++i;
        if (i > start)
            out.push_back(text.substr(start, i - start));
    }
    return out;
}

// The whole word as a number, or nothing. iperf3 prints no negative times,
// volumes, rates or jitter, so a line with one is not a report line.
std::optional<double> number(std::string_view word)
{
    double value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(value) || value < 0)
        return std::nullopt;
    return value;
}

// Byte and bit counts are written as whole numbers of a 64-bit integer.
constexpr double kLargestCount = 9.0e18;

// Whether the word holds only these characters. The jitter columns are
// copied into the tagged line, so nothing the parsers react to ("error",
// "Finished", the "$#" separator) may come through them.
bool onlyOf(std::string_view word, std::string_view allowed)
{
    return !word.empty() && word.find_first_not_of(allowed) == std::string_view::npos;
}

std::size_t decimals(std::string_view word)
{
    const std::size_t dot = word.find('.');
    return dot == std::string_view::npos ? 0 : word.size() - dot - 1;
}

// iperf3's volume units are powers of 1024, its rate units powers of 1000.
std::optional<double> byteUnit(std::string_view unit)
{
    static constexpr std::array<std::string_view, 5> units = {"Bytes", "KBytes", "MBytes", "GBytes", "TBytes"};
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (unit == units[i])
            return std::pow(1024.0, static_cast<double>(i));
    }
    return std::nullopt;
}

std::optional<double> rateUnit(std::string_view unit)
{
    static constexpr std::array<std::string_view, 5> units = {"bits/sec", "Kbits/sec", "Mbits/sec", "Gbits/sec",
                                                              "Tbits/sec"};
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (unit == units[i])
            return std::pow(1000.0, static_cast<double>(i));
    }
    return std::nullopt;
}

// The Transfer column is the exact byte count rounded to three significant
// digits, so the true count lies within half a printed digit of it. The rate
// column (--format k) keeps every Kbit, and rate x interval / 8 is the exact
// count up to the difference between the printed and the measured interval
// length; iperf3's timers keep that difference to a fraction of a
// millisecond, so for intervals of half a second and more the rate gives the
// better figure. It is still held inside the Transfer column's rounding
// window, which the true count cannot leave (this also catches an interval
// whose measured length strayed from the printed one). Shorter intervals,
// such as the zero-length tail "3.00-3.00" a server prints, take the
// Transfer column as printed.
long long byteCount(double transfer, double halfDigit, double bitsPerSecond, double seconds)
{
    if (seconds < kRateDerivedMinimumSeconds)
        return std::llround(transfer);
    // Byte counts are whole, so the window is too ("640 Bytes" is exactly 640).
    const double low = std::max(0.0, std::ceil(transfer - halfDigit));
    const double high = std::max(low, std::floor(transfer + halfDigit));
    return std::llround(std::clamp(bitsPerSecond * seconds / 8.0, low, high));
}

// "[ ID] Interval", or "[ ID][Role] Interval" in a two-way test.
bool isHeader(std::string_view line)
{
    return line.starts_with("[ ID] Interval") || line.starts_with("[ ID][Role] Interval");
}

// "Retr" marks a TCP sender's columns and a bare "Total Datagrams" (not
// "Lost/Total Datagrams") a UDP sender's.
bool headerIntroducesSender(std::string_view line)
{
    if (line.find("Retr") != std::string_view::npos)
        return true;
    const std::size_t total = line.find("Total Datagrams");
    return total != std::string_view::npos && (total == 0 || line[total - 1] != '/');
}

bool allDigits(std::string_view word)
{
    return onlyOf(word, "0123456789");
}

std::optional<long long> wholeNumber(std::string_view word)
{
    long long value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (!allDigits(word) || error != std::errc() || end != word.data() + word.size())
        return std::nullopt;
    return value;
}

} // namespace

// One report line taken apart.
struct LineTagger::Report
{
    std::string stream;            // "[  5]", "[SUM]", "[  5][TX-C]": what a repeat is recognised by
    bool sum = false;              // a "[SUM]" line
    int way = 0;                   // two-way lines: 1 "[TX-…]" (that end sends), -1 "[RX-…]"; 0 none
    std::string_view interval;     // "0.00-1.00"
    long long bytes = 0;
    long long bitsPerSecond = 0;
    bool summary = false;
    bool sender = false;           // the role
    std::vector<std::string_view> rest; // the columns after the rate
    bool hasJitter = false;        // UDP receiver columns "0.012 ms  0/8 (0%)"
    std::optional<long long> retransmits;
    std::optional<long long> cwnd; // bytes
};

std::optional<LineTagger::Report> LineTagger::report(std::string_view line, bool server) const
{
    // "[  5]" with a numeric stream id or "[SUM]", then a two-way role
    // ("[TX-C]") in a two-way test only.
    if (!line.starts_with('['))
        return std::nullopt;
    const std::size_t close = line.find(']');
    if (close == std::string_view::npos || close + 1 >= line.size())
        return std::nullopt;
    Report r;
    const std::vector<std::string_view> id = words(line.substr(1, close - 1));
    if (id.size() != 1)
        return std::nullopt;
    r.sum = id[0] == "SUM";
    if (!r.sum && !allDigits(id[0]))
        return std::nullopt;
    if (r.sum != (m_options.streams > 1))
        return std::nullopt;
    std::size_t end = close + 1;
    if (line[end] == '[') {
        const std::string_view role = line.substr(end, 6);
        const std::string_view side = server ? "S]" : "C]";
        if (!m_options.twoWay || role.size() != 6 || !role.ends_with(side) || role[3] != '-')
            return std::nullopt;
        if (role.starts_with("[TX"))
            r.way = 1;
        else if (role.starts_with("[RX"))
            r.way = -1;
        else
            return std::nullopt;
        end += 6;
    } else if (m_options.twoWay) {
        return std::nullopt;
    }
    r.stream = std::string(line.substr(0, end));

    const std::vector<std::string_view> w = words(line.substr(end));
    // interval, "sec", transfer, its unit, rate, its unit, then the rest.
    if (w.size() < 6 || w[1] != "sec")
        return std::nullopt;
    const std::size_t dash = w[0].find('-', 1);
    if (dash == std::string_view::npos)
        return std::nullopt;
    const auto start = number(w[0].substr(0, dash));
    const auto stop = number(w[0].substr(dash + 1));
    const auto transfer = number(w[2]);
    const auto transferUnit = byteUnit(w[3]);
    const auto rate = number(w[4]);
    const auto rateScale = rateUnit(w[5]);
    if (!start || !stop || !transfer || !transferUnit || !rate || !rateScale)
        return std::nullopt;
    r.interval = w[0];

    r.rest.assign(w.begin() + 6, w.end());
    const std::vector<std::string_view> &rest = r.rest;
    if (std::find(rest.begin(), rest.end(), "(omitted)") != rest.end())
        return std::nullopt;

    r.summary = !rest.empty() && (rest.back() == "sender" || rest.back() == "receiver");
    const bool fromSender = server ? m_serverIntervalsFromSender : m_intervalsFromSender;
    r.sender = r.summary ? rest.back() == "sender" : (r.way != 0 ? r.way > 0 : fromSender);
    // UDP receiver intervals and every UDP summary: "0.012 ms  0/8 (0%)".
    // Lost/total is "%d/%d", the loss "(%.2g%%)": "(0%)", "(1e+02%)", "(-nan%)".
    r.hasJitter = rest.size() >= 4 && rest[1] == "ms" && number(rest[0])
        && rest[2].find('/') != std::string_view::npos && onlyOf(rest[2], "-0123456789/")
        && rest[3].starts_with('(') && rest[3].ends_with("%)") && onlyOf(rest[3], "()%0123456789.e+-naif");
    // A TCP sender's interval: "  3   1.12 MBytes"; a summary or sum: "  3".
    if (r.sender && !r.hasJitter && !rest.empty() && (server ? m_serverRetrColumn : m_retrColumn)) {
        r.retransmits = wholeNumber(rest[0]);
        if (r.retransmits && rest.size() >= 3 && !r.summary) {
            const auto window = number(rest[1]);
            const auto unit = byteUnit(rest[2]);
            if (window && unit && *window * *unit < kLargestCount)
                r.cwnd = std::llround(*window * *unit);
        }
    }

    const double bitsPerSecond = *rate * *rateScale;
    const double halfDigit = 0.5 * std::pow(10.0, -static_cast<double>(decimals(w[2]))) * *transferUnit;
    if (!(bitsPerSecond < kLargestCount) || !(*transfer * *transferUnit + halfDigit < kLargestCount))
        return std::nullopt;
    r.bytes = byteCount(*transfer * *transferUnit, halfDigit, bitsPerSecond, *stop - *start);
    r.bitsPerSecond = std::llround(bitsPerSecond);
    return r;
}

std::string LineTagger::taggedLine(const Report &r) const
{
    std::string out = r.summary ? "Finished_" : "RESULT_";
    if (r.way != 0)
        out += r.way > 0 ? "UP" : "DOWN";
    auto field = [&out](std::string_view text) {
        out += kSeparator;
        out += text;
    };
    field(std::string(r.interval) + " sec");
    field(std::to_string(r.bytes));
    field(std::to_string(r.bitsPerSecond));
    if (r.hasJitter) {
        field(std::string(r.rest[0]) + " ms");
        field(std::string(r.rest[2]) + " " + std::string(r.rest[3]));
    }
    field(r.sender ? "sender" : "receiver");
    out += '\n';
    return out;
}

// The figures of one interval: "retr", "cwnd" of a TCP sender, "jitter",
// "lost", "total" of a UDP receiver, "rtt" (ms) of this computer's sockets.
std::string LineTagger::healthLine(const Report &r, bool up, std::string_view tag) const
{
    std::string out;
    auto field = [&out](std::string_view key, const std::string &value) {
        out += kSeparator;
        out += key;
        out += '=';
        out += value;
    };
    if (r.retransmits)
        field("retr", std::to_string(*r.retransmits));
    if (r.cwnd)
        field("cwnd", std::to_string(*r.cwnd));
    if (r.hasJitter) {
        const std::size_t slash = r.rest[2].find('/');
        const auto lost = wholeNumber(r.rest[2].substr(0, slash));
        const auto total = wholeNumber(r.rest[2].substr(slash + 1));
        field("jitter", std::string(r.rest[0]));
        if (lost && total) {
            field("lost", std::to_string(*lost));
            field("total", std::to_string(*total));
        }
    }
    if (tag == "LINK_" && m_options.roundTrip) {
        if (const auto ms = m_options.roundTrip(up); ms && std::isfinite(*ms) && *ms >= 0) {
            char text[32];
            std::snprintf(text, sizeof text, "%.3f", *ms);
            field("rtt", text);
        }
    }
    if (out.empty())
        return out;
    return std::string(tag) + (up ? "UP" : "DOWN") + std::string(kSeparator) + std::string(r.interval)
        + " sec" + out + "\n";
}

std::optional<std::string> LineTagger::tag(std::string_view line)
{
    return tagLine(line, nullptr);
}

std::optional<std::string> LineTagger::tagLine(std::string_view line, std::string *health)
{
    if (isHeader(line)) {
        m_intervalsFromSender = headerIntroducesSender(line);
        m_retrColumn = line.find("Retr") != std::string_view::npos;
        m_lastInterval.clear();
        return std::nullopt;
    }
    if (m_mode == Mode::Client && line == "iperf Done.") {
        std::string held = m_heldTotals + m_heldReceivers + m_heldSenders;
        m_heldTotals.clear();
        m_heldReceivers.clear();
        m_heldSenders.clear();
        if (held.empty())
            return std::nullopt;
        return held;
    }
    const std::optional<Report> r = report(line, false);
    if (!r)
        return std::nullopt;
    std::string out = taggedLine(*r);
    if (r->summary) {
        if (m_mode == Mode::Server)
            return out;
        // iperf3's totals (a TCP sender's retransmits, a UDP receiver's loss)
        // can hold a little more than its intervals: what happened after the
        // last one it reported.
        // They come with the summary tags, after a normal end only.
        if (health && (r->retransmits || (r->hasJitter && !r->sender)))
            m_heldTotals += healthLine(*r, r->way != 0 ? r->way > 0 : m_clientSends, "LINK_TOTAL_");
        (r->sender ? m_heldSenders : m_heldReceivers) += out;
        return std::nullopt;
    }
    std::string &last = m_lastInterval[r->stream];
    if (last == r->interval)
        return std::nullopt;
    last = std::string(r->interval);
    if (r->way == 0)
        m_clientSends = r->sender;
    // This computer sends when its own line is a sender's.
    if (health)
        *health = healthLine(*r, r->sender, "LINK_");
    return out;
}

std::string LineTagger::serverBlockLine(std::string_view line)
{
    if (m_serverJson)
        return serverJsonLine(line);
    if (isHeader(line)) {
        m_serverIntervalsFromSender = headerIntroducesSender(line);
        m_serverRetrColumn = line.find("Retr") != std::string_view::npos;
        return {};
    }
    const std::optional<Report> r = report(line, true);
    if (!r || r->summary)
        return {};
    // This computer sends when the server's line is a receiver's.
    return healthLine(*r, !r->sender, "PEER_");
}

// A server run with -J sends its report as iperf3's JSON, one member a line:
// each interval's "sum" (and a two-way test's "sum_bidir_reverse") object
// gives a PEER_ line; the "end" object is past the intervals.
std::string LineTagger::serverJsonLine(std::string_view line)
{
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    line.remove_prefix(first);
    if (!m_json.inSum) {
        if (line.starts_with("\"intervals\":"))
            m_json.inIntervals = true;
        else if (line.starts_with("\"end\":") && line.ends_with("{"))
            m_json.inIntervals = false;
        else if (m_json.inIntervals && (line.starts_with("\"sum\":") || line.starts_with("\"sum_bidir_reverse\":")) && line.ends_with("{"))
            m_json.inSum = true, m_json.values.clear();
        return {};
    }
    if (!line.starts_with('}')) {
        // "key":<tab>value, with a comma but on the last member.
        const std::size_t colon = line.find("\":");
        if (line.starts_with('"') && colon != std::string_view::npos) {
            std::string_view value = line.substr(colon + 2);
            value.remove_prefix(std::min(value.size(), value.find_first_not_of(" \t")));
            if (value.ends_with(','))
                value.remove_suffix(1);
            m_json.values[std::string(line.substr(1, colon - 1))] = std::string(value);
        }
        return {};
    }
    m_json.inSum = false;
    const auto value = [this](const char *key) -> std::optional<double> {
        const auto at = m_json.values.find(key);
        return at == m_json.values.end() ? std::nullopt : number(at->second);
    };
    const auto start = value("start");
    const auto end = value("end");
    if (!start || !end)
        return {};
    // The server's data went down to this computer when it was the sender.
    const bool up = m_json.values["sender"] != "true";
    char interval[64];
    std::snprintf(interval, sizeof interval, "%.2f-%.2f sec", *start, *end);
    std::string out = std::string("PEER_") + (up ? "UP" : "DOWN") + std::string(kSeparator) + interval;
    const std::size_t bare = out.size();
    for (const auto &[key, name] : {std::pair{"retransmits", "retr"}, {"jitter_ms", "jitter"}, {"lost_packets", "lost"}, {"packets", "total"}}) {
        if (const auto figure = value(key); figure && *figure < kLargestCount) {
            char text[32];
            std::snprintf(text, sizeof text, name == std::string_view("jitter") ? "%.3f" : "%.0f", *figure);
            out += std::string(kSeparator) + name + "=" + text;
        }
    }
    return out.size() == bare ? std::string() : out + "\n";
}

std::vector<std::string> LineTagger::writes(std::string_view line)
{
    std::string_view text = line;
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    std::vector<std::string> out;
    const bool health = m_options.linkHealth && m_mode == Mode::Client;
    if (health) {
        if (m_inServerBlock) {
            // A text block ends with an empty line of its own, JSON with its last brace.
            if (m_serverJson ? text == "}" : text.empty())
                m_inServerBlock = false;
            else if (std::string peer = serverBlockLine(text); !peer.empty())
                out.push_back(std::move(peer));
            return out;
        }
        if (text == "Server output:" || text == "Server JSON output:") {
            // iperf3 opens the block with an empty line: both go.
            m_heldBlank.clear();
            m_inServerBlock = true;
            m_serverJson = text != "Server output:";
            m_json = {};
            return out;
        }
        if (!m_heldBlank.empty())
            out.push_back(std::exchange(m_heldBlank, std::string()));
        if (text.empty()) {
            m_heldBlank = std::string(line);
            return out;
        }
    }
    std::string figures;
    const auto tagged = tagLine(text, health ? &figures : nullptr);
    if (!tagged) {
        out.push_back(std::string(line) + (figures.empty() || line.ends_with('\n') ? "" : "\n") + figures);
        return out;
    }
    std::string both(line);
    if (!line.ends_with('\n'))
        both += '\n';
    out.push_back(both + figures + *tagged);
    return out;
}
