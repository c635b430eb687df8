// SPDX-License-Identifier: Apache-2.0
#include "client/views/BatteryView.h"

#include "client/plot/BatteryPlot.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <string>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string shown(const Value& answer) { return textOf(batteryLines(answer)); }

TEST(BatteryView, ALaptopOnItsBattery)
{
    Value battery = {{"key", "B 7"}, {"name", "Battery"}, {"type", 0}, {"percentage", 18.0}, {"state", 2}, {"time", 95},
        {"source", 0}, {"sourceTime", 1.7e9}, {"awakeOnSource", 3725.0}, {"voltage", 12000.0}, {"amperage", -1500.0},
        {"power", -18.0}, {"condition", 4}, {"cycles", 211}, {"health", 87.46}, {"manufactureTime", 1623715200.0},
        {"designCapacity", 5000.0}, {"maximumCapacity", 4373.0}};
    EXPECT_EQ(shown({{"batteries", {battery}}, {"peripherals", Value::array()}}),
        "charge       18 %, on battery\n"
        "time left    1 h 35 min\n"
        "power        18.00 W drawn, 12.00 V, 1500 mA\n"
        "health       87.5 %, 4373 of 5000 mAh\n"
        "cycles       211\n"
        "condition    needs a check\n"
        "made on      2021-06-15\n"
        "source       battery for 1 h 2 min, not counting sleep\n");
    battery.erase("percentage");
    const std::tuple<int, int, int, const char*> states[] = {// state, source, time
        {5, 1, -3, "charge       not known, on AC power, charging held back to spare the battery\npower "},
        {2, 1, 95, "charge       not known, drained on AC power that does not suffice\ntime left    1 h 35 min\n"},
        {1, 1, -1, "full in      not known yet\n"}};
    for (const auto& [state, source, time, words] : states) {
        battery.update({{"state", state}, {"source", source}, {"time", time}});
        EXPECT_THAT(shown({{"batteries", {battery}}}), HasSubstr(words));
    }
    EXPECT_THAT(shown({{"batteries", {battery, battery}},
                    {"total", {{"percentage", 50.0}, {"state", 2}, {"time", 60}, {"power", -9.0}}}}),
        StartsWith("All batteries together\ncharge       50 %, on battery\ntime left    1 h 0 min\npower        9.00 W "
                   "drawn\n"));
}

TEST(BatteryView, WithoutABatteryThereIsOneLine)
{
    const std::string none = "This machine has no battery.\n";
    EXPECT_EQ(shown({{"batteries", Value::array()}, {"peripherals", Value::array()}}), none);
    EXPECT_EQ(
        shown({{"batteries", Value::array()}, {"history", {{"health", Value::array()}, {"cycles", Value::array()}}}}),
        none);
    EXPECT_EQ(shown({{"batteries", Value::array()},
                  {"peripherals",
                      {{{"name", "Mouse\x1B[2J"}, {"percentage", 40}, {"state", 2}},
                          {{"name", "Pad"}, {"level", "Low"}, {"state", 1}}}}}),
        none
            + "\nConnected devices\nMouse?[2J                     40 %\nPad                           Low, charging\n");
}

TEST(BatteryView, SleepsAreListedWithWhatTheyTook)
{
    const Value night = {{"row", 2}, {"start", 0}, {"end", 27000}, {"onBattery", true}, {"chargeBefore", 81.25},
        {"chargeAfter", 74}, {"energyBefore", 40000}, {"energyAfter", 36500}, {"percentPerHour", 0.97},
        {"power", -0.47}};
    const Value docked = {{"row", 1}, {"start", 0}, {"end", 600}, {"onBattery", false}, {"chargeBefore", 100}};
    const std::string text = shown({{"batteries", Value::array()}, {"sleeps", {night, docked}}});
    for (const char* part : {"FELL ASLEEP", "  7 h 30 min  81.25 to 74 %       0.97 % an hour, 0.47 W\n",
             "10 min 0 s  100 to ?            on AC power\n"}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
    EXPECT_THAT(
        shown({{"batteries", Value::array()}, {"sleeps", Value::array()}}), HasSubstr("no sleep has been recorded\n"));
}

TEST(BatteryView, HistoryIsAStepLineABatteryWithItsChangesBelow)
{
    constexpr double day = 86'400;
    constexpr double now = 1.7e9;
    const auto row = [](const char* key, double days, double value) {
        return Value{{"key", key}, {"time", now - days * day}, {"value", value}};
    };
    const Value health = {row("A", 10, 80), row("B", 20, 99), row("A", 40, 100), row("B", -5, 1)};
    const Plot plot = batteryPlot(health, "Health", "%", now);
    EXPECT_EQ(plot.from, now - 40 * day);
    ASSERT_EQ(plot.series.size(), 2U);
    const auto& points = plot.series[0].points;
    ASSERT_EQ(points.size(), 4U);
    EXPECT_EQ(points[1].time, now - 10 * day) << "as it was until";
    EXPECT_EQ(points[1].value, 100);
    EXPECT_EQ(points[2].value, 80);
    EXPECT_EQ(points[3].time, now);
    EXPECT_NEAR(summarise(plot.series[0])->average, 95, 1e-9) << "30 days at 100, 10 at 80";
    EXPECT_EQ(plot.series[1].points.size(), 2U) << "the future is left out";

    const std::string text = shown({{"batteries", Value::array()}, {"wallTime", now},
        {"history", {{"health", health}, {"cycles", {row("A", 1, 7)}}}}});
    for (const char* part : {"Health  %\n", "── A  min 80", "┴", " 80 %  A\n", "Cycles\n"}) {
        EXPECT_THAT(text, HasSubstr(part));
    }
}

} // namespace
} // namespace meridal
