#include "client/views/SensorsView.h"

#include "client/commands/SeriesMatch.h"
#include "client/views/HistoryView.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace meridal {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

Value json(const char* text) { return parseUntrusted(text).value(); }

TEST(SensorsView, GroupsByChip)
{
    const Lines lines = sensorLines(json(R"([
        {"chip":"coretemp-isa-0000","name":"Package id 0","kind":"temperature","unit":"°C","value":61.25,"low":20,
         "high":100,"fixed":true,"lowest":38,"highest":97.04},
        {"chip":"coretemp-isa-0000","name":"Core 0","kind":"temperature","unit":"°C","value":101,"critical":100,
         "alarm":"critical"},
        {"chip":"nct\u001b[2J","name":"fan1\u009b","kind":"fan","unit":"rpm","value":null,"alarm":"fault"},
        {"chip":"nct\u001b[2J","name":"fan2","kind":"fan","unit":"rpm","value":600,"low":300,"high":null,"fixed":true,
         "lowest":600,"highest":1500,"alarm":null},
        {"chip":"nct\u001b[2J","name":"in0","kind":"voltage","unit":"V","value":12.8,"low":null,"high":13.2,"fixed":true}])"));
    EXPECT_EQ(textOf(lines),
        "SENSOR                             VALUE  RANGE               LOWEST     HIGHEST\n"
        "coretemp-isa-0000\n"
        "  Package id 0                   61.2 °C  ▕██████▎     ▏     38.0 °C     97.0 °C\n"
        "  Core 0                        101.0 °C                           -           -  ALARM (critical)\n"
        "nct?[2J\n"
        "  fan1?                                -                           -           -  FAULT\n"
        "  fan2                           600 rpm  ▕███         ▏     600 rpm    1500 rpm\n"
        "  in0                           12.800 V  ▕███████████▋▏           -           -\n")
        << "in a range of its limits, of a limit and the highest seen, of 0 and a limit";
    EXPECT_EQ(styleOf(lines[2], "61.2"), Style::Plain);
    EXPECT_EQ(styleOf(lines[3], "101"), Style::High) << "above its critical limit";
    EXPECT_EQ(styleOf(lines[7], "12.8"), Style::Medium);
    EXPECT_EQ(plainText(fanLines(json(R"([{"kind":"fan","name":"Left","unit":"rpm","value":1200.4}])"))[1]),
        "Left                            1200 rpm                           -           -");
    EXPECT_EQ(textOf(fanLines(json(R"([{"kind":"power"},17,null])"))), "no fans on this machine\n");
}

TEST(SensorsView, ReadingsHaveTheirUnitsDecimals)
{
    const std::tuple<Value, const char*, const char*> readings[] = {{1.0486, "V", "1.049 V"},
        {1200.6, "rpm", "1201 rpm"}, {12.25, "", "12.25"}, {-3.14, "°C", "-3.1 °C"}, {1e12, "W", "1e+12 W"},
        {"12", "W", "-"}};
    for (const auto& [figure, unit, text] : readings) {
        EXPECT_EQ(formatReading(figure, unit), text);
    }
}

TEST(SeriesMatch, TakesKeysNamesAndUniqueParts)
{
    const std::vector<SeriesName> all = {{"sensors/TC0P", "TC0P", "CPU Proximity"},
        {"sensors/tc0p", "tc0p", "Other CPU"}, {"sensors/Tn0a", "Tn0a", "Composite"},
        {"sensors/Tn1a", "Tn1a", "Composite"}, {"battery", "", "Charge"}};
    const std::pair<const char*, std::size_t> called[] = {{"sensors/TC0P", 0}, {"TC0P", 0}, {"tc0p", 1},
        {"cpu proximity", 0}, {"proxi", 0}, {"BATTERY", 4}}; // its own case comes first
    for (const auto& [words, found] : called) {
        EXPECT_EQ(matchSeries(all, words).found, found) << words;
    }
    const SeriesMatch twice = matchSeries(all, "composite");
    EXPECT_TRUE(twice.isAmbiguous);
    EXPECT_THAT(twice.candidates, ElementsAre(2, 3));
    const SeriesMatch misspelt = matchSeries(all, "CPU Proximty");
    EXPECT_FALSE(misspelt.found || misspelt.isAmbiguous);
    EXPECT_EQ(misspelt.candidates.front(), 0U);
    EXPECT_EQ(matchSeries(all, "batery").candidates.front(), 4U);
    EXPECT_FALSE(matchSeries(all, "").isAmbiguous);
    EXPECT_THAT(matchSeries({}, "x").candidates, IsEmpty());
    EXPECT_FALSE(matchSeries(all, std::string(100'000, 'x')).found);
}

TEST(HistoryView, CsvHasARowASample)
{
    const Value answer = json(R"({"values":["value","=cmd,\"x\""],"samples":[
        {"sample":1,"time":1700000000,"values":[41.5,null]},{"sample":3,"time":1700000012.9,"values":[-1,2]},
        {"sample":4,"time":1e300,"values":["x"]},17]})");
    EXPECT_EQ(historyCsv(answer),
        "time,value,\"'=cmd,\"\"x\"\"\"\n2023-11-14T22:13:20Z,41.5,\n2023-11-14T22:13:32Z,-1,2\n"
        "-,\n-\n");
    EXPECT_EQ(historyCsv(Value()), "time\n");
    const Plot plot = historyPlot(answer, "x", 0, 2e9);
    ASSERT_THAT(plot.series, SizeIs(2));
    EXPECT_THAT(plot.series[0].points, SizeIs(2));
    EXPECT_THAT(plot.series[1].points, SizeIs(1));
}

} // namespace
} // namespace meridal
