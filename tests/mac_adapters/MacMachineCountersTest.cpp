// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/SystemSettings.h"
#include "platform/macos/machine/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"
#include "tests/support/HandWork.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <memory>
#include <string>

namespace meridal {
namespace {

constexpr std::uint64_t tickNs = 10'000'000;

// A disk in it as on a MacBook Pro of 2020; the reader of cards and the stick are invented.
constexpr const char* drives = R"ioreg(
+-o NVMeDriver  <class IOBlockStorageDriver:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000290>
  | {
  |   "Statistics" = {"Operations (Write)"=250,"Latency Time (Write)"=0,"Bytes (Read)"=40960000,"Errors (Write)"=0,"Total Time (Read)"=700,"Total Time (Write)"=800,"Operations (Read)"=1000,"Bytes (Write)"=1024000}
  | }
  |
  +-o APPLE SSD AP1024R Media  <class IOMedia:IOStorage:IOService:IORegistryEntry:OSObject, id 0x1000002a0>
    | {
    |   "BSD Name" = "disk0"
    | }
    |
    +-o Partition  <class IOMedia:IOStorage:IOService:IORegistryEntry:OSObject, id 0x1000002b0>
        {
          "BSD Name" = "disk0s1"
        }
+-o ReaderDriver  <class IOBlockStorageDriver:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000300>
    {
      "Statistics" = {"Operations (Read)"=3,"Bytes (Read)"=1536}
    }
+-o StickDriver  <class IOBlockStorageDriver:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000310>
  | {
  |   "Statistics" = "none"
  | }
  |
  +-o Stick  <class IOMedia:IOStorage:IOService:IORegistryEntry:OSObject, id 0x100000320>
      {
        "BSD Name" = "disk10"
      }
)ioreg";

TEST(MacMachineCounters, ProcessorsByTheirStatesAndTheMemoryOfEachAnswerIsGivenBack)
{
    test::SimulatedMac mac;
    const auto counters = makeMacMachineCounters();
    mac.kernel.processors = {{100, 20, 3000, 4}, {0, 0, 4'294'967'295U, 1}};
    const ProcessorReading* reading = counters->processors();
    ASSERT_TRUE(reading);
    ASSERT_EQ(reading->each.size(), 2U);
    const ProcessorTimes first = {
        .userNs = 100 * tickNs, .niceNs = 4 * tickNs, .systemNs = 20 * tickNs, .idleNs = 3000 * tickNs};
    EXPECT_EQ(reading->each[0].times, first);
    EXPECT_EQ(reading->each[1].number, 1);
    EXPECT_EQ(reading->all.idleNs, 4'294'970'295U * tickNs);
    EXPECT_EQ(reading->all.niceNs, 5 * tickNs);
    mac.kernel.processors[1] = {0, 0, 4, 1};
    EXPECT_EQ(counters->processors()->each[1].times.idleNs, 4'294'967'300U * tickNs)
        << "the kernel's count started again";
    mac.kernel.processors[1] = {0, 0, 3, 1};
    EXPECT_EQ(counters->processors()->each[1].times.idleNs, 4'294'967'299U * tickNs) << "it is estimated";

    mac.kernel.processors.pop_back();
    EXPECT_EQ(counters->processors()->each.size(), 1U);
    EXPECT_EQ(counters->processors()->all, first) << "and not in addition to what was";
    mac.ledger.fail("host_processor_info", KERN_FAILURE);
    EXPECT_EQ(counters->processors(), nullptr);
    EXPECT_EQ(mac.ledger.open(), std::vector<std::string>{"1 x right to the host's port"}) << "one for all questions";
}

TEST(MacMachineCounters, MemoryIsInPagesOfTheKernelsSize)
{
    test::SimulatedMac mac;
    const auto counters = makeMacMachineCounters();
    EXPECT_EQ(counters->memory(), nullptr) << "nobody says how much there is";
    constexpr std::uint64_t page = 16384;
    mac.kernel.set("hw.memsize", std::uint64_t{32} << 30);
    // Counts as on an Intel Mac, where the pages were smaller; the compressor's and swap's are invented.
    vm_statistics64& pages = mac.kernel.pages;
    pages.free_count = 6'557'944;
    pages.wire_count = 715'958;
    pages.purgeable_count = 11'820;
    pages.speculative_count = 430'715;
    pages.external_page_count = 1'080'348;
    pages.compressor_page_count = 100;
    pages.total_uncompressed_pages_in_compressor = 250;
    pages.swapins = 5'000'000'000;
    pages.swapouts = 7;
    const MemoryReading* memory = counters->memory();
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->total, std::uint64_t{32} << 30);
    EXPECT_EQ(memory->free, 6'127'229 * page) << "what is read ahead counts as free in the kernel";
    EXPECT_EQ(memory->cached, 1'092'168 * page);
    EXPECT_EQ(memory->available, (6'127'229 + 1'092'168) * page);
    EXPECT_EQ(memory->wired, 715'958 * page);
    EXPECT_EQ(memory->compressed, 100 * page);
    EXPECT_EQ(memory->compressedContents, 250 * page);
    EXPECT_EQ(memory->swappedIn, 5'000'000'000 * page);
    EXPECT_EQ(memory->swappedOut, 7 * page);
    EXPECT_EQ(memory->pressureLevel, std::nullopt);
    EXPECT_EQ(memory->swapTotal, 0U);

    mac.kernel.set("vm.swapusage", xsw_usage{2048, 836, 1212, 4096, 1});
    mac.kernel.set("kern.memorystatus_vm_pressure_level", std::int32_t{4});
    pages.speculative_count = 6'557'945;
    EXPECT_EQ(counters->memory()->free, 0U) << "the counts are taken one after the other";
    EXPECT_EQ(counters->memory()->swapUsed, 1212U);
    EXPECT_EQ(counters->memory()->swapTotal, 2048U);
    EXPECT_EQ(counters->memory()->pressureLevel, MemoryPressureLevel::Critical);
    mac.kernel.set("kern.memorystatus_vm_pressure_level", std::int32_t{3});
    mac.kernel.settings["vm.swapusage"].resize(24);
    EXPECT_EQ(counters->memory()->pressureLevel, std::nullopt) << "no level that is known";
    EXPECT_EQ(counters->memory()->swapTotal, 0U) << "a record of another layout";
    mac.ledger.fail("host_statistics64", KERN_FAILURE);
    EXPECT_EQ(counters->memory(), nullptr);
}

TEST(MacMachineCounters, BlockDevicesAreThoseWithAMedium)
{
    test::SimulatedMac mac;
    const auto counters = makeMacMachineCounters();
    mac.registry.plug(drives);
    const auto* devices = counters->blockDevices();
    ASSERT_TRUE(devices);
    ASSERT_EQ(devices->size(), 2U) << "not the reader without a card, nor a partition";
    const BlockDeviceRecord first = {.name = "disk0",
        .identity = 0x100000290,
        .reads = 1000,
        .readBytes = 40'960'000,
        .readNs = 700,
        .writes = 250,
        .writtenBytes = 1'024'000,
        .writeNs = 800};
    EXPECT_EQ(devices->at(0), first);
    EXPECT_EQ(devices->at(1).name, "disk10");
    EXPECT_EQ(devices->at(1).reads, 0U) << "its driver publishes no figures";

    mac.registry.at("NVMeDriver").properties["Statistics"] = {{"Operations (Read)", -5}, {"Bytes (Read)", "many"}};
    EXPECT_EQ(counters->blockDevices()->at(0).reads, 0U);
    mac.registry.unplug("StickDriver");
    EXPECT_EQ(counters->blockDevices()->size(), 1U);
    mac.ledger.fail("IOServiceGetMatchingServices");
    EXPECT_EQ(counters->blockDevices(), nullptr);
}

TEST(MacSystemSettings, AreReadInTheSizesThatTheyHave)
{
    test::SimulatedMac mac;
    EXPECT_EQ(systemSettingInteger("hw.memsize"), std::nullopt);
    EXPECT_EQ(systemSettingText("kern.osversion"), std::nullopt);
    mac.kernel.set("hw.memsize", std::uint64_t{3} << 40);
    mac.kernel.set("hw.ncpu", std::int32_t{8});
    mac.kernel.set("kern.negative", std::int32_t{-1});
    mac.kernel.set("kern.narrow", std::int16_t{5});
    mac.kernel.set("kern.osversion", std::string("23A344\0", 7));
    mac.kernel.set("kern.empty", std::string());
    EXPECT_EQ(systemSettingInteger("hw.memsize"), std::uint64_t{3} << 40);
    EXPECT_EQ(systemSettingInteger("hw.ncpu"), 8U);
    EXPECT_EQ(systemSettingInteger("kern.negative"), std::nullopt);
    EXPECT_EQ(systemSettingInteger("kern.narrow"), std::nullopt);
    EXPECT_EQ(systemSettingInteger("kern.osversion"), std::nullopt);
    EXPECT_EQ(systemSettingText("kern.osversion"), "23A344");
    EXPECT_EQ(systemSettingText("kern.empty"), std::nullopt);
    mac.kernel.meanwhile = [&](const std::string&) { mac.kernel.set("kern.osversion", std::string("24")); };
    EXPECT_EQ(systemSettingText("kern.osversion"), "24") << "it became shorter, and has no end of its own";
    mac.kernel.meanwhile = [&](const std::string&) { mac.kernel.set("kern.osversion", std::string(40, '2')); };
    EXPECT_EQ(systemSettingText("kern.osversion"), std::nullopt) << "it no longer fits";
}

TEST(MacSelfUsage, WhatTheDaemonCosts)
{
    test::SimulatedMac mac;
    const auto usage = makeMacSelfUsage(1'000);
    EXPECT_EQ(usage->read().openDescriptors, std::nullopt);
    EXPECT_EQ(usage->readCost().wakeups, std::nullopt) << "refused, and not 0";
    auto& self = mac.kernel.processes[getpid()];
    self.files = {0, 1, 2, 9};
    self.usage.ri_user_time = 1500;
    self.usage.ri_system_time = 500;
    self.usage.ri_pkg_idle_wkups = 12;
    self.usage.ri_resident_size = 4096;
    self.usage.ri_diskio_byteswritten = 77;
    const SelfUsageReading reading = usage->read();
    EXPECT_EQ(reading.openDescriptors, 4U);
    EXPECT_EQ(reading.cpuSeconds, 2.0);
    EXPECT_EQ(reading.wakeups, 12U);
    EXPECT_EQ(reading.residentBytes, 4096U);
    EXPECT_EQ(reading.bytesWritten, 77U);
    EXPECT_EQ(usage->readCost().cpuSeconds, 2.0);
    EXPECT_EQ(makeMacSelfUsage(0)->readCost().cpuSeconds, std::nullopt) << "of an unknown unit";
    mac.ledger.fail("proc_pidinfo 1", EPERM);
    EXPECT_EQ(usage->read().openDescriptors, std::nullopt);
}

// The window server, and what it answers.
int connectionToServer = 0;
std::int32_t refusalOfServer = 0;
double rateOfServer = 0;
int connectToServer() { return connectionToServer; }
std::int32_t askServer(int, double* rate, double* second, double* third, double* fourth)
{
    *rate = rateOfServer;
    *second = *third = *fourth = 1e9;
    return refusalOfServer;
}

class WindowServerTest : public testing::Test {
protected:
    WindowServerTest()
    {
        auto& library = mac.kernel.libraries["/System/Library/Frameworks/CoreGraphics.framework/CoreGraphics"];
        library["CGSMainConnectionID"] = reinterpret_cast<void*>(connectToServer);
        library["CGSGetPerformanceData"] = reinterpret_cast<void*>(askServer);
    }
    /// The limitation that comes with the next answer.
    std::string refusal()
    {
        EXPECT_EQ(display->frameRate(), std::nullopt);
        return limitations->all()["frame-rate"];
    }

    test::SimulatedMac mac;
    std::shared_ptr<Limitations> limitations = std::make_shared<Limitations>();
    std::unique_ptr<DisplayInfo> display = makeWindowServerDisplayInfo(
        limitations, std::make_shared<test::HandWork>(std::make_shared<test::HandWork::Script>()));
};

TEST_F(WindowServerTest, TellsOfFramesOnlyToWhoBelongsToASession)
{
    EXPECT_EQ(mac.ledger.calls("dlopen"), 0) << "nobody has asked";
    connectionToServer = 0;
    EXPECT_NE(refusal().find("outside of any login session"), std::string::npos);
    connectionToServer = 77;
    refusalOfServer = 1000;
    EXPECT_NE(refusal().find("gave no performance data"), std::string::npos);
    refusalOfServer = 0;
    for (const double nonsense : {-1.0, 1e6, std::nan("")}) {
        rateOfServer = nonsense;
        EXPECT_NE(refusal().find("made no sense"), std::string::npos);
    }
    rateOfServer = 60;
    EXPECT_EQ(display->frameRate(), 60);
    EXPECT_TRUE(limitations->all().empty()) << "what was refused is no longer";
    EXPECT_LE(mac.ledger.calls("dlopen"), 1);
}

} // namespace
} // namespace meridal
