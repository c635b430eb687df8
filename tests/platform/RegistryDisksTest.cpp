// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/RegistryDisks.h"
#include "base/Value.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace meridal {
namespace {

struct TestEntry final : RegistryEntry {
    explicit TestEntry(Value own, RegistryEntryPtr above = nullptr)
        : properties(std::move(own)), holder(std::move(above))
    {
    }
    Value property(std::string_view key) const override { return properties.value(std::string(key), Value()); }
    Value searchChildren(std::string_view key) const override { return property(key); }
    RegistryEntryPtr parent() const override { return holder; }

    Value properties;
    RegistryEntryPtr holder;
};

/// An entry that hangs on that many others, of which the last one has properties.
TestEntry below(int levels, const Value& properties)
{
    RegistryEntryPtr holder = std::make_shared<TestEntry>(properties);
    for (int level = 1; level < levels; ++level) {
        holder = std::make_shared<TestEntry>(Value::object(), holder);
    }
    return TestEntry(Value::object(), holder);
}

// The names are those of IOKit/storage/IOStorageDeviceCharacteristics.h and IOBlockStorageDriver.h.
TEST(RegistryDisks, ADiskIsWhatItsEntrySays)
{
    const TestEntry entry(
        {{"BSD Name", "disk2"}, {"Statistics", {{"Operations (Read)", 70}, {"Operations (Write)", 7}}},
            {"Device Characteristics",
                {{"Vendor Name", "ACME    "}, {"Product Name", "Disk 1"}, {"Serial Number", 12},
                    {"Medium Type", "Rotational"}}}});
    const DiskRecord disk = registryDisk(entry, SMARTKind::ATA);
    const std::vector<std::optional<std::string>> told{disk.vendor, disk.model, disk.serial, disk.blockDevice};
    EXPECT_THAT(told, testing::ElementsAre("ACME    ", "Disk 1", "12", "disk2")) << "as it is: who reads it trims";
    EXPECT_EQ(disk.rotational, true);
    EXPECT_EQ(registryRequests(entry), 77);
    const TestEntry silent(Value::object());
    EXPECT_FALSE(registryDisk(silent, SMARTKind::NVMe).rotational || registryRequests(silent));
}

TEST(RegistryDisks, ParentsCountAsFarAsTheyAreTheDisksOwn)
{
    const Value serials{{"GUID", "g"}, {"INQUIRY Unit Serial Number", "i"}, {"USB Serial Number", "u"}};
    for (const int levels : {1, 5, 6, 8, 9, 10, 11}) {
        const DiskRecord disk = registryDisk(below(levels, serials), SMARTKind::ATA);
        EXPECT_EQ(disk.guid.value_or("none"), levels <= 5 ? "g" : "none") << levels;
        EXPECT_EQ(disk.unitSerial.value_or("none"), levels <= 8 ? "i" : "none") << levels;
        EXPECT_EQ(disk.usbSerial.value_or("none"), levels <= 10 ? "u" : "none") << levels;
    }
}

TEST(RegistryDisks, ADiskBelowItsIdleStateIsAsleep)
{
    const auto isAsleep = [](int current, int highest, int levels, SMARTKind kind = SMARTKind::ATA) {
        const Value states{{"CurrentPowerState", current}, {"MaxPowerState", highest}};
        return registryPower(below(levels, {{"IOPowerManagement", states}}), kind) == DiskPower::Asleep;
    };
    EXPECT_FALSE(isAsleep(3, 4, 1)) << "idle";
    EXPECT_TRUE(isAsleep(2, 4, 1));
    EXPECT_FALSE(isAsleep(0, 0, 1)) << "a driver without states";
    EXPECT_TRUE(isAsleep(1, 4, 3));
    EXPECT_FALSE(isAsleep(1, 4, 4)) << "another device's";
    EXPECT_FALSE(isAsleep(1, 4, 1, SMARTKind::NVMe)) << "it wakes by itself";
}

} // namespace
} // namespace meridal
