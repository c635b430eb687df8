// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorConfiguration.h"

#include "base/Value.h"
#include "collectors/sensors/SensorKind.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace meridal {
namespace {

SensorConfiguration parse(const char* text) { return parseSensorConfiguration(parseUntrusted(text).value()); }

TEST(SensorConfiguration, UnderstandsWhatClientsSend)
{
    const SensorConfiguration plain = parse(R"({"key":"TC0P","name":"CPU","type":3,"low":10.5,"high":100})");
    EXPECT_EQ(plain.key, "TC0P");
    EXPECT_EQ(plain.name, "CPU");
    EXPECT_EQ(plain.kind(), 3) << "the client's word comes before the letter";
    EXPECT_EQ(plain.low, 10.5);
    EXPECT_TRUE(plain.hasFixedLimits());

    const SensorConfiguration product = parse(R"({"key":"XX01","multiply":["VC0C","IC0C"],"type":"watts"})");
    EXPECT_TRUE(product.isProduct());
    EXPECT_EQ(product.kind(), sensorKind::power);
    EXPECT_FALSE(parse(R"({"key":"XX01","multiply":["VC0C","IC0C"],"type":5})").isProduct());
    EXPECT_FALSE(parse(R"({"multiply":["VC0C"],"type":"watts"})").isProduct());
}

TEST(SensorConfiguration, TheKindComesFromTheFirstLetter)
{
    const std::pair<const char*, std::int64_t> kinds[] = {{"mX", 9}, {"Mx", 9}, {"Cx", 8}, {"ax", 7}, {"TC0P", 0},
        {"tc0p", 0}, {"Vx", 3}, {"px", 5}, {"Ix", 4}, {"F0Ac", 0}, {"", 0}, {"\xC3\xA4", 0}};
    for (const auto& [key, kind] : kinds) {
        EXPECT_EQ(sensorKindOfKey(key), kind) << key;
    }
}

TEST(SensorConfiguration, NonsenseCountsAsMissing)
{
    for (const char* text : {"null", "17", "[]", "\"TC0P\"", R"({"key":17,"name":[],"type":{},"low":"x","high":null})",
             R"({"multiply":"TC0P","average":{"a":1},"type":-1})", R"({"type":1e300,"low":true})"}) {
        EXPECT_EQ(parse(text), SensorConfiguration()) << text;
    }
    Value infinite{{"key", "TC0P"}};
    infinite["high"] = std::numeric_limits<double>::infinity();
    infinite["low"] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(parseSensorConfiguration(infinite).hasFixedLimits());

    const SensorConfiguration odd = parse(R"({"average":["TC0P",1,null,"TC0PX","",["x"],"TC1P"]})");
    EXPECT_EQ(odd.average, (std::vector<std::string>{"TC0P", "", "", "", "", "", "TC1P"}));
    const Value huge{{"average", std::vector<std::string>(mostConfiguredKeys + 1, "TC0P")}};
    EXPECT_FALSE(parseSensorConfiguration(huge).average) << "a list that long would hold the daemon up";
    EXPECT_EQ(parseSensorConfiguration({{"key", "K"}, {"name", std::string(1'000'000, 'n')}}).name.size(), 1'000'000U);
}

TEST(SensorConfiguration, KeysHaveFourCharacters)
{
    EXPECT_TRUE(isSMCKey("TC0P"));
    EXPECT_TRUE(isSMCKey("T\xC3\xA4\xC3\xB6P"));
    for (const char* key : {"", "TC0", "TC0PX", "\xC3\xA4\xC3\xB6"}) {
        EXPECT_FALSE(isSMCKey(key)) << key;
    }
    EXPECT_FALSE(isSMCKey("TC0P" + std::string(1'000'000, '\x80')));
}

TEST(SensorConfiguration, SameFiguresHaveOneIdentity)
{
    const auto product = parse(R"({"key":"A","multiply":["VC0C","IC0C"],"type":"watts","average":["PC0C"]})");
    EXPECT_EQ(product.identity(), parse(R"({"key":"B","multiply":["VC0C","IC0C"],"type":"watts"})").identity());
    EXPECT_NE(product.identity(), parse(R"({"key":"A","average":["VC0C","IC0C"]})").identity());
    EXPECT_NE(parse(R"({"key":"PC0C"})").identity(), parse(R"({"average":["PC0C"]})").identity());
}

} // namespace
} // namespace meridal
