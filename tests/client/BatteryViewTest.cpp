#include "client/BatteryView.h"

#include <gtest/gtest.h>

#include <string>

namespace meridal {
namespace {

std::string shown(const Value& answer)
{
    std::string text;
    for (const Line& line : batteryLines(answer)) {
        text += plainText(line) + '\n';
    }
    return text;
}

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
