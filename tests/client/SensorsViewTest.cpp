#include "client/views/SensorsView.h"

#include "client/commands/SeriesMatch.h"
#include "client/views/HistoryView.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace meridal {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
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
    ASSERT_THAT(lines, SizeIs(8));
    EXPECT_EQ(plainText(lines[1]), "coretemp-isa-0000");
    EXPECT_EQ(plainText(lines[2]), "  Package id 0                   61.2 °C  ▕██████▎     ▏     38.0 °C     97.0 °C");
    EXPECT_EQ(lines[2][1].style, Style::Plain);
    EXPECT_EQ(lines[3][1].style, Style::High) << "above its critical limit";
    EXPECT_THAT(plainText(lines[3]), testing::EndsWith("-  ALARM (critical)"));
    EXPECT_THAT(plainText(lines[5]), testing::EndsWith("-  FAULT"));
    EXPECT_THAT(plainText(lines[6]), HasSubstr("▕███         ▏")) << "between its limit and the highest seen";
    EXPECT_THAT(plainText(lines[7]), HasSubstr("▕███████████▋▏")) << "between 0 and its limit";
    EXPECT_EQ(lines[7][1].style, Style::Medium);
    EXPECT_EQ(plainText(lines[4]), "nct?[2J");
    EXPECT_THAT(plainText(lines[5]), HasSubstr("  fan1?"));
    EXPECT_EQ(plainText(fanLines(json(R"([{"kind":"fan","name":"Left","unit":"rpm","value":1200.4}])"))[1]),
        "Left                            1200 rpm                           -           -");
}

TEST(SensorsView, NothingThereIsOneLine)
{
    for (const Value& none : {Value::array(), Value(), Value(17)}) {
        EXPECT_THAT(sensorLines(none), SizeIs(1));
        EXPECT_THAT(fanLines(none), SizeIs(1));
    }
    EXPECT_THAT(fanLines(json(R"([{"kind":"power"},17,null])")), SizeIs(1));
    EXPECT_THAT(sensorLines(json(R"([17,null,{}])")), testing::Not(IsEmpty()));
}

TEST(SensorsView, ReadingsHaveTheirUnitsDecimals)
{
    EXPECT_EQ(formatReading(1.0486, "V"), "1.049 V");
    EXPECT_EQ(formatReading(1200.6, "rpm"), "1201 rpm");
    EXPECT_EQ(formatReading(12.25, ""), "12.25");
    EXPECT_EQ(formatReading(-3.14, "°C"), "-3.1 °C");
    EXPECT_EQ(formatReading(1e12, "W"), "1e+12 W");
    EXPECT_EQ(formatReading("12", "W"), "-");
}

TEST(SeriesMatch, TakesKeysNamesAndUniqueParts)
{
    const std::vector<SeriesName> all = {{"sensors/TC0P", "TC0P", "CPU Proximity"},
        {"sensors/tc0p", "tc0p", "Other CPU"}, {"sensors/Tn0a", "Tn0a", "Composite"},
        {"sensors/Tn1a", "Tn1a", "Composite"}, {"battery", "", "Charge"}};
    EXPECT_EQ(matchSeries(all, "sensors/TC0P").found, 0U);
    EXPECT_EQ(matchSeries(all, "TC0P").found, 0U) << "its own case comes first";
    EXPECT_EQ(matchSeries(all, "tc0p").found, 1U);
    EXPECT_EQ(matchSeries(all, "cpu proximity").found, 0U);
    EXPECT_EQ(matchSeries(all, "proxi").found, 0U);
    EXPECT_EQ(matchSeries(all, "BATTERY").found, 4U);

    const SeriesMatch twice = matchSeries(all, "composite");
    EXPECT_TRUE(twice.isAmbiguous);
    EXPECT_THAT(twice.candidates, ElementsAre(2, 3));
    const SeriesMatch misspelt = matchSeries(all, "CPU Proximty");
    EXPECT_FALSE(misspelt.found || misspelt.isAmbiguous);
    EXPECT_EQ(misspelt.candidates.front(), 0U);
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
        "1970-01-01T00:00:00Z,\n1970-01-01T00:00:00Z\n");
    EXPECT_EQ(historyCsv(Value()), "time\n");
    const Plot plot = historyPlot(answer, "x", 0, 2e9);
    ASSERT_THAT(plot.series, SizeIs(2));
    EXPECT_THAT(plot.series[0].points, SizeIs(2));
    EXPECT_THAT(plot.series[1].points, SizeIs(1));
}

} // namespace
} // namespace meridal
