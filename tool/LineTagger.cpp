#include "LineTagger.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
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

bool isHeader(std::string_view line)
{
    return line.starts_with("[ ID] Interval");
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

} // namespace

std::optional<std::string> LineTagger::tag(std::string_view line)
{
    if (isHeader(line)) {
        m_intervalsFromSender = headerIntroducesSender(line);
        m_lastInterval.clear();
        return std::nullopt;
    }
    if (m_mode == Mode::Client && line == "iperf Done.") {
        std::string held = m_heldReceivers + m_heldSenders;
        m_heldReceivers.clear();
        m_heldSenders.clear();
        if (held.empty())
            return std::nullopt;
        return held;
    }

    // Per-stream lines only: "[  5]" with a numeric stream id; "[SUM]" and
    // bidirectional "[  5][TX-C]" lines are left alone.
    if (!line.starts_with('['))
        return std::nullopt;
    const std::size_t close = line.find(']');
    if (close == std::string_view::npos || close + 1 >= line.size() || line[close + 1] == '[')
        return std::nullopt;
    const std::vector<std::string_view> id = words(line.substr(1, close - 1));
    if (id.size() != 1 || !std::all_of(id[0].begin(), id[0].end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;

    const std::vector<std::string_view> w = words(line.substr(close + 1));
    // interval, "sec", transfer, its unit, rate, its unit, then the rest.
    if (w.size() < 6 || w[1] != "sec")
        return std::nullopt;
    const std::size_t dash = w[0].find('-', 1);
    if (dash == std::string_view::npos)
        return std::nullopt;
    const std::string_view startText = w[0].substr(0, dash);
    const std::string_view endText = w[0].substr(dash + 1);
    const auto start = number(startText);
    const auto end = number(endText);
    const auto transfer = number(w[2]);
    const auto transferUnit = byteUnit(w[3]);
    const auto rate = number(w[4]);
    const auto rateScale = rateUnit(w[5]);
    if (!start || !end || !transfer || !transferUnit || !rate || !rateScale)
        return std::nullopt;

    const std::vector<std::string_view> rest(w.begin() + 6, w.end());
    if (std::find(rest.begin(), rest.end(), "(omitted)") != rest.end())
        return std::nullopt;

    const bool summary = !rest.empty() && (rest.back() == "sender" || rest.back() == "receiver");
    const std::string_view role = summary ? rest.back() : (m_intervalsFromSender ? "sender" : "receiver");
    // UDP receiver intervals and every UDP summary: "0.012 ms  0/8 (0%)".
    // Lost/total is "%d/%d", the loss "(%.2g%%)": "(0%)", "(1e+02%)", "(-nan%)".
    const bool hasJitter = rest.size() >= 4 && rest[1] == "ms" && number(rest[0])
        && rest[2].find('/') != std::string_view::npos && onlyOf(rest[2], "-0123456789/")
        && rest[3].starts_with('(') && rest[3].ends_with("%)") && onlyOf(rest[3], "()%0123456789.e+-naif");

    const double bitsPerSecond = *rate * *rateScale;
    const double halfDigit = 0.5 * std::pow(10.0, -static_cast<double>(decimals(w[2]))) * *transferUnit;
    if (!(bitsPerSecond < kLargestCount) || !(*transfer * *transferUnit + halfDigit < kLargestCount))
        return std::nullopt;
    const long long bytes = byteCount(*transfer * *transferUnit, halfDigit, bitsPerSecond, *end - *start);

    std::string out = summary ? "Finished_" : "RESULT_";
    auto field = [&out](std::string_view text) {
        out += kSeparator;
        out += text;
    };
    field(std::string(startText) + "-" + std::string(endText) + " sec");
    field(std::to_string(bytes));
    field(std::to_string(std::llround(bitsPerSecond)));
    if (hasJitter) {
        field(std::string(rest[0]) + " ms");
        field(std::string(rest[2]) + " " + std::string(rest[3]));
    }
    field(role);
    out += '\n';

    if (summary) {
        if (m_mode == Mode::Server)
            return out;
        (role == "receiver" ? m_heldReceivers : m_heldSenders) += out;
        return std::nullopt;
    }
    std::string &last = m_lastInterval[std::string(line.substr(0, close + 1))];
    const std::string interval = std::string(w[0]);
    if (last == interval)
        return std::nullopt;
    last = interval;
    return out;
}
