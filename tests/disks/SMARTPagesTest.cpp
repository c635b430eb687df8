// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTPages.h"

#include "collectors/disks/SMARTStatCollectorAttribute.h"
#include "tests/support/SMARTPageBuilder.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

TEST(SMARTPages, AttributesAreThoseOfThePageInItsOrder)
{
    std::vector<TestAttribute> all;
    for (std::uint8_t id = 30; id > 0; --id) {
        all.push_back({.attributeID = id, .flags = 0x0133, .current = id, .worst = 1, .raw = 0x0605'0403'0201});
    }
    const auto page = parseSMARTData(dataPage(all));
    ASSERT_TRUE(page);
    ASSERT_EQ(page->entries.size(), 30U);
    const SMARTDataEntry& first = page->entries.front();
    EXPECT_EQ(first.attributeID, 30);
    EXPECT_EQ(first.flags, 0x0133);
    EXPECT_EQ(first.current, 30);
    EXPECT_EQ(first.raw, (std::array<std::uint8_t, 6>{1, 2, 3, 4, 5, 6}));
    const auto none = parseSMARTData(dataPage({}));
    ASSERT_TRUE(none) << "a revision and nothing else is a page";
    EXPECT_TRUE(none->entries.empty());
    const auto twice = parseSMARTData(dataPage({{.attributeID = 5, .raw = 1}, {.attributeID = 5, .raw = 2}}));
    ASSERT_EQ(twice->entries.size(), 1U);
    EXPECT_EQ(twice->entries[0].raw[0], 1);
}

TEST(SMARTPages, WhatCannotBeGenuineIsNoPage)
{
    SMARTPage page = dataPage(usualAttributes());
    page[100] ^= 0x10;
    EXPECT_FALSE(parseSMARTData(page));
    EXPECT_FALSE(parseSMARTThresholds(page));
    for (const std::uint8_t bits : std::to_array<std::uint8_t>({0x00, 0xFF})) { // the latter add up to 0, too
        SMARTPage same;
        same.fill(bits);
        EXPECT_FALSE(parseSMARTData(same));
        EXPECT_FALSE(parseSMARTThresholds(same));
        EXPECT_FALSE(parseATAIdentity(same));
        EXPECT_FALSE(parseNVMeHealth(same));
        EXPECT_FALSE(parseNVMeIdentity(same));
    }
    SMARTPage identity = identifyPage({});
    identity[60] ^= 1;
    EXPECT_FALSE(parseATAIdentity(identity));
    identity[510] = 0; // an old disk has no checksum there
    EXPECT_TRUE(parseATAIdentity(identity));
}

TEST(SMARTPages, ThresholdsGoByIdAndNotByPlace)
{
    auto thresholds = usualAttributes();
    std::reverse(thresholds.begin(), thresholds.end());
    thresholds.push_back({.attributeID = 77, .threshold = 9});
    const auto page = parseSMARTThresholds(thresholdPage(thresholds));
    ASSERT_TRUE(page);
    const auto& of = page->thresholds;
    EXPECT_EQ((std::array{of[5], of[1], of[77]}), (std::array<std::optional<std::uint8_t>, 3>{140, 51, 9}));
    EXPECT_FALSE(of[0] || of[2]);
}

TEST(SMARTPages, IdentitiesAreReadableText)
{
    const auto identity = parseATAIdentity(identifyPage({.serial = "  S3Z8\x01NB", .rotation = 1}));
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->serial, "S3Z8?NB");
    EXPECT_EQ(identity->model, "WDC WD40EFRX-68N32N0");
    EXPECT_EQ(identity->firmware, "01.01A01");
    EXPECT_EQ(identity->spins, false);
    EXPECT_EQ(parseATAIdentity(identifyPage({.serial = "", .rotation = 0}))->serial, std::nullopt);
    EXPECT_EQ(parseATAIdentity(identifyPage({.rotation = 0}))->spins, std::nullopt);
    const auto controller = parseNVMeIdentity(controllerPage("S5GX", "Model \xFF 1", "FW"));
    EXPECT_EQ(controller->serial, "S5GX");
    EXPECT_EQ(controller->model, "Model \xEF\xBF\xBD 1");
}

TEST(SMARTPages, HealthLogIsInPlainUnits)
{
    const auto health = parseNVMeHealth(healthPage({.kelvin = 273 - 5, .used = 104}));
    ASSERT_TRUE(health);
    EXPECT_EQ(health->temperature, -5);
    EXPECT_EQ(health->percentageUsed, 104);
    EXPECT_EQ((std::array{health->dataWritten, health->powerOnHours, health->powerCycles, health->unsafeShutdowns,
                  health->readCommands, health->writeCommands, health->busyTime, health->warmTime, health->hotTime}),
        (std::array{512e9, 1234., 321., 7., 4000., 5000., 3600., 7. * 60, 60.}));
    EXPECT_EQ(health->sensors[0], 39);
    EXPECT_EQ(health->sensors[1], std::nullopt);
    for (const std::uint16_t impossible : std::to_array<std::uint16_t>({0, 100, 0xFFFF})) {
        EXPECT_EQ(parseNVMeHealth(healthPage({.kelvin = impossible}))->temperature, std::nullopt) << impossible;
    }
}

struct RawCase {
    const char* format;
    std::uint64_t raw; ///< the reserved byte on top
    double figure;
    Value shown;
    const char* order = "";
};

TEST(SMARTAttribute, FormatsReadTheRawBytes)
{
    const RawCase cases[] = {
        {"raw48", 0x0100'0000'0002, 1099511627778.0, 0x0100'0000'0002},
        {"raw48", 0x0102'0304'0506, 0x0605'0403'0201, 0x0605'0403'0201, "012345"},
        {"raw56", 0x07'0000'0000'0002, 0x07'0000'0000'0002, 0x07'0000'0000'0002},
        {"raw64", 2, 2.0 * 65536 + 90 * 256 + 95, 2 * 65536 + 90 * 256 + 95},
        {"hex64", 2, 2.0 * 65536 + 90 * 256 + 95, "0x0000000000025a5f"},
        {"hex56", 0x01'0000'0000'000F, 0x01'0000'0000'000F, "0x0100000000000f"},
        {"raw8", 0x0102'0304'0506, 0x0102'0304'0506, "1 2 3 4 5 6"},
        {"raw16", 0x0001'0002'0003, 0x0003, "1 2 3"},
        {"raw16(raw16)", 0x0007'0000'0003, 3, 3},
        {"raw16(avg16)", 0x0007'0000'0003, 3, 3},
        {"raw24(raw8)", 0x0912'0000'1C84, 7300, 7300},
        {"raw24/raw24", 0x0000'0500'0003, 3, "5/3"},
        {"raw24/raw32", 0x00'0003'0012'3456, 3, "3 in 1193046"},
        {"raw24/raw32", 0x0300'0012'3456, 0x12'3456, "1193046 in 768", "210zr54"},
        {"min2hour", 0x0001'0000'0096, 2.5, "2 h 30 min"},
        {"halfmin2hour", 300, 2.5, "2 h 30 min"},
        {"sec2hour", 9000, 2.5, "2 h 30 min"},
        {"msec24hour32", 0x1B'7740'0000'0002, 2.5, "2 h 30 min"},
        {"tempminmax", 0x0030'0014'0022, 34, 34},
        {"tempminmax", 0xFB, -5, -5},
        {"tempminmax", 200, 200, 200}, // not -56 °C
        {"temp10x", 345, 34.5, 34},
    };
    for (const RawCase& each : cases) {
        const auto page = parseSMARTData(dataPage({{.attributeID = 9, .current = 95, .worst = 90, .raw = each.raw}}));
        const RawFormat format = rawFormatNamed(each.format).value();
        const SMARTRawValue value = readRawValue(format, rawNumber(format, each.order, page->entries.at(0)));
        EXPECT_EQ(value.figure, each.figure) << each.format;
        EXPECT_EQ(value.shown, each.shown) << each.format;
    }
    EXPECT_EQ(rawFormatNamed("raw47"), std::nullopt);
    SMARTStatCollectorAttribute plain(250);
    EXPECT_EQ(plain.format(), -1);
    EXPECT_EQ(plain.rawvalue({.attributeID = 250, .current = 1, .worst = 2, .raw = {9, 0, 0, 0, 0, 0}}), 9U);
    for (const int wide : {3, 5}) {
        plain.setFormat(wide);
        EXPECT_EQ(plain.rawvalue({.attributeID = 250, .current = 1, .worst = 2, .raw = {9}}), 9U * 65536 + 2 * 256 + 1);
    }
}

TEST(SMARTAttribute, StatusComparesWithTheThreshold)
{
    const auto statusOf = [](std::uint8_t current, std::uint8_t worst, double threshold) {
        SMARTStatCollectorAttribute attribute(5);
        attribute.setThreshold(threshold);
        attribute.updateWithAttribute({.attributeID = 5, .current = current, .worst = worst}, 1, 1);
        return attribute.status();
    };
    EXPECT_EQ(statusOf(100, 90, 95), AttributeStatus::FailedInThePast);
    EXPECT_EQ(statusOf(94, 90, 95), AttributeStatus::FailingNow);
    EXPECT_EQ(statusOf(95, 95, 95), AttributeStatus::Fine);
    EXPECT_EQ(statusOf(0, 0, 0), AttributeStatus::Fine);
}

} // namespace
} // namespace meridal::test
