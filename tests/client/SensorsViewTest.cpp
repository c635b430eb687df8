// SPDX-License-Identifier: Apache-2.0
#include "client/views/SensorsView.h"

#include "base/Text.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <tuple>

namespace meridal {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(SensorsView, ByChipWithLimitsAndWordsThenTheFans)
{
    const Value sensors = json(R"([
        {"chip":"coretemp-isa-0000","name":"Package id 0","kind":"temperature","unit":"°C","value":61.25,"low":20,
         "high":100,"fixed":true,"lowest":38,"highest":97.04},
        {"chip":"coretemp-isa-0000","name":"Core 0","kind":"temperature","unit":"°C","value":101,"critical":100,
         "alarm":"critical"},
        {"chip":"nct\u001b[2J","name":"fan1\u009b","kind":"fan","unit":"rpm","value":null,"alarm":"fault"},
        {"chip":"nct\u001b[2J","name":"fan2","kind":"fan","unit":"rpm","value":600,"low":300,"high":null,"fixed":true,
         "lowest":600,"highest":1500,"alarm":null},
        {"chip":"nct\u001b[2J","name":"fan3","kind":"fan","unit":"rpm","value":0},
        {"chip":"nct\u001b[2J","name":"in0","kind":"voltage","unit":"V","value":12.8,"low":null,"high":13.2,"fixed":true}])");
    const Lines lines = sensorLines(sensors);
    EXPECT_EQ(textOf(lines),
        "SENSOR                            VALUE  STATE     RANGE           LIMITS           LOWEST    HIGHEST\n"
        "coretemp-isa-0000\n"
        "  Package id 0                  61.2 °C            ▕██████▎     ▏  20 to 100       38.0 °C    97.0 °C\n"
        "  Core 0                       101.0 °C  CRITICAL                  critical 100          -          -\n"
        "nct?[2J\n"
        "  in0                          12.800 V            ▕███████████▋▏  to 13.2               -          -\n"
        "\n"
        "FAN                               SPEED  STATE  RANGE           LIMITS      LOWEST    HIGHEST\n"
        "nct?[2J\n"
        "  fan1?                               -  FAULT                                   -          -\n"
        "  fan2                          600 rpm         ▕███         ▏  min 300    600 rpm   1500 rpm\n"
        "  fan3                          stopped                                          -          -\n")
        << "in a range of its limits, of a limit and the highest seen, of 0 and a limit";
    EXPECT_EQ(styleOf(lines[2], "61.2"), Style::Plain);
    EXPECT_EQ(styleOf(lines[3], "101"), Style::High) << "above its critical limit";
    EXPECT_EQ(styleOf(lines[5], "12.8"), Style::Medium);
    EXPECT_EQ(plainText(fanLines(json(R"([{"kind":"fan","name":"Left","unit":"rpm","value":1200.4}])"))[1]),
        "Left                           1200 rpm                           -          -");
    for (const int room : {100, 80, 60, 40}) {
        for (const Line& line : sensorLines(sensors, room)) {
            EXPECT_LE(displayWidth(plainText(line)), room) << plainText(line);
        }
        EXPECT_THAT(textOf(sensorLines(sensors, room)), AllOf(HasSubstr("61.2 °C"), HasSubstr("CRITICAL")));
    }
    EXPECT_THAT(textOf(sensorLines(sensors, 80)), HasSubstr("20 to 100"));
    EXPECT_EQ(textOf(fanLines(json(R"([{"kind":"power"},17,null])"))), "no fans on this machine\n");
}

TEST(SensorsView, ReadingsHaveTheirUnitsDecimals)
{
    const std::tuple<Value, const char*, const char*> readings[] = {{1.0486, "V", "1.049 V"},
        {1200.6, "rpm", "1201 rpm"}, {12.25, "", "12.25"}, {-3.14, "°C", "-3.1 °C"}, {1e12, "W", "1e+12 W"},
        {"12", "W", "-"}, {4096.0, "B/s", "4.00 KiB/s"}, {12.5, "1/s", "12.5/s"}};
    for (const auto& [figure, unit, text] : readings) {
        EXPECT_EQ(formatReading(figure, unit), text);
    }
}

} // namespace
} // namespace meridal
