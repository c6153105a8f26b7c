#pragma once

#include <map>
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
    // Which end iperf3 runs as. A client's summary is the test's result, so
    // it is held until iperf3 says the run ended normally ("iperf Done."),
    // and then the receiver's line comes first: it holds what arrived, while
    // the sender's line only counts what was sent. A run that ends in an
    // error or an interrupt gets no summary tags at all.
    enum class Mode { Server, Client };

    explicit LineTagger(Mode mode = Mode::Server) : m_mode(mode) {}

    // One line without its line end. Column headers set the role of the
    // interval lines that follow them; a report line gives its tagged line,
    // ending in "\n"; anything else gives nothing. An interval iperf3
    // prints a second time (it repeats the last one when the server goes
    // away) is not tagged again.
    std::optional<std::string> tag(std::string_view line);

private:
    Mode m_mode;
    // Role of interval lines under the most recent column header.
    bool m_intervalsFromSender = false;
    // Each stream's last tagged interval ("[  5]" -> "2.00-3.00"), cleared by
    // a column header.
    std::map<std::string, std::string, std::less<>> m_lastInterval;
    // A client's summary tags until "iperf Done.", receivers' and senders'.
    std::string m_heldReceivers;
    std::string m_heldSenders;
};
