// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/HwmonSensors.h"

#include "platform/linux/machine/LinuxMachineInfo.h"
#include "tests/linux/HwmonMachine.h"

#include <gtest/gtest.h>

#include <set>
#include <sys/stat.h>

namespace meridal {
namespace {

using test::HwmonMachine;

void addProcessor(HwmonMachine& machine, const std::string& entry)
{
    machine.chip(entry, "platform/coretemp.0", "platform", "coretemp",
        {{"temp1_input", "52000"}, {"temp1_label", "Package id 0"}, {"temp1_max", "80000"}, {"temp1_crit", "105000"},
            {"temp1_crit_alarm", "0"}, {"temp2_input", "49500"}, {"temp2_label", "Core 0"}});
}
void addDisk(HwmonMachine& machine, const std::string& entry, const std::string& disk)
{
    machine.chip(entry, "pci0000:00/0000:00:06.0/0000:01:00.0/nvme/" + disk, "", "nvme",
        {{"temp1_input", "38850"}, {"temp1_label", "Composite"}, {"temp1_min", "-273150"}});
    std::filesystem::create_directories( // as of a disk with several paths
        machine.tree.root() / "sys/devices/pci0000:00/0000:00:06.0/0000:01:00.0/nvme" / disk / (disk + "c3n1"));
    if (!std::filesystem::exists(machine.tree.root() / "sys/bus/pci")) {
        std::filesystem::create_directories(machine.tree.root() / "sys/bus/pci");
        machine.tree.link(
            "sys/devices/pci0000:00/0000:00:06.0/0000:01:00.0/subsystem", machine.tree.root() / "sys/bus/pci");
    }
}
void addFans(HwmonMachine& machine, const std::string& entry)
{
    machine.chip(entry, "platform/thinkpad_hwmon", "platform", "thinkpad",
        {{"fan1_input", "2650"}, {"fan1_label", "CPU Fan Left Side"}, {"fan2_input", "0"}, {"fan2_max", "6000"},
            {"fan2_min", "500"}, {"in0_input", "12345"}, {"curr1_input", "-1500"}, {"power1_average", "7250000"}});
}
struct Laptop : HwmonMachine {
    Laptop()
    {
        addProcessor(*this, "hwmon0");
        addDisk(*this, "hwmon1", "nvme0");
        addFans(*this, "hwmon2");
        start();
    }
};
TEST(HwmonSensors, ALaptopsChips)
{
    Laptop laptop;
    for (const auto& [name, value] :
        std::map<std::string, double>{{"coretemp-isa-0000 Package id 0", 52}, {"nvme-pci-0100 Composite", 38.85},
            {"thinkpad-isa-0000 in0", 12.345}, {"thinkpad-isa-0000 curr1", -1.5}, {"thinkpad-isa-0000 power1", 7.25},
            {"thinkpad-isa-0000 CPU Fan Left Side", 2650}, {"thinkpad-isa-0000 fan2", 0}}) {
        EXPECT_EQ(laptop.valueOf(name), value) << name;
    }
    const std::string core = laptop.key("coretemp-isa-0000 Core 0");
    EXPECT_EQ(core, "platform/coretemp.0/coretemp/temp2");
    EXPECT_EQ(laptop.records().at("thinkpad-isa-0000 fan2").limits, (SensorLimits{.low = 500, .high = 6000}));
    EXPECT_EQ(laptop.read("TC0P"), SensorReading());
    EXPECT_EQ(laptop.records().at("nvme-pci-0100 Composite").disk, "nvme0n1");
    EXPECT_EQ(laptop.records().at("coretemp-isa-0000 Core 0").disk, "");
    laptop.set("hwmon0", "temp2_input", "61000\n");
    EXPECT_EQ(laptop.valueOf("coretemp-isa-0000 Core 0"), 61);
    laptop.runtime.advance(10);
    laptop.script->posts = 0;
    EXPECT_EQ(laptop.sensors->read(std::vector{core, std::string("x"), core}).back(), (SensorReading{true, 61}));
    EXPECT_EQ(laptop.script->posts, 1) << "what nobody asks for is not read";
}

TEST(HwmonSensors, WhatCannotBeReadIsAbsentAndTheOthersAreThere)
{
    HwmonMachine machine;
    machine.chip("hwmon0", "platform/it87.656", "platform", "it87",
        {{"temp1_input", ""}, {"temp2_input", "nonsense"}, {"temp3_input", "12 34"}, {"temp4_input", "127000"},
            {"temp4_fault", "1"}, {"temp5_input", "99999999999999999999999"}, {"temp6_input", "41000"}});
    // An error from the driver: reading a folder fails.
    std::filesystem::create_directory(machine.tree.root() / "sys/devices/platform/it87.656/hwmon/hwmon0/temp7_input");
    ASSERT_EQ(::mkfifo((machine.tree.root() / "sys/class/hwmon/hwmon0/temp8_input").c_str(), 0600), 0);
    machine.start();
    const std::map<std::string, std::string> failures = {
        {"temp7", "it87-isa-0290 temp7: Is a directory"}, {"temp8", "it87-isa-0290 temp8: Illegal seek"}};
    for (const char* name : {"temp1", "temp2", "temp3", "temp4", "temp5", "temp7", "temp8"}) {
        const std::string sensor = "it87-isa-0290 " + std::string(name);
        EXPECT_FALSE(machine.valueOf(sensor)) << name;
        EXPECT_EQ(machine.read(machine.key(sensor)).failure, failures.contains(name) ? failures.at(name) : "");
    }
    EXPECT_EQ(machine.valueOf("it87-isa-0290 temp6"), 41);
    machine.set("hwmon0", "temp4_fault", "0");
    machine.set("hwmon0", "temp1_input", "35000");
    EXPECT_EQ(machine.valueOf("it87-isa-0290 temp4"), 127);
    EXPECT_EQ(machine.valueOf("it87-isa-0290 temp1"), 35);
}

TEST(HwmonSensors, KeysSurviveAnotherOrderOfProbing)
{
    const Laptop first;
    auto before = first.records();
    ASSERT_EQ(before.size(), 8U);
    HwmonMachine second; // the same machine, probed the other way round, and with another disk found before
    addFans(second, "hwmon0");
    addDisk(second, "hwmon3", "nvme4");
    addProcessor(second, "hwmon7");
    second.start();
    before.at("nvme-pci-0100 Composite").disk = "nvme4n1"; // what the kernel calls it this time, unlike its key
    EXPECT_EQ(second.records(), before);
}

TEST(HwmonSensors, ACounterInADriversNameIsNoPartOfAKey)
{
    const auto keysWith = [](const char* counter) {
        HwmonMachine machine;
        for (const std::string name : {"iwlwifi_", "mt7921_phy", "hidpp_battery_"}) {
            machine.chip(name, "platform/" + name, "", name + counter, {{"temp1_input", "1"}});
        }
        machine.start();
        std::set<std::string> keys;
        for (const SensorRecord& sensor : machine.sensors->sensors()) {
            keys.insert(sensor.key);
        }
        return keys;
    };
    EXPECT_EQ(keysWith("1"), keysWith("12"));
    EXPECT_EQ(keysWith("0").size(), 3U);
    HwmonMachine empty;
    empty.start();
    EXPECT_TRUE(empty.sensors->sensors().empty() && empty.sensors->flags().empty());
    EXPECT_TRUE(LinuxMachineInfo(empty.tree.root()).hasService("FakeSMC"));
}

TEST(HwmonSensors, FollowsChipsThatComeAndGo)
{
    HwmonMachine machine;
    addProcessor(machine, "hwmon0");
    addDisk(machine, "hwmon1", "nvme0");
    machine.start();
    const std::string disk = machine.key("nvme-pci-0100 Composite");
    const std::uint64_t generation = machine.sensors->generation();
    EXPECT_TRUE(machine.value(disk));

    machine.remove("hwmon1");
    machine.runtime.advance(6);
    EXPECT_FALSE(machine.read(disk).isThere);
    EXPECT_NE(machine.sensors->generation(), generation);
    EXPECT_EQ(machine.valueOf("coretemp-isa-0000 Core 0"), 49.5);

    addDisk(machine, "hwmon2", "nvme1");
    machine.set("hwmon2", "temp1_input", "31000\n");
    machine.runtime.advance(6);
    EXPECT_EQ(machine.key("nvme-pci-0100 Composite"), disk);
    EXPECT_EQ(machine.value(disk), 31);
}

TEST(HwmonSensors, AChipThatHangsIsAbsentAndHoldsUpNoOther)
{
    HwmonMachine machine;
    addProcessor(machine, "hwmon0");
    addDisk(machine, "hwmon1", "nvme0");
    machine.start();
    const std::string processor = machine.key("coretemp-isa-0000 Core 0");
    const std::string disk = machine.key("nvme-pci-0100 Composite");
    ASSERT_EQ(machine.value(processor), 49.5);
    ASSERT_TRUE(machine.value(disk));

    machine.runtime.advance(1);
    machine.script->hang = 0; // the processor's chip is the first to be read
    machine.script->waits = 0;
    machine.set("hwmon1", "temp1_input", "70000");
    EXPECT_EQ(machine.value(processor), 49.5); // waited for in vain: what it said a second ago
    EXPECT_EQ(machine.value(disk), 70);
    machine.runtime.advance(8);
    EXPECT_FALSE(machine.value(processor));
    EXPECT_EQ(machine.value(disk), 70);
    EXPECT_EQ(machine.script->waits, 2); // once for the chip that hangs, once for the other, which was read meanwhile

    ASSERT_EQ(machine.script->hanging.size(), 1U);
    machine.script->hanging[0](); // the driver comes back
    machine.runtime.advance(60);
    EXPECT_EQ(machine.value(processor), 49.5);
}

TEST(HwmonSensors, AServerWithManyChipsIsReadOnceARound)
{
    HwmonMachine server;
    for (int bus = 0; bus < 20; ++bus) {
        HwmonMachine::Files files;
        for (int i = 1; i <= 9; ++i) {
            files.emplace_back("temp" + std::to_string(i) + "_input", std::to_string(30000 + 1000 * i));
        }
        files.emplace_back("fan1_input", "4000");
        server.chip("hwmon" + std::to_string(bus),
            "pci0000:00/0000:00:1f.4/i2c-" + std::to_string(bus) + "/" + std::to_string(bus) + "-00"
                + std::to_string(20 + bus),
            "i2c", "lm75", files);
    }
    server.start();
    const auto records = server.records();
    EXPECT_TRUE(records.contains("lm75-i2c-3-23 temp9"));
    std::set<std::string> keys;
    for (const auto& [name, record] : records) {
        keys.insert(record.key);
    }
    EXPECT_EQ(keys.size(), 20U * 10);
    for (const SensorReading& reading : server.sensors->read(std::vector(keys.begin(), keys.end()))) {
        EXPECT_TRUE(reading.value);
    }
    EXPECT_EQ(server.script->posts, 20);
}

TEST(HwmonSensors, OnAMacTheKeysAreTheChipsOwn)
{
    HwmonMachine mac;
    addProcessor(mac, "hwmon0");
    const std::string device = "sys/devices/platform/applesmc.768/"; // an old driver: everything is with the device
    for (const auto& [file, text] : HwmonMachine::Files{{"name", "applesmc"}, {"temp1_input", "44250"},
             {"temp1_label", "TC0P"}, {"fan1_input", "1999"}, {"fan1_label", "Exhaust  "}}) {
        mac.tree.write(device + file, text + "\n");
    }
    mac.tree.link(device + "hwmon/hwmon1/device", "../..");
    mac.tree.link("sys/class/hwmon/hwmon1", "../../devices/platform/applesmc.768/hwmon/hwmon1");
    mac.start();
    EXPECT_EQ(mac.value("TC0P"), 44.25);
    EXPECT_EQ(mac.value("F0Ac"), 1999);
    EXPECT_FALSE(LinuxMachineInfo(mac.tree.root()).hasService("FakeSMC"));

    HwmonMachine silicon;
    silicon.chip("hwmon0", "platform/soc/2.smc/macsmc-hwmon", "platform", "macsmc_hwmon",
        {{"temp1_input", "30000"}, {"temp1_label", "Battery Hotspot"}, {"fan1_input", "1350"}, {"fan1_label", "Fan"},
            {"power1_input", "9000000"}, {"power1_label", "Total"}});
    const auto node = [&](const std::string& name, const std::string& key, const std::string& label) {
        const std::string folder = "sys/devices/platform/soc/2.smc/macsmc-hwmon/of_node/" + name;
        silicon.tree.write(folder + "/apple,key-id", key + '\0');
        silicon.tree.write(folder + "/label", label + '\0');
    };
    node("temperature-TB0T", "TB0T", "Battery Hotspot");
    node("fan-F0Ac", "F0Ac", "Fan");
    node("power-PSTR", "PSTR", "Total");
    silicon.start();
    EXPECT_EQ(silicon.value("TB0T"), 30);
    EXPECT_EQ(silicon.value("F0Ac"), 1350);
    EXPECT_EQ(silicon.value("PSTR"), 9);
    EXPECT_FALSE(LinuxMachineInfo(silicon.tree.root()).hasService("FakeSMC"));
}

TEST(HwmonSensors, TellChipsLabelsAndLimits)
{
    Laptop laptop;
    laptop.tree.write("etc/sensors.d/mine",
        "chip \"thinkpad-*\"\n  label in0 \"Battery\"\n  compute in0 @*2.9, @/2.9\n"
        "  ignore fan2\nchip \"core*-isa-*\"\n  label temp2 \"Kern\033[31m\"\n");
    laptop.start();
    const auto sensors = laptop.sensors->sensors();
    ASSERT_EQ(sensors.size(), 8U);
    EXPECT_EQ(sensors[0],
        (SensorRecord{.key = "platform/coretemp.0/coretemp/temp1",
            .chip = "coretemp-isa-0000",
            .channel = "temp1",
            .label = "Package id 0",
            .kind = SensorKind::Temperature,
            .limits = {.critical = 105},
            .tellsCritical = true}));
    EXPECT_EQ(sensors[1].label, "Kern?[31m");
    EXPECT_EQ(sensors[2].limits.low, -273.15);
    EXPECT_FALSE(laptop.records().contains("thinkpad-isa-0000 fan2")) << "told as one that is ignored";
    EXPECT_EQ(laptop.valueOf("thinkpad-isa-0000 Battery"), 35.8005) << "not what binary makes of it";
}

TEST(HwmonSensors, ChipsSayThemselvesWhatIsWrong)
{
    HwmonMachine machine;
    machine.chip("hwmon0", "platform/nct6775.656", "platform", "nct6775",
        {{"in0_input", "1048"}, {"in0_alarm", "1"}, {"in1_input", "12000"}, {"in1_alarm", "0"}, {"fan1_input", "0"},
            {"fan1_min", "600"}, {"fan1_alarm", "1"}, {"temp1_input", "127000"}, {"temp1_fault", "1"},
            {"temp2_input", "91000"}, {"temp2_max_alarm", "1"}, {"humidity1_input", "48500"}});
    machine.chip("hwmon1", "pci0000:00/0000:00:1f.4/i2c-7/7-004c", "i2c", "lm90",
        {{"temp1_input", "101000"}, {"temp1_crit", "100000"}, {"temp1_lcrit", "-20000"}, {"temp1_crit_alarm", "1"},
            {"temp2_input", "-30000"}, {"temp2_min_alarm", "1"}, {"temp2_lcrit_alarm", ""}});
    machine.start();
    const auto known = machine.records();
    for (const auto& [name, record] : known) {
        machine.value(record.key);
    }
    machine.runtime.advance(1);
    machine.script->posts = 0;
    const auto raised = machine.sensors->flags();
    EXPECT_EQ(machine.script->posts, 2) << "one reading a chip";
    const std::map<std::string, SensorFlags> expected = {{"nct6775-isa-0290 in0", {.any = true}},
        {"nct6775-isa-0290 fan1", {.any = true}}, {"nct6775-isa-0290 temp1", {.fault = true}},
        {"nct6775-isa-0290 temp2", {.high = true}}, {"lm90-i2c-7-4c temp1", {.critical = true}},
        {"lm90-i2c-7-4c temp2", {.low = true}}};
    EXPECT_EQ(raised.size(), expected.size());
    for (const auto& [name, flags] : expected) {
        EXPECT_EQ(raised.at(known.at(name).key), flags) << name;
    }
    EXPECT_EQ(known.at("lm90-i2c-7-4c temp1").limits.lowCritical, -20);
    EXPECT_EQ(known.at("nct6775-isa-0290 humidity1").kind, SensorKind::Humidity);
    EXPECT_EQ(machine.valueOf("nct6775-isa-0290 humidity1"), 48.5);
    machine.set("hwmon0", "temp1_fault", "0");
    EXPECT_EQ(machine.valueOf("nct6775-isa-0290 temp1"), 127);
    EXPECT_FALSE(machine.sensors->flags().contains(machine.key("nct6775-isa-0290 temp1")));
}

TEST(HwmonSensors, ADiskIsReadSeldom)
{
    HwmonMachine machine;
    machine.chip("hwmon0", "pci0000:00/0000:00:17.0/ata5/host4/target4:0:0/4:0:0:0", "scsi", "drivetemp",
        {{"temp1_input", "31000"}});
    machine.start();
    EXPECT_TRUE(machine.sensors->sensors().at(0).disturbs);
    const std::string key = machine.sensors->sensors().at(0).key;
    EXPECT_EQ(machine.value(key), 31);
    machine.script->posts = 0;
    machine.runtime.advance(290);
    EXPECT_EQ(machine.value(key), 31);
    EXPECT_EQ(machine.script->posts, 0);
    machine.set("hwmon0", "temp1_input", "40000");
    machine.runtime.advance(20);
    EXPECT_EQ(machine.value(key), 40);
}

TEST(HwmonSensors, ASleepingDeviceIsNotWoken)
{
    HwmonMachine machine;
    const std::string gpu = "pci0000:00/0000:00:01.0/0000:01:00.0";
    machine.chip("hwmon0", gpu, "pci", "amdgpu",
        {{"temp1_input", "41000"}, {"temp1_crit", "100000"}, {"temp1_crit_alarm", "1"}, {"fan1_input", "900"}});
    const auto becomes = [&](const char* status) {
        machine.tree.write("sys/devices/" + gpu + "/power/runtime_status", std::string(status) + "\n");
        machine.runtime.advance(61);
    };
    becomes("suspended");
    machine.start();
    const std::string key = machine.key("amdgpu-pci-0100 temp1");
    EXPECT_FALSE(machine.sensors->sensors().at(0).limits.critical);
    EXPECT_TRUE(machine.sensors->flags().empty());
    EXPECT_FALSE(machine.value(key));
    for (const char* awake : {"active", "unsupported"}) {
        becomes(awake);
        EXPECT_EQ(machine.value(key), 41) << awake;
        EXPECT_EQ(machine.sensors->sensors().at(0).limits.critical, 100);
        EXPECT_EQ(machine.sensors->flags().size(), 1U);
        becomes("suspended");
        EXPECT_EQ(machine.read(key), (SensorReading{true, std::nullopt}))
            << "there, but not as it was before its sleep";
        EXPECT_TRUE(machine.sensors->flags().empty());
    }
}

TEST(HwmonSensors, ALimitThatCouldNotBeReadComesLater)
{
    HwmonMachine machine;
    addProcessor(machine, "hwmon0");
    machine.set("hwmon0", "temp1_crit", "");
    machine.start();
    const std::uint64_t generation = machine.sensors->generation();
    EXPECT_FALSE(machine.sensors->sensors()[0].limits.critical);
    machine.runtime.advance(61);
    EXPECT_EQ(machine.sensors->generation(), generation) << "still none";
    machine.set("hwmon0", "temp1_crit", "100000");
    machine.runtime.advance(61);
    EXPECT_NE(machine.sensors->generation(), generation);
    EXPECT_EQ(machine.sensors->sensors()[0].limits.critical, 100);
}

} // namespace
} // namespace meridal
