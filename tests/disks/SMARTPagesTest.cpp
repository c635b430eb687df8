#include "collectors/disks/SMARTPages.h"

#include "collectors/disks/SMARTAttributeTable.h"
#include "collectors/disks/SMARTStatCollectorAttribute.h"
#include "tests/support/SMARTPageBuilder.h"

#include <gtest/gtest.h>

#include <set>

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
    EXPECT_FALSE(parseSMARTData({}));
    EXPECT_FALSE(parseSMARTThresholds({}));
    EXPECT_FALSE(parseATAIdentity({}));
    EXPECT_FALSE(parseNVMeHealth({}));
    EXPECT_FALSE(parseNVMeIdentity({}));
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
    EXPECT_EQ(page->thresholds[5], 140);
    EXPECT_EQ(page->thresholds[1], 51);
    EXPECT_EQ(page->thresholds[77], 9);
    EXPECT_FALSE(page->thresholds[0]);
    EXPECT_FALSE(page->thresholds[2]);
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
    EXPECT_EQ(health->dataWritten, 512e9);
    EXPECT_EQ(health->powerOnHours, 1234);
    EXPECT_EQ(health->powerCycles, 321);
    EXPECT_EQ(health->unsafeShutdowns, 7);
    EXPECT_EQ(health->sensors[0], 39);
    EXPECT_EQ(health->sensors[1], std::nullopt);
    EXPECT_EQ(parseNVMeHealth(healthPage({.kelvin = 0}))->temperature, std::nullopt) << "0 K is no reading";
}

struct RawCase {
    RawFormat format;
    std::uint64_t raw;
    double figure;
    Value shown;
};

TEST(SMARTAttribute, FormatsReadTheRawBytes)
{
    const RawCase cases[] = {
        {RawFormat::Raw48, 0x0100'0000'0002, 1099511627778.0, 0x0100'0000'0002},
        {RawFormat::Raw64, 2, 2.0 * 65536 + 90 * 256 + 95, 2 * 65536 + 90 * 256 + 95},
        {RawFormat::Hex64, 2, 2.0 * 65536 + 90 * 256 + 95, "0x0000000000025a5f"},
        {RawFormat::Bytes, 0x0102'0304'0506, 0x0102'0304'0506, "1 2 3 4 5 6"},
        {RawFormat::Words, 0x0001'0002'0003, 3, "1 2 3"},
        {RawFormat::Low16, 0x0007'0000'0003, 3, 3},
        {RawFormat::HoursAndFraction, 0x0912'0000'1C84, 7300, "7300 h"},
        {RawFormat::Minutes, 150, 2.5, "2 h 30 min"},
        {RawFormat::HalfMinutes, 300, 2.5, "2 h 30 min"},
        {RawFormat::Seconds, 9000, 2.5, "2 h 30 min"},
        {RawFormat::Temperature, 0x0030'0014'0022, 34, 34},
        {RawFormat::Temperature, 0xFB, -5, -5},
        {RawFormat::TemperatureTenths, 345, 34.5, 34},
        {RawFormat::ErrorsOfOperations, 0x0003'0012'3456, 3, "3 in 1193046"},
        {RawFormat::Sectors, 1'000'000'000, 512e9, "512 GB"},
    };
    for (const RawCase& each : cases) {
        SMARTStatCollectorAttribute attribute(9);
        attribute.setFormat(static_cast<int>(each.format));
        const auto page = parseSMARTData(dataPage({{.attributeID = 9, .current = 95, .worst = 90, .raw = each.raw}}));
        attribute.updateWithAttribute(page->entries.at(0), 7, 1.7e9);
        EXPECT_EQ(attribute.currentValue().formatted, each.figure) << static_cast<int>(each.format);
        EXPECT_EQ(attribute.value(), each.shown) << static_cast<int>(each.format);
    }
    SMARTStatCollectorAttribute plain(250);
    EXPECT_EQ(plain.format(), -1);
    EXPECT_EQ(plain.rawvalue({.attributeID = 250, .current = 1, .worst = 2, .raw = {9, 0, 0, 0, 0, 0}}), 9U);
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

TEST(SMARTAttributeTable, EntriesAreSoundAndVendorsComeFirst)
{
    std::set<std::pair<int, int>> seen;
    for (const SMARTAttributeInfo& info : commonAttributes()) {
        EXPECT_NE(info.attributeID, 0);
        EXPECT_FALSE(info.name.empty());
        EXPECT_TRUE(seen.emplace(info.attributeID, static_cast<int>(info.scope)).second) << int{info.attributeID};
    }
    EXPECT_EQ(attributeInfo(1, "ST4000DM004-2CV104", true)->format, RawFormat::ErrorsOfOperations);
    EXPECT_EQ(attributeInfo(1, "WDC WD40EFRX", true)->format, RawFormat::Raw48);
    EXPECT_EQ(attributeInfo(241, "INTEL SSDSC2BB240G4", false)->format, RawFormat::Mebibytes32);
    EXPECT_EQ(attributeInfo(177, "WDC WD40EFRX", true), nullptr) << "no such thing on a disk that spins";
    EXPECT_EQ(attributeInfo(0xFD, "whatever", std::nullopt), nullptr);
}

} // namespace
} // namespace meridal::test
