// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/PowerDictionaries.h"
#include "base/Value.h"
#include "platform/PeripheralNames.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <tuple>

namespace meridal {
namespace {

/// Of a MacBook on its battery. IOKit/ps/IOPSKeys.h and IOKit/pwr_mgt/IOPM.h document the keys.
const Dictionary description{{"Name", "InternalBattery-0"}, {"Type", "InternalBattery"}, {"Transport Type", "Internal"},
    {"Power Source State", "Battery Power"}, {"Is Present", true}, {"Is Charging", false}, {"Current Capacity", 71},
    {"Max Capacity", 100}, {"Time to Empty", 212}, {"Time to Full Charge", 0}, {"Current", -1320},
    {"BatteryHealth", "Good"}, {"BatteryHealthCondition", ""}, {"Hardware Serial Number", "F8Y"}};

PowerSourceRecord sourceOf(const Dictionary& more, const Dictionary& battery = nullptr)
{
    Dictionary whole = description;
    whole.update(more);
    const auto sources = powerSourcesOf({whole}, battery);
    EXPECT_EQ(sources.size(), 1U);
    return sources.empty() ? PowerSourceRecord() : sources[0];
}

BatteryControllerRecord controllerOf(const Dictionary& battery)
{
    const auto source = sourceOf(Dictionary::object(), battery);
    EXPECT_TRUE(source.controller) << battery;
    return source.controller.value_or(BatteryControllerRecord());
}

TEST(PowerDictionaries, SourcesSayWhatTheySayInEveryForm)
{
    const auto own = sourceOf(Dictionary::object());
    EXPECT_EQ(own.name + ' ' + own.serial, "InternalBattery-0 F8Y");
    EXPECT_TRUE(own.supply == PowerSupplyState::Battery && own.toEmpty == TimeEstimate{212});
    EXPECT_TRUE(own.currentMa == -1320 && own.verdict == BatteryVerdict::Good);
    const auto charging = sourceOf({{"Power Source State", "AC Power"}, {"Is Charging", 1}, {"Time to Full Charge", -1},
        {"Optimized Battery Charging Engaged", 1}, {"BatteryHealthCondition", "Permanent Battery Failure"}});
    EXPECT_EQ(charging.supply, PowerSupplyState::AC);
    EXPECT_TRUE(charging.charging && charging.heldBack);
    EXPECT_EQ(charging.toFull, TimeEstimate()) << "being calculated";
    EXPECT_EQ(charging.verdict, BatteryVerdict::PermanentFailure) << "whatever is said of the health";
    const auto odd = sourceOf({{"Power Source State", "Off Line"}, {"Is Charging", "yes"}, {"Current", nullptr},
        {"BatteryHealth", "Splendid"}, {"Is Present", false}});
    EXPECT_EQ(odd.supply, PowerSupplyState::OffLine);
    EXPECT_FALSE(odd.charging || odd.currentMa || odd.verdict || odd.present);

    using Charge = std::tuple<Value, Value, std::optional<int>>;
    for (const auto& [now, full, percent] : {Charge{50, 100, 50}, {2250, 4500, 50}, {50, 0, 50}, {170, 100, 100},
             {-4, 100, 0}, {"full", 100, {}}, {std::nan(""), 100, 0}}) {
        EXPECT_EQ(sourceOf({{"Current Capacity", now}, {"Max Capacity", full}}).chargePercent, percent) << now;
    }
    const Dictionary unnamed{{"Transport Type", "USB"}};
    const auto others = powerSourcesOf({unnamed, Dictionary::object(), {{"Type", "Accessory Source"}}}, nullptr);
    ASSERT_EQ(others.size(), 2U) << "accessories are no sources of the machine";
    EXPECT_EQ(others[0].kind, PowerSourceKind::UPS);
    EXPECT_EQ(others[1], PowerSourceRecord()) << "what is not told is absent";
}

TEST(PowerDictionaries, CapacitiesAreMilliampereHoursOnEveryMac)
{
    const auto expect = [](const Dictionary& battery, const BatteryControllerRecord& expected) {
        EXPECT_EQ(controllerOf(battery), expected) << battery;
    };
    expect({{"MaxCapacity", 4100}, {"CurrentCapacity", 2000}, {"DesignCapacity", 4790}, {"CycleCount", 211}},
        {.chargeNowMah = 2000, .chargeFullMah = 4100, .chargeDesignMah = 4790, .cycles = 211});
    expect({{"MaxCapacity", 100}, {"CurrentCapacity", 71}, {"AppleRawMaxCapacity", 4210},
               {"AppleRawCurrentCapacity", 2991}, {"BatterySerialNumber", "F8Y"}, {"Amperage", -1320},
               {"Voltage", 12'000}},
        {.chargeNowMah = 2991, .chargeFullMah = 4210, .energyNowMwh = 35'892, .voltageMv = 12'000, .currentMa = -1320});
    expect({{"MaxCapacity", 100}, {"CurrentCapacity", 71}, {"Voltage", 11890},
               {"BatteryData", {{"DesignCapacity", 6075}, {"NominalChargeCapacity", 5900}}}},
        {.chargeFullMah = 5900, .chargeDesignMah = 6075, .voltageMv = 11890});
    // As on a MacBook with macOS 27.
    const Dictionary data{{"FullChargeCapacity", 5793}, {"NominalChargeCapacity", 5937}, {"DesignCapacity", 5760},
        {"RemainingCapacity", 2994}, {"MaxCapacity", 100}, {"CurrentCapacity", 54}};
    Dictionary newest{{"MaxCapacity", 100}, {"CurrentCapacity", 54}, {"Voltage", 12'000}, {"BatteryData", data}};
    expect(newest,
        {.chargeNowMah = 2994,
            .chargeFullMah = 5793,
            .chargeDesignMah = 5760,
            .energyNowMwh = 35'928,
            .voltageMv = 12'000});
    newest.erase("MaxCapacity");
    newest["BatteryData"]["FullChargeCapacity"] = 100;
    EXPECT_EQ(controllerOf(newest).chargeFullMah, 5937);
    newest["BatteryData"].erase("NominalChargeCapacity");
    EXPECT_EQ(controllerOf(newest).chargeFullMah, std::nullopt);
    newest.update({{"MaxCapacity", 4100}, {"CurrentCapacity", 2000}, {"AppleRawMaxCapacity", 4000}});
    EXPECT_EQ(controllerOf(newest).chargeFullMah, 4000) << "what stood at the top before is still believed first";
    EXPECT_EQ(controllerOf(newest).chargeNowMah, 2000);
    for (const Dictionary& nothing : {Dictionary{{"MaxCapacity", 100}, {"CurrentCapacity", 71}},
             {{"CurrentCapacity", 71}, {"CycleCount", -3}}, {{"BatteryData", 5}, {"DesignCapacity", 0}}}) {
        expect(nothing, {}); // a percentage is no charge
    }
}

TEST(PowerDictionaries, TheControllerGoesWithItsOwnBattery)
{
    const Dictionary battery{{"Serial", "F8Y"}, {"CycleCount", 7}};
    Dictionary away = description;
    away["Is Present"] = false;
    const auto sources = powerSourcesOf({{{"Type", "UPS"}}, away, description, description}, battery);
    ASSERT_EQ(sources.size(), 4U);
    EXPECT_FALSE(sources[0].controller || sources[1].controller || sources[3].controller);
    EXPECT_EQ(sources[2].controller->cycles, 7);
    EXPECT_FALSE(sourceOf({{"Hardware Serial Number", "F9Z"}}, battery).controller) << "exchanged in between";
    EXPECT_FALSE(sourceOf(Dictionary::object(), {{"BatteryInstalled", false}, {"CycleCount", 7}}).controller);
}

TEST(PowerDictionaries, TheDayOfManufactureIsOneOfTheCalendarOrAbsent)
{
    using namespace std::chrono;
    constexpr auto packed = [](int year, int month, int day) { return day | month << 5 | (year - 1980) << 9; };
    const auto day = [](const Value& packedDay, const Value& written = nullptr) {
        return controllerOf({{"ManufactureDate", packedDay}, {"BatteryData", {{"ManufactureDate", written}}}})
            .manufactured;
    };
    EXPECT_EQ(day(packed(1980, 1, 1)), 1980y / 1 / 1);
    for (const int nonsense : {0, -1, 0x10000, 0xFFFF, packed(2021, 13, 1), packed(2021, 2, 30), packed(2021, 0, 5)}) {
        EXPECT_FALSE(day(nonsense)) << nonsense;
    }
    EXPECT_EQ(day(packed(2021, 6, 15), "280229"), 2020y / 2 / 29);
    EXPECT_EQ(day(0, 0x3932'3230'3832), 2020y / 2 / 29) << "as bytes in memory";
    for (const Value& nonsense : {Value("290229"), Value("28022"), Value("2802290"), Value("28 229"), Value(""),
             Value(-1), Value(28.5), Value(), Value::array({1})}) {
        EXPECT_EQ(day(packed(2021, 6, 15), nonsense), 2021y / 6 / 15) << nonsense;
    }
}

TEST(PowerDictionaries, PeripheralsHaveOneNameAndOneKeyEach)
{
    const auto keyboard = registryBattery({{"BatteryPercent", 63}, {"Product", "Magic Keyboard"},
        {"DeviceAddress", "AC-1D-06-00-00-01"}, {"SerialNumber", "F1"}, {"Transport", "Bluetooth"}});
    ASSERT_TRUE(keyboard);
    EXPECT_EQ(keyboard->key, "ac:1d:06:00:00:01");
    EXPECT_TRUE(keyboard->kind == PeripheralKind::Keyboard && keyboard->percent == 63 && keyboard->bluetooth);
    EXPECT_EQ(registryBattery({{"Battery Level", 30}, {"Product", "Mouse"}})->key, "Mouse");
    EXPECT_FALSE(registryBattery({{"BatteryPercent", 0}, {"Product", "Mouse"}})) << "not told yet";
    EXPECT_FALSE(registryBattery({{"BatteryPercent", 50}}));
    EXPECT_FALSE(registryBattery({{"BatteryPercent", "50"}, {"Product", "Mouse"}}));

    Dictionary pod{{"Type", "Accessory Source"}, {"Name", "Pods"}, {"Accessory Identifier", "AA:BB:CC:DD:EE:FF"},
        {"Part Identifier", "Left"}, {"Accessory Category", "Headphone"}, {"Current Capacity", 40},
        {"Max Capacity", 100}, {"Is Charging", true}, {"Transport Type", "Bluetooth"}};
    const auto left = accessoryBattery(pod);
    ASSERT_TRUE(left);
    EXPECT_EQ(left->key, "aa:bb:cc:dd:ee:ff Left");
    EXPECT_EQ(left->name, "Pods (left)");
    EXPECT_TRUE(left->kind == PeripheralKind::Headset && left->charging == true);
    pod["Is Present"] = false;
    EXPECT_FALSE(accessoryBattery(pod));
    EXPECT_FALSE(accessoryBattery({{"Type", "InternalBattery"}, {"Name", "InternalBattery-0"}}));
    for (const char* other :
        {"", "aabbccddeeff", "aa:bb:cc:dd:ee", "aa:bb:cc:dd:ee:fg", "101b-44-d9-3e-9c", "a:abb:cc:dd:ee:ff"}) {
        EXPECT_FALSE(hardwareAddress(other)) << other;
    }
}

} // namespace
} // namespace meridal
