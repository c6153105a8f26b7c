#include "NetworkTestSupport.h"
#include "network/MacAddress.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

namespace {

struct IpCase
{
    const char *name;
    QString text;
    bool accepted;
};
void PrintTo(const IpCase &row, std::ostream *out) { *out << row.name; }

using IsIpTest = testing::TestWithParam<IpCase>;

TEST_P(IsIpTest, AcceptsOnlyAWholeDottedAddress)
{
    EXPECT_EQ(MacAddress::isIp(GetParam().text), GetParam().accepted) << GetParam().text.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, IsIpTest,
    testing::Values(IpCase{"plain", QStringLiteral("10.0.0.1"), true},
                    IpCase{"loopback", QStringLiteral("127.0.0.1"), true},
                    IpCase{"limits", QStringLiteral("255.255.255.255"), true},
                    IpCase{"zeros", QStringLiteral("0.0.0.0"), true},
                    IpCase{"part_over_255", QStringLiteral("256.1.1.1"), false},
                    IpCase{"negative_part", QStringLiteral("1.2.3.-4"), false},
                    IpCase{"letters", QStringLiteral("abc"), false},
                    IpCase{"empty", QString(), false},
                    IpCase{"shell_command_after", QStringLiteral("10.0.0.1 ; rm -rf ~"), false},
                    IpCase{"word_after_blank", QStringLiteral("10.0.0.1 x"), false},
                    IpCase{"trailing_newline", QStringLiteral("1.2.3.4\n"), false},
                    IpCase{"trailing_blank", QStringLiteral("1.2.3.4 "), false},
                    IpCase{"substitution_after", QStringLiteral("10.0.0.1$(touch /tmp/x)"), false},
                    IpCase{"nul_then_command", QString::fromUtf8("10.0.0.1\0;id", 12), false},
                    IpCase{"leading_blank", QStringLiteral(" 10.0.0.1"), false},
                    IpCase{"three_parts", QStringLiteral("10.0.1"), false},
                    IpCase{"single_number", QStringLiteral("167772161"), false},
                    IpCase{"five_parts", QStringLiteral("1.2.3.4.5"), false},
                    IpCase{"hex_part", QStringLiteral("0x0a.0.0.1"), false},
                    IpCase{"plus_sign", QStringLiteral("1.2.3.+4"), false},
                    IpCase{"underscored_peer_name", QStringLiteral("10_0_0_1"), false}),
    caseName<IpCase>);

struct MacCase
{
    const char *name;
    QString input;
    QString expected;
};
void PrintTo(const MacCase &row, std::ostream *out) { *out << row.name; }

using ConvertToValidMacAddressTest = testing::TestWithParam<MacCase>;

TEST_P(ConvertToValidMacAddressTest, PadsUpperCasesAndDashes)
{
    EXPECT_EQ(MacAddress::convertToValidMacAddress(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, ConvertToValidMacAddressTest,
    testing::Values(MacCase{"short_parts", QStringLiteral("3c:2:fb:a:b:c"), QStringLiteral("3C-02-FB-0A-0B-0C")},
                    MacCase{"leading_zero_dropped", QStringLiteral("0:1b:63:84:45:e6"), QStringLiteral("00-1B-63-84-45-E6")},
                    MacCase{"already_full", QStringLiteral("AA:BB:CC:DD:EE:FF"), QStringLiteral("AA-BB-CC-DD-EE-FF")},
                    MacCase{"empty_part", QStringLiteral("aa::bb"), QStringLiteral("AA-0-BB")},
                    MacCase{"empty_text", QStringLiteral(""), QStringLiteral("0")}),
    caseName<MacCase>);

struct VersionCase
{
    const char *name;
    QString release;
    float expected;
};
void PrintTo(const VersionCase &row, std::ostream *out) { *out << row.name; }

using OsVersionTest = testing::TestWithParam<VersionCase>;

TEST_P(OsVersionTest, ReadsMajorDotMinorAsAFloat)
{
    EXPECT_FLOAT_EQ(MacAddress::versionFromRelease(GetParam().release), GetParam().expected);
}

// "x.10" reads as x.1: callers compare versions that way.
INSTANTIATE_TEST_SUITE_P(
    Releases, OsVersionTest,
    testing::Values(VersionCase{"debian_kernel", QStringLiteral("6.1.0-18-amd64"), 6.1f},
                    VersionCase{"minor_twelve", QStringLiteral("10.12"), 10.12f},
                    VersionCase{"minor_ten_loses_zero", QStringLiteral("10.10.1"), 10.1f},
                    VersionCase{"no_number", QStringLiteral("linux"), 0.0f}),
    caseName<VersionCase>);

} // namespace
