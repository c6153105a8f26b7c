#include "PerfHelper/PerfTest.h"
#include "PerfHelper/ShellTask.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>

namespace {

struct RunSettings
{
    QString server;
    qint64 port, testType, reverse, bufferLength, sendBandwidth, bandwidthformat, duration, interval;
};

const RunSettings kTcp10s{"10.0.0.5", 5201, 0, 0, 128, 0, 0, 10, 1};

void apply(PerfTest &test, const RunSettings &s)
{
    test.server = s.server;
    test.port = s.port;
    test.testType = s.testType;
    test.reverse = s.reverse;
    test.bufferLength = s.bufferLength;
    test.sendBandwidth = s.sendBandwidth;
    test.bandwidthformat = s.bandwidthformat;
    test.duration = s.duration;
    test.stats_interval = s.interval;
}

RunSettings tcp10sWith(const std::function<void(RunSettings &)> &change)
{
    RunSettings s = kTcp10s;
    change(s);
    return s;
}

struct CommandLineCase
{
    std::string name;
    RunSettings settings;
    QStringList expected;
    bool neverSet = false; // the settings are left as a new PerfTest has them
};

void PrintTo(const CommandLineCase &c, std::ostream *os)
{
    *os << c.name;
}

const QString kBase = QStringLiteral("./iperf3 ");

class CommandLine : public ::testing::TestWithParam<CommandLineCase>
{
};

TEST_P(CommandLine, ArgumentListInOrder)
{
    PerfTest test;
    if (!GetParam().neverSet)
        apply(test, GetParam().settings);
    EXPECT_EQ(test.prepareOptions(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    PerfTest, CommandLine,
    ::testing::Values(
        CommandLineCase{"tcp_defaults", kTcp10s, {kBase, "-c", "10.0.0.5", "-p5201", "-t10", "-i1"}},
        CommandLineCase{"udp_reverse_kilo_rate", {"10.0.0.5", 5201, 1, 1, 8, 20, 1, 10, 1},
                        {kBase, "-c", "10.0.0.5", "-p5201", "-R", "-u", "-b20K", "-t10", "-i1"}},
        CommandLineCase{"tcp_length_8_is_passed", tcp10sWith([](RunSettings &s) { s.bufferLength = 8; }),
                        {kBase, "-c", "10.0.0.5", "-p5201", "-l8KB", "-t10", "-i1"}},
        CommandLineCase{"udp_length_128_is_passed", tcp10sWith([](RunSettings &s) { s.testType = 1; }),
                        {kBase, "-c", "10.0.0.5", "-p5201", "-u", "-l128KB", "-t10", "-i1"}},
        CommandLineCase{"never_set", kTcp10s, {kBase, "-c", "", "-p-1", "-l0KB", "-t5", "-i-1"}, true},
        CommandLineCase{"all_zeros", {"10.0.0.5", 5201, 0, 0, 0, 0, 0, 0, 0},
                        {kBase, "-c", "10.0.0.5", "-p5201", "-l0KB", "-t0", "-i0"}},
        CommandLineCase{"mega_rate", tcp10sWith([](RunSettings &s) { s.sendBandwidth = 50; }),
                        {kBase, "-c", "10.0.0.5", "-p5201", "-b50M", "-t10", "-i1"}},
        CommandLineCase{"any_nonzero_format_is_kilo", tcp10sWith([](RunSettings &s) {
                            s.sendBandwidth = 50;
                            s.bandwidthformat = 2;
                        }),
                        {kBase, "-c", "10.0.0.5", "-p5201", "-b50K", "-t10", "-i1"}},
        CommandLineCase{"negative_rate_gives_none", tcp10sWith([](RunSettings &s) { s.sendBandwidth = -5; }),
                        {kBase, "-c", "10.0.0.5", "-p5201", "-t10", "-i1"}}),
    [](const ::testing::TestParamInfo<CommandLineCase> &info) { return info.param.name; });

TEST(CommandText, OnlyTheToolPathIsQuoted)
{
    PerfTest test;
    apply(test, kTcp10s);
    EXPECT_EQ(PerfTest::commandText(QStringLiteral("/home/me/.local/share/Tidewave/mac-native-iperf"),
                                    test.prepareOptions()),
              QStringLiteral("\"/home/me/.local/share/Tidewave/mac-native-iperf\" ./iperf3  -c 10.0.0.5 -p5201 -t10 -i1"));
}

// What the tool really receives from the shell: "./iperf3" as its first
// word, even from a folder with a blank in its name, and the server text
// split at blanks since it is not quoted.
TEST(CommandText, ShellHandsTheToolItsWords)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("a folder")));
    const QString tool = dir.path() + QStringLiteral("/a folder/mac-native-iperf");
    QFile script(tool);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\nfor word in \"$@\"; do echo \"<$word>\"; done\n");
    script.close();
    ASSERT_TRUE(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

    PerfTest test;
    apply(test, kTcp10s);
    test.server = QStringLiteral("127.0.0.1 -V");
    const auto output = ShellTask::executeShellCommandSynchronously(PerfTest::commandText(tool, test.prepareOptions()));
    ASSERT_TRUE(output.has_value());
    EXPECT_EQ(*output, QStringLiteral("<./iperf3>\n<-c>\n<127.0.0.1>\n<-V>\n<-p5201>\n<-t10>\n<-i1>\n"));
}

} // namespace
