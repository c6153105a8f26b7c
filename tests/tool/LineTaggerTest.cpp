#include "LineTagger.h"

#include "common/TestEnvironment.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kReceiverHeader = "[ ID] Interval           Transfer     Bitrate";
const std::string kUdpSenderHeader = "[ ID] Interval           Transfer     Bitrate         Total Datagrams";
const std::string kUdpReceiverHeader = "[ ID] Interval           Transfer     Bitrate         Jitter    Lost/Total Datagrams";

struct LineCase
{
    std::string name;
    std::string header; // the column header seen before the line, if any
    std::string line;
    std::string expected; // the tagged line without its "\n"; empty: no tag
};

// Short names in test listings instead of a byte dump.
void PrintTo(const LineCase &c, std::ostream *os)
{
    *os << c.name;
}

class LineTaggerLines : public ::testing::TestWithParam<LineCase>
{
};

TEST_P(LineTaggerLines, TagsReportLinesOnly)
{
    const LineCase &c = GetParam();
    LineTagger tagger;
    if (!c.header.empty()) {
        EXPECT_FALSE(tagger.tag(c.header).has_value());
    }
    const auto tagged = tagger.tag(c.line);
    if (c.expected.empty()) {
        EXPECT_FALSE(tagged.has_value()) << *tagged;
    } else {
        ASSERT_TRUE(tagged.has_value());
        EXPECT_EQ(*tagged, c.expected + "\n");
    }
}

// The shapes the captures below do not hold; those they hold are covered by
// the golden test.
INSTANTIATE_TEST_SUITE_P(
    Shapes, LineTaggerLines,
    ::testing::Values(
        LineCase{"LossWithExponentPercentage", kUdpReceiverHeader,
                 "[  5]   4.00-5.00   sec  0.00 Bytes  0.00 Kbits/sec  0.020 ms  76/76 (1e+02%)  ",
                 "RESULT_$#4.00-5.00 sec$#0$#0$#0.020 ms$#76/76 (1e+02%)$#receiver"},
        // A summary line names its own role, whatever the header said.
        LineCase{"SummaryRoleFromItsWord", kUdpSenderHeader,
                 "[  5]   0.00-3.00   sec  7.16 MBytes  20009 Kbits/sec  0.037 ms  0/229 (0%)  receiver",
                 "Finished_$#0.00-3.00 sec$#7503375$#20009000$#0.037 ms$#0/229 (0%)$#receiver"},
        LineCase{"BeforeAnyHeaderIsReceiver", "", "[  5]   0.00-1.00   sec  1.00 MBytes  8389 Kbits/sec",
                 "RESULT_$#0.00-1.00 sec$#1048625$#8389000$#receiver"},
        LineCase{"LongRun", kReceiverHeader, "[  5] 100.00-101.00 sec  2.41 MBytes  20182 Kbits/sec",
                 "RESULT_$#100.00-101.00 sec$#2522750$#20182000$#receiver"},
        LineCase{"StockRateUnits", kReceiverHeader, "[  5]   0.00-1.00   sec  2.10 GBytes  18.0 Gbits/sec",
                 "RESULT_$#0.00-1.00 sec$#2250000000$#18000000000$#receiver"},
        LineCase{"Bidirectional", kReceiverHeader, "[  5][TX-C]   0.00-1.00   sec  2.10 GBytes  18043954 Kbits/sec", ""},
        LineCase{"Error", "", "iperf3: error - unable to connect to server: Connection refused", ""},
        LineCase{"UnknownUnit", kReceiverHeader, "[  5]   0.00-1.00   sec  2.10 Gallons  18043954 Kbits/sec", ""},
        LineCase{"NoIntervalDash", kReceiverHeader, "[  5]   1.00   sec  2.10 GBytes  18043954 Kbits/sec", ""}),
    [](const ::testing::TestParamInfo<LineCase> &info) { return info.param.name; });

// BYTES is the rate times the printed interval, held inside the Transfer
// column's rounding window; short intervals take the Transfer column.
struct ByteCase
{
    std::string name;
    std::string line;
    std::string bytes;
};

void PrintTo(const ByteCase &c, std::ostream *os)
{
    *os << c.name;
}

class LineTaggerBytes : public ::testing::TestWithParam<ByteCase>
{
};

TEST_P(LineTaggerBytes, PicksTheMostExactCount)
{
    LineTagger tagger;
    tagger.tag(kReceiverHeader);
    const auto tagged = tagger.tag(GetParam().line);
    ASSERT_TRUE(tagged.has_value());
    std::vector<std::string> fields;
    std::stringstream stream(*tagged);
    for (std::string field; std::getline(stream, field, '$');)
        fields.push_back(field.starts_with('#') ? field.substr(1) : field);
    ASSERT_GE(fields.size(), 3u);
    EXPECT_EQ(fields[2], GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Rule, LineTaggerBytes,
    ::testing::Values(
        // 2.00 GiB window is [2.00 +- 0.005] GiB; 17179869 Kbit/s over 1 s lies inside.
        ByteCase{"RateInsideWindow", "[  5]   0.00-1.00   sec  2.00 GBytes  17179869 Kbits/sec", "2147483625"},
        // The rate over the printed 1.01 s overshoots: the window's top.
        ByteCase{"RateAboveWindow", "[  5]   2.00-3.01   sec  1.50 GBytes  12822223 Kbits/sec", "1615981445"},
        ByteCase{"RateBelowWindow", "[  5]   0.00-1.00   sec  1.50 GBytes  1000 Kbits/sec", "1605244027"},
        ByteCase{"HalfSecondUsesRate", "[  5]   0.00-0.50   sec  2.41 MBytes  40365 Kbits/sec", "2522813"},
        ByteCase{"ShortTailUsesTransfer", "[  5]   3.00-3.01   sec  1.25 MBytes  2966269 Kbits/sec", "1310720"},
        ByteCase{"ZeroLengthTail", "[  5]   3.00-3.00   sec  2.88 MBytes  56100000 Kbits/sec", "3019899"},
        // A whole number of Bytes is exact: no rounding window at all.
        ByteCase{"WholeBytesAreExact", "[  5]   1.00-2.00   sec   640 Bytes  5.13 Kbits/sec", "640"},
        ByteCase{"NothingSent", "[  5]   1.00-2.00   sec  0.00 Bytes  0.00 Kbits/sec", "0"},
        ByteCase{"Terabytes", "[  5]   0.00-10.00  sec  1.00 TBytes  879609302 Kbits/sec", "1099511627500"}),
    [](const ::testing::TestParamInfo<ByteCase> &info) { return info.param.name; });

std::string readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll().toStdString();
}

// What the launcher writes for a captured iperf3 output: every line, each
// report line followed by its tagged line. The fixture's first line says
// where it came from and is not iperf3 output.
std::string transform(const std::string &captured)
{
    LineTagger tagger;
    std::stringstream in(captured);
    std::string out;
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        out += line + "\n";
        if (const auto tagged = tagger.tag(line))
            out += *tagged;
    }
    return out;
}

class LineTaggerGolden : public ::testing::TestWithParam<std::string>
{
};

TEST_P(LineTaggerGolden, MatchesReviewedOutput)
{
    const QString base = TestEnvironment::dataDir() + QStringLiteral("/tool/iperf3-3.12-")
        + QString::fromStdString(GetParam());
    const std::string captured = readFile(base + QStringLiteral(".txt"));
    ASSERT_TRUE(captured.starts_with("# captured from iperf 3.12")) << "missing fixture " << base.toStdString();
    const std::string expected = readFile(base + QStringLiteral(".tagged"));
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(transform(captured), expected);
}

INSTANTIATE_TEST_SUITE_P(Captures, LineTaggerGolden,
                         ::testing::Values("client-tcp", "client-tcp-reverse", "client-udp", "client-udp-reverse",
                                           "client-udp-slow", "client-tcp-parallel-omit", "server"),
                         [](const ::testing::TestParamInfo<std::string> &info) {
                             std::string name = info.param;
                             std::erase(name, '-');
                             return name;
                         });

bool wellFormed(const std::string &tagged)
{
    if (!tagged.ends_with('\n') || tagged.find('\n') != tagged.size() - 1)
        return false;
    if (!tagged.starts_with("RESULT_$#") && !tagged.starts_with("Finished_$#"))
        return false;
    std::size_t fields = 1;
    for (std::size_t at = tagged.find("$#"); at != std::string::npos; at = tagged.find("$#", at + 2))
        ++fields;
    return fields == 5 || fields == 7;
}

// Lines cut anywhere (a reader's worst case) never give a malformed tag, nor
// one carrying the words the application's parsers react to.
TEST(LineTaggerRobustness, TruncatedLinesGiveWellFormedTagsOrNone)
{
    const QStringList fixtures =
        QDir(TestEnvironment::dataDir() + QStringLiteral("/tool")).entryList({QStringLiteral("iperf3-3.12-*.txt")});
    ASSERT_GE(fixtures.size(), 7);
    int tagged = 0;
    for (const QString &name : fixtures) {
        std::stringstream in(readFile(TestEnvironment::dataDir() + QStringLiteral("/tool/") + name));
        LineTagger tagger;
        for (std::string line; std::getline(in, line);) {
            for (std::size_t cut = 0; cut <= line.size(); ++cut) {
                const auto out = tagger.tag(std::string_view(line).substr(0, cut));
                if (!out)
                    continue;
                ++tagged;
                EXPECT_TRUE(wellFormed(*out)) << *out;
                EXPECT_EQ(out->find("error"), std::string::npos) << *out;
                EXPECT_EQ(out->find("connected to"), std::string::npos) << *out;
            }
        }
    }
    EXPECT_GT(tagged, 0);
}

} // namespace
