// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorKind.h"
#include "tests/sensors/SensorsFixture.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(SensorsTest, OfWhatAClientKnowsItGetsWhatIsThere)
{
    measure({{"TC0P", 41.5}, {"VC0C", 1.25}, {"TH0P", 254}, {"TG0D", 254}, {"TNaN", std::nullopt}, {"F0Ac", 1000}});
    start();
    const Value given = json(R"([{"key":"TC0P","name":"CPU","low":"10","high":41.85,"extra":[1]},
        {"key":"VC0C","name":"Core","low":0,"high":0},{"key":"TXXX"},{"key":"TH0P"},{"key":"TG0D"},{"key":"TNaN"},
        {"key":"F0Ac"},{"key":"TC0PX"},{"key":"TC0"},{"name":"keyless"},17,null,[]])");
    const Value entries = electric(given, PowerDetail::Fine);
    ASSERT_THAT(keysOf(entries), ElementsAre("TC0P", "VC0C", "TG0D", "TNaN"));
    EXPECT_EQ(entries[0],
        (Value{{"type", 0}, {"config", given[0]}, {"key", "TC0P"}, {"name", "CPU"}, {"value", 41.5}, {"low", 0.0},
            {"high", 41.85}}))
        << "the decimal that was given, not the float next to it";
    EXPECT_EQ(
        entries[1], (Value{{"type", 3}, {"config", given[1]}, {"key", "VC0C"}, {"name", "Core"}, {"value", 1.25}}));
    EXPECT_EQ(entries[3]["value"], 0.0) << "nothing that leaves the daemon is no number";
    for (const char* nonsense : {"null", "{}", "17", "\"TC0P\"", "[[[]]]"}) {
        EXPECT_EQ(electric(json(nonsense), PowerDetail::Fine), Value::array());
        EXPECT_EQ(daemon->service.supportedFans(json(nonsense), root), Value::array());
        EXPECT_EQ(daemon->service.supportedArmSensors(json(nonsense), root), Value::array());
    }
}

TEST_F(SensorsTest, ComputedSensorsNeedAllTheirFactors)
{
    measure({{"VC0C", 12'000}, {"IC0C", -1500}, {"TC0P", 40}});
    start();
    const Value given = json(R"([{"key":"XW01","multiply":["VC0C","IC0C"],"type":"watts"},
        {"key":"XW02","multiply":["VC0C","IXXX","IC0C"],"type":"watts"},{"key":"XA01","average":["TXXX","TYYY"]}])");
    const Value entries = electric(given, PowerDetail::Fine);
    EXPECT_THAT(keysOf(entries), ElementsAre("XW01", "XA01")) << "the keys of an average are not checked";
    EXPECT_EQ(entries[0]["type"], sensorKind::power);

    const auto valueOf = [this](const char* text) { return collector().valueForConfig(json(text)); };
    EXPECT_EQ(collector().valueForConfig(given[0]), 18);
    EXPECT_EQ(collector().valueForConfig(given[2]), 0);
    EXPECT_EQ(valueOf(R"({"average":["TC0P","TXXX","VC0C","IC0C"]})"), 6020) << "of those above 0";
    EXPECT_EQ(valueOf(R"({"key":"TC0P","multiply":["VC0C"],"type":"watts"})"), 40) << "a product of one is none";
    EXPECT_EQ(valueOf(R"({"key":"TXXX"})"), -1);
    for (const char* nonsense : {"null", "{}", "[1]", R"({"key":{}})", R"({"average":[]})"}) {
        const double value = valueOf(nonsense);
        EXPECT_TRUE(value == 0 || value == -1) << nonsense;
    }
}

TEST_F(SensorsTest, FansThatTheHostNames)
{
    fit({{sensorOf("F0Ac", "chip-1", "CPU Fan Links \u00e4", SensorKind::Fan, {.low = 800, .high = 3200}), 1200},
        {sensorOf("F9Ac", "chip-1", "CPUFanLinks\u00e4", SensorKind::Fan, {.low = 600, .high = 0}), 0},
        {sensorOf("FAAc", "chip-2", "Top", SensorKind::Fan), 900},
        {sensorOf("FBAc", "chip-2", " ", SensorKind::Fan), 1}});
    measure({{"FNum", 1}, {"F0Mn", 1}, {"F1Ac", 700}}); // what the records tell is not asked for
    start();
    const Value fans = daemon->service.supportedFans(Value(), root);
    ASSERT_THAT(keysOf(fans), ElementsAre("F0Ac", "F9Ac", "FAAc"));
    EXPECT_EQ(fans[0],
        (Value{{"type", 2}, {"config", {{"key", "F0Ac"}, {"name", "CPUFanLinks"}}}, {"key", "F0Ac"},
            {"name", "CPUFanLinks"}, {"value", 1200.0}, {"low", 800.0}, {"high", 3200.0}}))
        << "without blanks, and not cut in the midst of a character";
    EXPECT_EQ(fans[1]["low"], 600) << "as the chip has it";
    for (const auto& [key, figure] : std::map<std::string, double>{{"FNum", 12}, {"F0Mn", 800}, {"F0Mx", 3200},
             {"F9Mx", 0}, {"FAMn", 0}, {"F1Ac", 700}, {"F1Mn", -1}, {"F0ID", -1}, {"F", -1}}) {
        EXPECT_EQ(ask({{"key", key}}), figure) << key;
    }
    EXPECT_THAT(collector().allFans(), SizeIs(3));
    EXPECT_EQ(collector().fanControlFans().front()->nameFanControl(), "CPUFanLinks");
    EXPECT_EQ(collector().allFans().front()->alternateKey(), "99654870");
}

TEST_F(SensorsTest, OtherFansNeedAClientThatKnowsThem)
{
    measure({{"FNum", 3}, {"F0Ac", 1500}, {"F1Ac", 1500}, {"F2Ac", 1500}, {"F1Mx", 6000}});
    start();
    const Value fans =
        daemon->service.supportedFans(json(R"([{"key":"F1Ac","name":"Left","low":1200,"high":1}])"), root);
    ASSERT_THAT(keysOf(fans), ElementsAre("F1Ac"));
    EXPECT_EQ(fans[0]["name"], "Left");
    EXPECT_EQ(fans[0]["low"], 1200);
    EXPECT_EQ(fans[0]["high"], 6000);
    for (const double count : {-1.0, 0.0, 1e30}) {
        source().values["FNum"] = count;
        EXPECT_EQ(daemon->service.supportedFans(json(R"([{"key":"F1Ac"}])"), root).size(), count > 1 ? 1U : 0U)
            << count;
    }
}

TEST_F(SensorsTest, TemperaturesAreServicesByTheirNames)
{
    source().change({namelessSensor("HID/pACC MTR Temp Sensor1"), namelessSensor("HID/eACC"),
        namelessSensor("HID/AS_PERF_AVG", "Performance cores"), namelessSensor("HID/AS_EFF_AVG", "Efficiency cores"),
        namelessSensor("TC0P"), namelessSensor("F0Ac", "Fan 1", SensorKind::Fan)});
    measure({{"HID/pACC MTR Temp Sensor1", 45}, {"HID/eACC", std::nullopt}, {"HID/AS_PERF_AVG", 45},
        {"HID/AS_EFF_AVG", std::nullopt}, {"TC0P", 50}, {"FNum", 1}, {"F0Ac", 900}});
    start();
    const Value listed = list();
    ASSERT_THAT(
        keysOf(listed), ElementsAre("pACC MTR Temp Sensor1", "eACC", "AS_PERF_AVG", "AS_EFF_AVG", "TC0P", "F0Ac"));
    EXPECT_EQ(listed[0]["name"], "pACC MTR 1");
    EXPECT_EQ(listed[2]["name"], "Performance cores");
    EXPECT_EQ(listed[2]["kind"], "temperature") << "its first letter is no kind";
    EXPECT_EQ(listed[5]["name"], "Fan 1");
    EXPECT_EQ(listed[4]["name"], "TC0P");
    electric(json(R"([{"key":"TC0P","name":"CPU Proximity"}])"));
    EXPECT_EQ(sensor("TC0P").name(), "CPU Proximity") << "by who knows it";

    const Value entries = daemon->service.supportedArmSensors(
        json(R"([{"key":"AS_PERF_AVG","name":"Fast cores","high":110},{"key":"AS_EFF_AVG"},{"key":"TC0P"}])"), root);
    ASSERT_THAT(keysOf(entries), ElementsAre("pACC MTR Temp Sensor1", "AS_PERF_AVG")) << "a mean of nothing is none";
    EXPECT_EQ(entries[0],
        (Value{{"type", 0}, {"config", {{"key", "pACC MTR Temp Sensor1"}, {"name", "pACC MTR 1"}}},
            {"key", "pACC MTR Temp Sensor1"}, {"name", "pACC MTR 1"}, {"value", 45.0}}));
    EXPECT_EQ(entries[1]["name"], "Fast cores");
    EXPECT_EQ(keysOf(daemon->service.supportedArmSensors(Value(), root)).size(), 1U)
        << "a mean is for those who know it";
    source().change(
        {namelessSensor("HID/pACC MTR Temp Sensor1"), namelessSensor("HID/AS_PERF_AVG", "Performance cores")});
    machine.runtime.advance(15);
    EXPECT_EQ(sensor("AS_PERF_AVG").value(), 45);
    EXPECT_EQ(sensor("AS_PERF_AVG").name(), "Fast cores") << "who named it knows better";
    measure({{"HID/AS_PERF_AVG", std::nullopt}});
    machine.runtime.advance(4);
    EXPECT_FALSE(sensor("AS_PERF_AVG").hasValue()) << "not 0 degrees";
    EXPECT_EQ(sensor("AS_PERF_AVG").lowestRecordedValue(), 45);
}

TEST_F(SensorsTest, WhereTheHostNamesSensorsTheirLabelsAreServices)
{
    SensorRecord disk = sensorOf("T0AC", "drivetemp-scsi-4-0", "temp1");
    disk.disturbs = true;
    fit({{sensorOf("T0AA", "coretemp-isa-0000", "Core 0"), 40}, {sensorOf("T0AB", "coretemp-isa-0001", "Core 0"), 41},
        {sensorOf("V0AA", "nct6775-isa-0290", "Core 0", SensorKind::Voltage), 1}, {disk, 30}});
    start();
    const Value entries = daemon->service.supportedArmSensors(json(R"([{"key":"temp1","name":"mine"}])"), root);
    ASSERT_THAT(keysOf(entries), ElementsAre("Core 0 (coretemp-isa-0000)", "Core 0 (coretemp-isa-0001)", "temp1"));
    EXPECT_EQ(entries[1]["value"], 41);
    EXPECT_EQ(entries[2]["name"], "mine");
    EXPECT_EQ(sensor("temp1").value(), 30);
    machine.runtime.advance(SensorsStatCollectorMac::askedFor + 2);
    const auto before = source().reads["T0AC"];
    machine.runtime.advance(60);
    EXPECT_EQ(source().reads["T0AC"], before) << "nobody asks: the disk may rest, whatever it is called";
    EXPECT_FALSE(sensor("temp1").hasValue());
}

/// Channels as hwmon tells them get keys that may never change: they are in files.
TEST_F(SensorsTest, AChannelKeepsItsKey)
{
    const std::string core = "platform/coretemp.0/coretemp/temp2";
    const std::string fan = "platform/thinkpad_hwmon/thinkpad/fan1";
    SensorRecord ignored = sensorOf("platform/nct6775.656/nct6775/temp1", "nct6775-isa-0290", "SYSTIN");
    ignored.isIgnored = true;
    fit({{sensorOf(core, "coretemp-isa-0000", "Core 0"), 52}, {ignored, 1},
        {sensorOf(fan, "thinkpad-isa-0000", "Left", SensorKind::Fan, {.low = 500}), 2650},
        {sensorOf("TC0P", "applesmc-isa-0300", "TC0P"), 44.25}});
    start();
    const Value listed = list();
    ASSERT_THAT(keysOf(listed), ElementsAre("TC0P", "T17R", "F0Ac"));
    EXPECT_EQ(listed[1]["value"], 52);
    EXPECT_EQ(ask({{"key", "T17R"}}), 52);
    EXPECT_EQ(ask({{"key", "F0Mn"}}), 500);
    EXPECT_EQ(ask({{"key", core}}), -1) << "the host's own words are nobody else's";
    source().raised = {{core, {.critical = true}}};
    machine.runtime.advance(24);
    EXPECT_EQ(list()[1]["alarm"], "critical");
    EXPECT_THAT(rows("select uuid from recorded_series where uuid = 'T17R'"), SizeIs(1));

    // Without the file it comes out the same; a damaged one keeps what is legible.
    const auto file = machine.context.paths.support / "sensor-keys";
    std::filesystem::remove(file);
    start();
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P", "T17R", "F0Ac"));
    std::ofstream(file) << "T042 " << core << "\nT042 other\nZ\n\xff\nF5Ac " << fan << "\nF5";
    start();
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P", "T042", "F5Ac"));
    EXPECT_EQ(ask({{"key", "FNum"}}), 6);
    std::filesystem::remove(file);
    std::filesystem::create_directory(file.string() + ".new");
    start();
    EXPECT_THAT(list(), SizeIs(3));
    EXPECT_TRUE(machine.host.limitations->all().contains("sensor-keys"));
}

TEST(SensorKeyTable, KeysOfARealSMCAndNumbersOfFans)
{
    const auto keyOf = [](SensorKeyTable& table, SensorKind kind, const char* also) {
        return table.keysFor({sensorOf("chip/channel", "chip", "one", kind), sensorOf(also, "smc", "two", kind)}).at(0);
    };
    for (const auto kind : {SensorKind::Temperature, SensorKind::Fan}) {
        SensorKeyTable before{std::filesystem::path()};
        const std::string key = keyOf(before, kind, "chip/other");
        SensorKeyTable fresh{std::filesystem::path()};
        for (SensorKeyTable* table : {&before, &fresh}) {
            const std::string other = keyOf(*table, kind, key.c_str());
            EXPECT_NE(other, key);
            EXPECT_EQ(other.size(), 4U);
            EXPECT_EQ(keyOf(*table, kind, key.c_str()), other);
        }
    }
    SensorKeyTable table{std::filesystem::path()};
    std::vector<SensorRecord> fans;
    for (int number = 0; number < 18; ++number) {
        fans.push_back(sensorOf("chip/fan" + std::to_string(number), "chip", "fan", SensorKind::Fan));
    }
    std::vector<std::string> keys = table.keysFor(fans);
    EXPECT_EQ(keys[15], "FFAc");
    EXPECT_EQ(keys[16], "") << "there are 16 numbers";
    fans.erase(fans.begin() + 3);
    keys = table.keysFor(fans);
    EXPECT_EQ(keys[15], "F3Ac") << "that of the one that is gone";
    EXPECT_EQ(keys[16], "");
}

TEST_F(SensorsTest, ItemsAreBounded)
{
    start();
    Value given = Value::array();
    for (int number = 0; number < 3000; ++number) {
        const std::string key = std::to_string(1000 + number);
        given.push_back({{"key", key}, {"name", std::string(1000, 'n')}, {"average", {"TC0P"}}});
    }
    EXPECT_THAT(electric(given), SizeIs(3000));
    EXPECT_THAT(collector().items(), SizeIs(SensorsStatCollectorMac::mostItems));
    EXPECT_LE(collector().sensors().front()->name().size(), 256U);

    source().change({sensorOf("TC1P", "chip-1", "CPU")});
    measure({{"TC1P", 41}});
    machine.runtime.advance(12);
    EXPECT_TRUE(collector().sensorWithKey("TC1P")) << "clients leave room for what the host has";
    const auto before = source().total;
    machine.runtime.advance(2);
    EXPECT_EQ(source().total - before, 2) << "each key once, however many figures are made of it";
}

TEST_F(SensorsTest, WhatClientsMakeUpIsForgottenAfterAnHour)
{
    measure({{"TC0P", 40}});
    start();
    const Value given = json(R"([{"key":"TC0P"},{"key":"XA01","average":["TXXX"]}])");
    electric(given);
    machine.runtime.advance(SensorsStatCollectorMac::unprovenFor - 10);
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P", "XA01"));
    machine.runtime.advance(20);
    EXPECT_THAT(keysOf(list()), ElementsAre("TC0P"));
    daemon.reset();
    EXPECT_THAT(rows("select * from client_sensors"), SizeIs(1));
    EXPECT_THAT(rows("select * from sensor_limits"), SizeIs(1));
}

TEST_F(SensorsTest, ARequestReadsAKeyOnceAndNotWithoutEnd)
{
    measure({{"TC0P", 40}});
    start();
    Value given = Value::array();
    for (int number = 0; number < 600; ++number) {
        given.push_back({{"key", "TC0P"}, {"average", std::vector<std::string>(mostConfiguredKeys, "TC0P")}});
    }
    const auto read = [&](const Value& configurations) {
        const auto before = source().total;
        const auto values = daemon->service.sensorValues(configurations, PowerDetail::Averaged);
        EXPECT_EQ(values.size(), configurations.size());
        EXPECT_EQ(values.front(), 40);
        return source().total - before;
    };
    list(); // its own reading
    EXPECT_EQ(read(given), 1);
    Value all = Value::array({{{"key", "TC0P"}}});
    for (int number = 0; number < 9000; ++number) {
        all.push_back({{"key", std::to_string(1000 + number)}});
    }
    EXPECT_EQ(read(all), static_cast<std::ptrdiff_t>(SensorsStatCollectorMac::mostKeysAsked));
    const auto before = source().total;
    electric(all);
    EXPECT_LE(source().total - before,
        static_cast<std::ptrdiff_t>(2 * SensorsStatCollectorMac::mostKeysAsked + SensorsStatCollectorMac::mostItems));

    // A figure of many keys is answered, but not sampled.
    const auto meanOf = [](std::size_t keys) {
        return Value{{"key", "XA" + std::to_string(keys)}, {"average", std::vector<std::string>(keys, "TC0P")}};
    };
    const Value means = Value::array({meanOf(mostSampledKeys), meanOf(mostSampledKeys + 1)});
    EXPECT_THAT(electric(means), SizeIs(2));
    EXPECT_EQ(ask(means[1]), 40);
    EXPECT_TRUE(collector().sensorWithKey("XA16"));
    EXPECT_FALSE(collector().sensorWithKey("XA17"));
}

} // namespace
} // namespace meridal::test
