// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/SensorsConfig.h"
#include "platform/linux/sensors/HwmonNames.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <optional>

namespace meridal {
namespace {

TEST(SensorsConfig, LaterStatementsWinAndFoldersComeLast)
{
    const test::TemporaryTree tree{
        {"etc/sensors3.conf",
            "# a comment\nlabel temp1 \"nowhere\"\n"
            "chip \"nct6775-*\" \"it87-isa-*\"\n\tlabel in0 \"Vcore\" # why\n"
            "    compute in0 @ * (1 + 34/51), @ / (1 + 34/51)\n    set in0_min 1.2 * 0.9\n    ignore temp3\n"
            "chip \"*\"\n  label fan1 \"A \\\"fan\\\"\"\n  label in1 +12V\n"},
        {"etc/sensors.conf", "chip \"*\"\n label in0 \"not read\"\n"},
        {"etc/sensors.d/board.conf", "chip \"nct6775-isa-0290\"\n label in0 \\\n \"CPU\"\n label temp1 \"\"\n"},
        {"etc/sensors.d/.hidden", "chip \"*\"\n label in0 \"hidden\"\n"},
    };
    const SensorsConfig config = SensorsConfig::read(RootFolder(tree.root()));
    EXPECT_EQ(config.label("nct6775-isa-0290", "in0"), "CPU");
    EXPECT_EQ(config.label("nct6775-isa-0a20", "in0"), "Vcore");
    EXPECT_EQ(config.label("it87-isa-0290", "fan1"), "A \"fan\"");
    EXPECT_EQ(config.label("coretemp-isa-0000", "in1"), "+12V");
    EXPECT_EQ(config.label("nct6775-isa-0290", "temp1"), std::nullopt);
    EXPECT_TRUE(config.isIgnored("it87-isa-0290", "temp3"));
    EXPECT_FALSE(config.isIgnored("it87-i2c-0-29", "temp3"));
    ASSERT_NE(config.formula("it87-isa-0290", "in0"), nullptr);
    EXPECT_NEAR(config.formula("it87-isa-0290", "in0")->evaluate(3).value(), 5, 1e-12);
    EXPECT_EQ(config.formula("k10temp-pci-00c3", "in0"), nullptr);
}

TEST(SensorsConfig, PatternsTakeAnything)
{
    EXPECT_TRUE(matchesPattern("lm75-i2c-0-4c", "lm75-i2c-*-4c"));
    EXPECT_TRUE(matchesPattern("lm75-i2c-0-4c", "*-i2c-*-*"));
    EXPECT_FALSE(matchesPattern("lm75-i2c-0-4c", "lm75-i2c-*-4d"));
    EXPECT_FALSE(matchesPattern("lm75-i2c-0-4c", ""));
    EXPECT_TRUE(matchesPattern("", "**"));
}

TEST(SensorsExpression, ComputesWhatPeopleWrite)
{
    const auto at2 = [](std::string_view text) -> std::optional<double> {
        const auto formula = SensorsExpression::parse(text);
        return formula ? formula->evaluate(2) : std::nullopt;
    };
    for (const char* five : {"@*2+1", "1+@*2", "8-@-1", "-(@ - 3.5) * 2 + 2"}) {
        EXPECT_EQ(at2(five), 5) << five;
    }
    EXPECT_NEAR(at2("^@").value(), 7.389056, 1e-6);
    EXPECT_NEAR(at2("`(@ + .5)").value(), 0.916291, 1e-6);
    for (const char* bad : {"", "@ *", "(@", "@)", "in3 * 2", "2 @", "1/0", "1/(@-2)", "`(0-1)", "@.@"}) {
        EXPECT_EQ(at2(bad), std::nullopt) << bad;
    }
    EXPECT_EQ(at2(std::string(100'000, '(')), std::nullopt);
    EXPECT_EQ(at2(std::string(100'000, '-') + "1"), std::nullopt);
}

TEST(HwmonNames, PlacesDoNotDependOnTheOrderOfProbing)
{
    const auto ataPort = [](std::string_view ata) -> std::optional<std::string> {
        return ata == "ata5" ? std::optional<std::string>("1") : std::nullopt;
    };
    const auto stable = [&](const char* path) { return hwmon::stablePath(path, ataPort); };
    EXPECT_EQ(stable("pci0000:00/0000:00:06.0/0000:01:00.0/nvme/nvme3/hwmon12"),
        "pci0000:00/0000:00:06.0/0000:01:00.0/nvme/nvme");
    EXPECT_EQ(stable("pci0000:00/0000:00:1f.4/i2c-7/7-004c/hwmon/hwmon2"), "pci0000:00/0000:00:1f.4/i2c-/-004c");
    EXPECT_EQ(stable("pci0000:00/0000:00:17.0/ata5/host4/target4:0:1/4:0:1:0/hwmon/hwmon0"),
        "pci0000:00/0000:00:17.0/ata1/host/target:0:1/:0:1:0");
    EXPECT_EQ(stable("pci0000:00/0000:00:14.0/usb3/3-4.1/3-4.1:1.0/0003:1B1C:0C10.0005/hwmon/hwmon4"),
        "pci0000:00/0000:00:14.0/usb/-4.1/-4.1:1.0/0003:1B1C:0C10");
    EXPECT_EQ(stable("platform/nct6775.656/hwmon/hwmon1"), "platform/nct6775.656");
    EXPECT_EQ(stable("LNXSYSTM:00/LNXSYBUS:00/PNP0C0A:01/power_supply/BAT1/hwmon3"),
        "LNXSYSTM:00/LNXSYBUS:00/PNP0C0A:01/power_supply/BAT1");
    EXPECT_EQ(stable("virtual/thermal/thermal_zone0/hwmon0"), "virtual/thermal/thermal_zone");
}

TEST(HwmonNames, ChipsAreNamedAsLmSensorsDoes)
{
    EXPECT_EQ(hwmon::chipName("k10temp", "pci", "0000:00:18.3"), "k10temp-pci-00c3");
    EXPECT_EQ(hwmon::chipName("nct6775", "platform", "nct6775.656"), "nct6775-isa-0290");
    EXPECT_EQ(hwmon::chipName("thinkpad", "platform", "thinkpad_hwmon"), "thinkpad-isa-0000");
    EXPECT_EQ(hwmon::chipName("jc42", "i2c", "0-001a"), "jc42-i2c-0-1a");
    EXPECT_EQ(hwmon::chipName("drivetemp", "scsi", "4:0:1:0"), "drivetemp-scsi-4-10");
    EXPECT_EQ(hwmon::chipName("corsairpsu", "hid", "0003:1B1C:0C10.0005"), "corsairpsu-hid-3-5");
    EXPECT_EQ(hwmon::chipName("BAT0", "acpi", "PNP0C0A:00"), "BAT0-acpi-0");
    EXPECT_EQ(hwmon::chipName("acpitz", "thermal", "thermal_zone0"), "acpitz-acpi-0");
    EXPECT_EQ(hwmon::chipName("cpu_thermal", "", ""), "cpu_thermal-virtual-0");
}

} // namespace
} // namespace meridal
