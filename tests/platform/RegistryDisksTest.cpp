#include "platform/formats/RegistryDisks.h"
#include "base/Value.h"

#include <gtest/gtest.h>

#include <utility>

namespace meridal {
namespace {

/// An entry with its properties, and with what a search below it finds.
struct TestEntry final : RegistryEntry {
    explicit TestEntry(Value own, std::shared_ptr<const TestEntry> above = nullptr, Value below = Value::object())
        : properties(std::move(own)), children(std::move(below)), holder(std::move(above))
    {
    }
    Value property(std::string_view key) const override
    {
        const Value* value = find(properties, key);
        return value ? *value : Value();
    }
    Value searchChildren(std::string_view key) const override
    {
        const Value* below = find(children, key);
        return below ? *below : property(key);
    }
    RegistryEntryPtr parent() const override { return holder; }

    Value properties;
    Value children;
    std::shared_ptr<const TestEntry> holder;
};

/// An entry that hangs on that many others without properties, and those on one that has some.
TestEntry below(int levels, const Value& properties)
{
    auto holder = std::make_shared<const TestEntry>(properties);
    for (int level = 1; level < levels; ++level) {
        holder = std::make_shared<const TestEntry>(Value::object(), holder);
    }
    return TestEntry(Value::object(), holder);
}

// The names of the properties are those of IOKit/storage/IOStorageDeviceCharacteristics.h and IOBlockStorageDriver.h.
TEST(RegistryDisks, ADiskIsWhatItsEntrySays)
{
    const Value characteristics{
        {"Vendor Name", "ACME    "}, {"Product Name", "Disk 1"}, {"Serial Number", 12}, {"Medium Type", "Rotational"}};
    const TestEntry entry({{"Device Characteristics", characteristics}}, nullptr,
        {{"BSD Name", "disk2"}, {"Statistics", {{"Operations (Read)", 70}, {"Operations (Write)", 7}}}});
    const DiskRecord disk = registryDisk(entry, SMARTKind::ATA);
    EXPECT_EQ(disk.vendor, "ACME    ") << "as it is: who reads it trims";
    EXPECT_EQ(disk.model, "Disk 1");
    EXPECT_EQ(disk.serial, "12") << "some keep a number";
    EXPECT_EQ(disk.blockDevice, "disk2");
    EXPECT_EQ(disk.rotational, true);
    EXPECT_EQ(registryRequests(entry), 77);

    const TestEntry silent(Value{{"Device Characteristics", {{"Medium Type", "Drum"}}}});
    const DiskRecord nothing = registryDisk(silent, SMARTKind::NVMe);
    EXPECT_EQ(nothing.kind, SMARTKind::NVMe);
    EXPECT_FALSE(nothing.model || nothing.serial || nothing.blockDevice || nothing.rotational);
    EXPECT_FALSE(registryRequests(silent));
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
    const auto at = [](int current, int highest) {
        return Value{{"IOPowerManagement", {{"CurrentPowerState", current}, {"MaxPowerState", highest}}}};
    };
    const auto power = [](const RegistryEntry& entry) { return registryPower(entry, SMARTKind::ATA); };
    EXPECT_EQ(power(TestEntry(at(4, 4))), DiskPower::Awake);
    EXPECT_EQ(power(TestEntry(at(3, 4))), DiskPower::Awake) << "idle";
    EXPECT_EQ(power(TestEntry(at(2, 4))), DiskPower::Asleep);
    EXPECT_EQ(power(TestEntry(at(0, 0))), DiskPower::Awake) << "a driver without states";
    EXPECT_EQ(power(below(3, at(1, 4))), DiskPower::Asleep);
    EXPECT_EQ(power(below(4, at(1, 4))), DiskPower::Awake) << "another device's";
    EXPECT_EQ(registryPower(TestEntry(at(1, 4)), SMARTKind::NVMe), DiskPower::Awake);
}

} // namespace
} // namespace meridal
