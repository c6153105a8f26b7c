#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Reads iperf3's standard output one line at a time and produces, for each
// per-interval or summary report line, the tagged result line the
// application's parsers read:
//   RESULT_$#0.00-1.00 sec$#BYTES$#BITS_PER_SECOND$#ROLE
//   Finished_$#0.00-10.00 sec$#BYTES$#BITS_PER_SECOND$#JITTER$#LOST_TOTAL$#ROLE
// (seven fields when the line carries UDP jitter and loss, five otherwise).
// Pure: no I/O, so it can be tested and fuzzed on captured text.
//
// A client run (Options::linkHealth) also gets the link figures of each
// interval on lines of tags of their own, which the result parsers skip:
//   LINK_UP$#0.00-1.00 sec$#retr=3$#cwnd=65160$#rtt=40.31     (before the RESULT_ line of that interval)
//   PEER_DOWN$#0.00-1.00 sec$#retr=2$#cwnd=65160               (the server's own interval, at the end)
//   LINK_TOTAL_DOWN$#0.00-10.04 sec$#retr=35                    (iperf3's total, with the summary tags)
// UP: this computer sent the interval's data; DOWN: it received them.
class LineTagger
{
public:
    // Which end iperf3 runs as. A client's summary is the test's result, so
    // it is held until iperf3 says the run ended normally ("iperf Done."),
    // and then the receiver's line comes first: it holds what arrived, while
    // the sender's line only counts what was sent. A run that ends in an
    // error or an interrupt gets no summary tags at all.
    enum class Mode { Server, Client };

    // What a client run asked iperf3 for beyond the defaults.
    struct Options
    {
        int streams = 1;         // -P: above 1 the [SUM] lines are tagged, not each stream's
        bool twoWay = false;     // --bidir: "[TX-C]"/"[RX-C]" lines, tags RESULT_UP/RESULT_DOWN, Finished_UP/_DOWN
        bool linkHealth = false; // LINK_/PEER_ lines; the "Server output:" block iperf3 prints on
                                 // --get-server-output is read for them and not copied
        // The round-trip time of the interval now reported, ms, for the
        // direction given (true: this computer sends); nothing when unknown.
        std::function<std::optional<double>(bool up)> roundTrip;
    };

    explicit LineTagger(Mode mode = Mode::Server) : m_mode(mode) {}
    LineTagger(Mode mode, Options options) : m_mode(mode), m_options(std::move(options)) {}

    // One line without its line end. Column headers set the role of the
    // interval lines that follow them; a report line gives its tagged line,
    // ending in "\n"; anything else gives nothing. An interval iperf3
    // prints a second time (it repeats the last one when the server goes
    // away) is not tagged again.
    std::optional<std::string> tag(std::string_view line);

    // What the launcher writes for one line of iperf3's output (given with or
    // without its "\n"): each element one write of whole lines, a report line
    // together with its tagged lines. Lines of the server's output block give
    // only their PEER_ lines.
    std::vector<std::string> writes(std::string_view line);
    // What is still held when iperf3's output ends.
    std::string flush() { return std::exchange(m_heldBlank, std::string()); }

private:
    struct Report;
    std::optional<Report> report(std::string_view line, bool server) const;
    std::optional<std::string> tagLine(std::string_view line, std::string *health);
    std::string taggedLine(const Report &r) const;
    std::string healthLine(const Report &r, bool up, std::string_view tag) const;
    std::string serverBlockLine(std::string_view line);
    std::string serverJsonLine(std::string_view line);

    Mode m_mode;
    Options m_options;
    // Role of interval lines under the most recent column header.
    bool m_intervalsFromSender = false;
    bool m_retrColumn = false; // the header has a "Retr" column
    bool m_clientSends = true; // as its last interval line said (a summary's role is iperf3's)
    // Each stream's last tagged interval ("[  5]" -> "2.00-3.00"), cleared by
    // a column header.
    std::map<std::string, std::string, std::less<>> m_lastInterval;
    // A client's summary tags until "iperf Done.", receivers' and senders'.
    std::string m_heldReceivers;
    std::string m_heldSenders;
    std::string m_heldTotals; // LINK_TOTAL_ lines, ahead of the summary tags
    // An empty line, held until the next shows whether it opens the server's
    // output block (which comes with one of its own).
    std::string m_heldBlank;
    bool m_inServerBlock = false;
    bool m_serverIntervalsFromSender = false;
    bool m_serverRetrColumn = false;
    bool m_serverJson = false; // the server sent its report as JSON
    struct
    {
        bool inIntervals = false;
        bool inSum = false;
        std::map<std::string, std::string, std::less<>> values; // of the "sum" object being read
    } m_json;
};
