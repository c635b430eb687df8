#include "client/views/BatteryView.h"

#include "client/plot/BatteryPlot.h"
#include "tests/client/ViewText.h"

#include <gtest/gtest.h>

#include <string>

namespace meridal {
namespace {

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
    battery.update({{"state", 5}, {"source", 1}, {"time", -3}});
    const std::string held = shown({{"batteries", {battery}}});
    EXPECT_NE(held.find("held back"), std::string::npos);
    EXPECT_EQ(held.find("full in"), std::string::npos);
    Value drained = battery;
    drained.update({{"state", 2}, {"time", 95}});
    drained.erase("percentage");
    EXPECT_NE(shown({{"batteries", {drained}}})
                  .find("charge       not known, drained on AC power that does not suffice\ntime left    1 h 35 min\n"),
        std::string::npos);
    EXPECT_EQ(shown({{"batteries", {battery, drained}},
                        {"total", {{"percentage", 50.0}, {"state", 2}, {"time", 60}, {"power", -9.0}}}})
                  .find("All batteries together\ncharge       50 %, on battery\ntime left    1 h 0 min\npower        "
                        "9.00 W drawn\n"),
        0U);
    battery.update({{"state", 1}, {"time", -1}});
    EXPECT_NE(shown({{"batteries", {battery}}}).find("full in      not known yet\n"), std::string::npos);
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
    EXPECT_NE(text.find("Health  %\n"), std::string::npos) << text;
    EXPECT_NE(text.find("── A  min 80"), std::string::npos) << text;
    EXPECT_NE(text.find("┴"), std::string::npos) << text;
    EXPECT_NE(text.find(" 80 %  A\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Cycles\n"), std::string::npos) << text;
}

TEST(BatteryView, AnAnswerOfAnyShapeIsShownWithoutComplaint)
{
    for (const Value& odd : {Value(), Value(1), Value{{"batteries", {1, "x", Value()}}, {"peripherals", {7}}},
             Value{{"batteries", {{{"percentage", "x"}, {"time", 1e300}, {"manufactureTime", 1e300}, {"state", 1}}}},
                 {"history", {{"health", {1, {{"value", -5}, {"time", -1e300}}}}, {"cycles", "x"}}}}}) {
        EXPECT_FALSE(shown(odd).empty());
    }
}

} // namespace
} // namespace meridal
