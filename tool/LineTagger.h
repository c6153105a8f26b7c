#pragma once

#include <optional>
#include <string>
#include <string_view>

// Reads iperf3's standard output one line at a time and produces, for each
// per-interval or summary report line, the tagged result line the
// application's parsers read:
//   RESULT_$#0.00-1.00 sec$#BYTES$#BITS_PER_SECOND$#ROLE
//   Finished_$#0.00-10.00 sec$#BYTES$#BITS_PER_SECOND$#JITTER$#LOST_TOTAL$#ROLE
// (seven fields when the line carries UDP jitter and loss, five otherwise).
// Pure: no I/O, so it can be tested and fuzzed on captured text.
class LineTagger
{
public:
    // One line without its line end. Column headers set the role of the
    // interval lines that follow them; a report line gives its tagged line,
    // ending in "\n"; anything else gives nothing.
    std::optional<std::string> tag(std::string_view line);

private:
    // Role of interval lines under the most recent column header.
    bool m_intervalsFromSender = false;
};
