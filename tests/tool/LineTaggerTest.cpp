#include "LineTagger.h"

#include "common/TestEnvironment.h"

#include <QFile>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

const std::string kUdpReceiver = "[ ID] Interval           Transfer     Bitrate         Jitter    Lost/Total Datagrams";

struct LineCase
{
    const char *name;
    std::string line;
    std::string tagged; // without its "\n"; empty: no tagged line
    std::string header = "[ ID] Interval           Transfer     Bitrate"; // the column header seen before
};

class LineTaggerLines : public ::testing::TestWithParam<LineCase> {};

TEST_P(LineTaggerLines, TagsReportLinesOnly)
{
    LineTagger tagger;
    EXPECT_FALSE(tagger.tag(GetParam().header).has_value());
    EXPECT_EQ(tagger.tag(GetParam().line).value_or(""), GetParam().tagged.empty() ? "" : GetParam().tagged + "\n");
}

// A UDP receiver interval whose jitter or loss columns are not iperf3's:
// they are not copied, so the line gets five fields.
const std::string kOneK = "[  5]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec  ";
const std::string kFive = "RESULT_$#0.00-1.00 sec$#1019$#8000$#receiver";

// Lines the captures (golden test below) do not hold.
INSTANTIATE_TEST_SUITE_P(
    Shapes, LineTaggerLines,
    ::testing::Values(
        LineCase{"UdpReceiverInterval", kOneK + "0.020 ms  76/76 (1e+02%)  ", "RESULT_$#0.00-1.00 sec$#1019$#8000$#0.020 ms$#76/76 (1e+02%)$#receiver", kUdpReceiver},
        LineCase{"JitterNotANumber", kOneK + "x ms  0/8 (0%)", kFive, kUdpReceiver},
        LineCase{"JitterWithoutUnit", kOneK + "0.020 s  0/8 (0%)", kFive, kUdpReceiver},
        LineCase{"LossWithoutSlash", kOneK + "0.020 ms  08 (0%)", kFive, kUdpReceiver},
        LineCase{"LossCountWithWords", kOneK + "0.020 ms  0/8error (0%)", kFive, kUdpReceiver},
        LineCase{"PercentWithoutParenthesis", kOneK + "0.020 ms  0/8 0%)", kFive, kUdpReceiver},
        LineCase{"PercentUnclosed", kOneK + "0.020 ms  0/8 (0%", kFive, kUdpReceiver},
        LineCase{"PercentWithWords", kOneK + "0.020 ms  0/8 (0x%)", kFive, kUdpReceiver},
        LineCase{"TooFewLossColumns", kOneK + "0.020 ms  0/8", kFive, kUdpReceiver},
        LineCase{"StockRateUnits", "[  5]   0.00-1.00   sec  2.10 GBytes  18.0 Gbits/sec", "RESULT_$#0.00-1.00 sec$#2250000000$#18000000000$#receiver"},
        LineCase{"TabsSeparate", "[\t5]\t0.00-1.00\tsec\t640 Bytes\t5.13 Kbits/sec", "RESULT_$#0.00-1.00 sec$#640$#5130$#receiver"},
        // BYTES: the rate times the printed interval, held inside the Transfer
        // column's rounding window; intervals under half a second take the column.
        LineCase{"RateAboveWindow", "[  5]   2.00-3.01   sec  1.50 GBytes  12822223 Kbits/sec", "RESULT_$#2.00-3.01 sec$#1615981445$#12822223000$#receiver"},
        LineCase{"RateBelowWindow", "[  5]   0.00-1.00   sec  1.50 GBytes  1000 Kbits/sec", "RESULT_$#0.00-1.00 sec$#1605244027$#1000000$#receiver"},
        LineCase{"HalfSecondUsesRate", "[  5]   0.00-0.50   sec  2.41 MBytes  40365 Kbits/sec", "RESULT_$#0.00-0.50 sec$#2522813$#40365000$#receiver"},
        LineCase{"ShortTailUsesTransfer", "[  5]   3.00-3.49   sec  1.25 MBytes  2966269 Kbits/sec", "RESULT_$#3.00-3.49 sec$#1310720$#2966269000$#receiver"},
        LineCase{"WholeBytesAreExact", "[  5]   1.00-2.00   sec   640 Bytes  5.13 Kbits/sec", "RESULT_$#1.00-2.00 sec$#640$#5130$#receiver"},
        LineCase{"NothingSent", "[  5]   1.00-2.00   sec  0.00 Bytes  0.00 Kbits/sec", "RESULT_$#1.00-2.00 sec$#0$#0$#receiver"},
        LineCase{"Terabytes", "[  5]   0.00-10.00  sec  1.00 TBytes  879609302 Kbits/sec", "RESULT_$#0.00-10.00 sec$#1099511627500$#879609302000$#receiver"},
        // Counts must fit a 64-bit integer.
        LineCase{"RateAtTheLimit", "[  5]   0.00-1.00   sec  1.00 KBytes  9000000000000000 Kbits/sec", ""},
        LineCase{"TransferAtTheLimit", "[  5]   0.00-1.00   sec  9000000000000000000 Bytes  8 Kbits/sec", ""},
        // Not a per-stream report line.
        LineCase{"Omitted", kOneK + "(omitted)", ""},
        LineCase{"Sum", "[SUM]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"Bidirectional", "[  5][TX-C]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"TwoWordId", "[ 5 6]   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"IdOnly", "[  5]", ""},
        LineCase{"Unclosed", "[  5   0.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"NoSecWord", "[  5]   0.00-1.00   s  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"TooFewColumns", "[  5]   0.00-1.00   sec  1.00 KBytes  8", ""},
        LineCase{"NoIntervalDash", "[  5]   1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"NegativeStart", "[  5]   -1.00-1.00   sec  1.00 KBytes  8 Kbits/sec", ""},
        LineCase{"TransferNotANumber", "[  5]   0.00-1.00   sec  1.0x KBytes  8 Kbits/sec", ""},
        LineCase{"RateNotANumber", "[  5]   0.00-1.00   sec  1.00 KBytes  inf Kbits/sec", ""},
        LineCase{"UnknownUnit", "[  5]   0.00-1.00   sec  2.10 Gallons  8 Kbits/sec", ""},
        LineCase{"UnitsSwapped", "[  5]   0.00-1.00   sec  1.00 Kbits/sec  8 KBytes", ""},
        LineCase{"Error", "iperf3: error - unable to connect to server: Connection refused", ""}),
    [](const auto &info) { return std::string(info.param.name); });

std::string readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
}

class LineTaggerGolden : public ::testing::TestWithParam<std::string> {};

// What the launcher writes for captured iperf3 output: every line, each
// report line followed by its tagged line. The capture's first line names
// its command and is not iperf3 output.
TEST_P(LineTaggerGolden, MatchesReviewedOutput)
{
    const QString base = TestEnvironment::dataDir() + QStringLiteral("/tool/iperf3-3.12-") + QString::fromStdString(GetParam());
    std::stringstream in(readFile(base + QStringLiteral(".txt")));
    std::string line;
    ASSERT_TRUE(std::getline(in, line) && line.starts_with("# captured from iperf 3.12")) << base.toStdString();
    LineTagger tagger;
    std::string out;
    while (std::getline(in, line))
        out += line + "\n" + tagger.tag(line).value_or("");
    EXPECT_EQ(out, readFile(base + QStringLiteral(".tagged")));
}

INSTANTIATE_TEST_SUITE_P(Captures, LineTaggerGolden,
                         ::testing::Values("client-tcp", "client-tcp-reverse", "client-udp", "client-udp-reverse", "client-udp-slow",
                                           "client-tcp-parallel-omit", "server"),
                         [](const auto &info) { return QString::fromStdString(info.param).remove('-').toStdString(); });

} // namespace
