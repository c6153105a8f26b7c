#include "discovery/MachineName.h"
#include "discovery/ServiceName.h"

#include <QFile>
#include <QTemporaryDir>

#include <cctype>

#include <gtest/gtest.h>

namespace {

std::string readable(const std::string &text)
{
    std::string name;
    for (char c : text)
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

// ---- what the discovery table shows -------------------------------------

struct CellCase
{
    std::string label;
    friend void PrintTo(const CellCase &c, std::ostream *os) { *os << c.label; }
    QString name;
    QString service;
    QString address;
    QString port;
};

class CellValueTest : public testing::TestWithParam<CellCase>
{
};

TEST_P(CellValueTest, ShowsTheFieldsOfTheName)
{
    const CellCase &c = GetParam();
    EXPECT_EQ(ServiceName::cellValue(c.name, QStringLiteral("Service")), c.service);
    EXPECT_EQ(ServiceName::cellValue(c.name, QStringLiteral("ServiceIP")), c.address);
    EXPECT_EQ(ServiceName::cellValue(c.name, QStringLiteral("ServicePort")), c.port);
    EXPECT_EQ(ServiceName::cellValue(c.name, QStringLiteral("Other")), QStringLiteral(""));
}

INSTANTIATE_TEST_SUITE_P(
    Names, CellValueTest,
    testing::Values(
        CellCase{"primary", "Studio,5201,192_168_1_20,Wi-Fi (Primary)", "Studio", "Wi-Fi (Primary): 192.168.1.20", "5201"},
        CellCase{"no_comma", "Printer", "", "", ""},
        CellCase{"two_fields", "Odd,7000", "Odd", "", "7000"},
        CellCase{"three_fields", "Odd,7000,10_1_1_1", "Odd", "10.1.1.1", "7000"},
        CellCase{"underscores_in_display_name", "Box,5201,10_0_0_2,usb_eth", "Box", "usb.eth: 10.0.0.2", "5201"},
        CellCase{"more_fields", "A,1,2_2,B,C", "A", "B: 2.2", "1"},
        CellCase{"empty_fields", ",,,", "", ": ", ""},
        CellCase{"shell_text", "Studio,5201,10_0_0_1 $(touch /tmp/pwned),Wi-Fi", "Studio",
                 "Wi-Fi: 10.0.0.1 $(touch /tmp/pwned)", "5201"}),
    [](const testing::TestParamInfo<CellCase> &info) { return info.param.label; });

// ---- what a selected row stores ------------------------------------------

struct TargetCase
{
    std::string label;
    friend void PrintTo(const TargetCase &c, std::ostream *os) { *os << c.label; }
    QString name;
    std::optional<ServiceName::Target> target;
};

class TargetTest : public testing::TestWithParam<TargetCase>
{
};

TEST_P(TargetTest, TakesPortAndAddress)
{
    const TargetCase &c = GetParam();
    const auto target = ServiceName::target(c.name);
    ASSERT_EQ(target.has_value(), c.target.has_value());
    if (target) {
        EXPECT_EQ(target->port, c.target->port);
        EXPECT_EQ(target->address, c.target->address);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Names, TargetTest,
    testing::Values(
        TargetCase{"four_fields", "Studio,5201,192_168_1_20,Wi-Fi", ServiceName::Target{"5201", "192.168.1.20"}},
        TargetCase{"three_fields", "Studio,6000,10_0_0_1", ServiceName::Target{"6000", "10.0.0.1"}},
        TargetCase{"two_fields", "Studio,5201", std::nullopt},
        TargetCase{"no_comma", "Studio", std::nullopt},
        TargetCase{"shell_text", "S,5201,10_0_0_1 $(touch /tmp/pwned),Wi-Fi",
                   ServiceName::Target{"5201", "10.0.0.1 $(touch /tmp/pwned)"}}),
    [](const testing::TestParamInfo<TargetCase> &info) { return info.param.label; });

// ---- names built for our own interfaces ----------------------------------

TEST(ServiceNameBuild, JoinsTheFieldsAndMarksThePrimary)
{
    EXPECT_EQ(ServiceName::build("Studio", "5201", "192.168.1.20", "Wi-Fi", true),
              QStringLiteral("Studio,5201,192_168_1_20,Wi-Fi (Primary)"));
    EXPECT_EQ(ServiceName::build("Studio", "5201", "10.0.0.1", "Ethernet", false),
              QStringLiteral("Studio,5201,10_0_0_1,Ethernet"));
    EXPECT_EQ(ServiceName::build("Studio", "5201", QString(), "VPN", false), QStringLiteral("Studio,5201,,VPN"));
}

// ---- the 63-byte limit ---------------------------------------------------

struct FitCase
{
    std::string label;
    friend void PrintTo(const FitCase &c, std::ostream *os) { *os << c.label; }
    QString name;
    QString expected;
};

class FitToLimitTest : public testing::TestWithParam<FitCase>
{
};

TEST_P(FitToLimitTest, CutsOnlyTheDisplayName)
{
    const FitCase &c = GetParam();
    const QString fitted = ServiceName::fitToLimit(c.name);
    EXPECT_EQ(fitted, c.expected);
    if (c.name.toUtf8().size() > 63 && fitted != c.name) {
        EXPECT_LE(fitted.toUtf8().size(), 63);
    }
}

const QString k25 = QStringLiteral("Studio,5201,192_168_1_20,"); // 25 bytes of fixed fields

INSTANTIATE_TEST_SUITE_P(
    Names, FitToLimitTest,
    testing::Values(
        FitCase{"short_unchanged", "Studio,5201,10_0_0_1,Wi-Fi", "Studio,5201,10_0_0_1,Wi-Fi"},
        FitCase{"exactly_63", k25 + QString(38, 'd'), k25 + QString(38, 'd')},
        FitCase{"ascii_cut", k25 + QString(50, 'd'), k25 + QString(38, 'd')},
        FitCase{"primary_kept", k25 + QString(50, 'd') + " (Primary)", k25 + QString(28, 'd') + " (Primary)"},
        // é is two bytes: 38 bytes hold 19 of them, never one and a half.
        FitCase{"two_byte_chars", k25 + QString(30, QChar(0xE9)), k25 + QString(19, QChar(0xE9))},
        FitCase{"odd_budget_two_byte", k25 + "x" + QString(30, QChar(0xE9)), k25 + "x" + QString(18, QChar(0xE9))},
        // U+1F4F6 is four bytes and two UTF-16 units.
        FitCase{"four_byte_chars", k25 + QString::fromUtf8("\xF0\x9F\x93\xB6").repeated(12),
                k25 + QString::fromUtf8("\xF0\x9F\x93\xB6").repeated(9)},
        FitCase{"trailing_space_trimmed", k25 + QString(37, 'd') + " Adapter", k25 + QString(37, 'd')},
        FitCase{"machine_name_too_long", QString(70, 'm') + ",5201,10_0_0_1,eth0", QString(70, 'm') + ",5201,10_0_0_1,eth0"},
        FitCase{"no_display_field", QString(70, 'n'), QString(70, 'n')}),
    [](const testing::TestParamInfo<FitCase> &info) { return info.param.label; });

// ---- machine name --------------------------------------------------------

struct PrettyCase
{
    std::string label;
    friend void PrintTo(const PrettyCase &c, std::ostream *os) { *os << c.label; }
    QByteArray file;
    QString expected; // null: none
};

class PrettyHostNameTest : public testing::TestWithParam<PrettyCase>
{
};

TEST_P(PrettyHostNameTest, ReadsTheMachineInfoFile)
{
    const QString pretty = MachineName::prettyHostName(GetParam().file);
    EXPECT_EQ(pretty.isNull(), GetParam().expected.isNull());
    EXPECT_EQ(pretty, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Files, PrettyHostNameTest,
    testing::Values(PrettyCase{"double_quoted", "PRETTY_HOSTNAME=\"Lena's Studio\"\n", "Lena's Studio"},
                    PrettyCase{"single_quoted", "CHASSIS=laptop\nPRETTY_HOSTNAME='Studio \"2\"'\n", "Studio \"2\""},
                    PrettyCase{"escaped", "PRETTY_HOSTNAME=Studio\\ Mac\n", "Studio Mac"},
                    PrettyCase{"utf8", "PRETTY_HOSTNAME=\"B\xC3\xBCro\"\n", QString::fromUtf8("B\xC3\xBCro")},
                    PrettyCase{"last_wins", "PRETTY_HOSTNAME=Old\nPRETTY_HOSTNAME=New\n", "New"},
                    PrettyCase{"absent", "CHASSIS=desktop\n", QString()},
                    PrettyCase{"blank", "PRETTY_HOSTNAME=\"  \"\n", QString()},
                    PrettyCase{"commented", "# PRETTY_HOSTNAME=Nope\n", QString()}),
    [](const testing::TestParamInfo<PrettyCase> &info) { return readable(info.param.label); });

TEST(MachineNameTest, FallsBackToTheHostName)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    EXPECT_EQ(MachineName::fromFile(dir.filePath("missing"), "host"), QStringLiteral("host"));
    QFile file(dir.filePath("machine-info"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("PRETTY_HOSTNAME=Studio\n");
    file.close();
    EXPECT_EQ(MachineName::fromFile(file.fileName(), "host"), QStringLiteral("Studio"));
}

} // namespace
