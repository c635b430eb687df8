// SPDX-License-Identifier: Apache-2.0
#include "client/views/HistoryView.h"

#include "client/commands/SeriesMatch.h"
#include "client/commands/TimeStretch.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryListView.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <array>
#include <string>
#include <vector>

namespace meridal {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(SeriesMatch, TakesKeysNamesAndUniqueParts)
{
    const std::vector<OfferedSeries> all = {{"sensors/TC0P", "TC0P", "CPU Proximity"},
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

TEST(SeriesMatch, LabelsTellTheSameNameApart)
{
    const auto sensor = [](const char* key, const char* name, const char* origin) {
        return OfferedSeries{std::string("sensors/") + key, key, name, origin, {}};
    };
    std::vector<OfferedSeries> all = {sensor("1", "Core 0", "coretemp-isa-0000"), sensor("2", "Composite", "nvme0n1"),
        sensor("3", "Composite", "nvme1n1"), sensor("4", "in0", "nct6775-isa-0290"),
        sensor("5", "in0", "nct6775-isa-0a20"), sensor("6", "Twin", ""), sensor("7", "Twin", ""),
        {"memory", "", "Memory"}, {"disks/S5GX", "S5GX", "FAST 1000", "nvme0n1"}, {"throughput/sda", "sda", "sda"}};
    labelSeries(all);
    std::vector<std::string> labels;
    for (const OfferedSeries& each : all) {
        labels.push_back(each.label);
    }
    EXPECT_THAT(labels,
        ElementsAre("coretemp/Core 0", "nvme0n1/Composite", "nvme1n1/Composite", "nct6775-isa-0290/in0",
            "nct6775-isa-0a20/in0", "sensors/6", "sensors/7", "memory", "disks/nvme0n1", "throughput/sda"));
    EXPECT_EQ(matchSeries(all, "nvme1n1/composite").found, 2U);
    EXPECT_EQ(matchSeries(all, "coretemp-isa-0000/Core 0").found, 0U);
    EXPECT_TRUE(matchSeries(all, "nct6775/in0").isAmbiguous);
}

TEST(Samples, TheFinestResolutionThatReachesBackIsRead)
{
    constexpr double now = 1.8e9;
    constexpr double hour = 3600;
    const struct {
        double from;  ///< s ago
        double until; ///< s ago
        const char* resolution;
    } cases[] = {{hour, 0, "hour"}, {2 * hour, hour, "day"}, {day, 0, "day"}, {7 * day, 0, "longterm"},
        {30 * day, 29 * day, "longterm"}, {60 * day, 0, "threemonth"}, {170 * day, 0, "sixmonth"},
        {360 * day, 0, "year"}, {360 * day, 350 * day, "longterm"}, {3000 * day, 0, "longterm"}};
    for (const auto& each : cases) {
        EXPECT_EQ(resolutionFor(now - each.from, now - each.until, now), each.resolution)
            << each.from << ' ' << each.until;
    }
}

TEST(TimeStretch, IsARangeOrBetweenTwoMoments)
{
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    constexpr std::array<NamedRange, 2> ranges = {{{"hour", 3600, "last hour"}, {"all", 0, "all"}}};
    constexpr double now = 1'795'352'400; // 2026-11-22 13:00
    const struct {
        TimeWords words;
        double from;
        double until;
        const char* title; ///< or the beginning of the complaint
    } cases[] = {{{"hour", "", ""}, now - 3600, now, "last hour"}, {{"all", "", ""}, 0, now, "all"},
        {{"hour", "", "12:00"}, now - 7200, now - 3600, "last hour until 22 Nov 12:00"},
        {{"hour", "-2h", ""}, now - 7200, now, "since 22 Nov 11:00"},
        {{"hour", "2025-11-22 13:00", "2026-12-31"}, now - 365 * day, now, "22 Nov 2025 13:00 to 22 Nov 13:00"},
        {{"hour", "soon", ""}, 0, 0, "\"soon\" is no moment; "},
        {{"hour", "2026-11-23", ""}, 0, 0, "\"2026-11-23\" is yet to come"},
        {{"hour", "-1h", "-2h"}, 0, 0, "\"-1h\" is not before \"-2h\""}};
    for (const auto& each : cases) {
        const auto stretch = timeStretchFrom(each.words, ranges, now);
        const std::string words = stretch ? stretch->title : stretch.error().message;
        EXPECT_EQ(words.substr(0, std::string(each.title).size()), each.title);
        EXPECT_EQ(stretch ? stretch->from : 0, each.from) << each.title;
        EXPECT_EQ(stretch ? stretch->until : 0, each.until) << each.title;
    }
}

TEST(HistoryView, CsvHasARowAMoment)
{
    const Value answer = json(R"({"values":["value","=cmd,\"x\""],"samples":[
        {"sample":1,"time":1700000000,"values":[41.5,null]},{"sample":3,"time":1700000012.9,"values":[-1,2]},
        {"sample":4,"time":1e300,"values":["x"]},17]})");
    EXPECT_EQ(historyCsv(std::vector<HistoryCurve>{{"CPU", answer}}),
        "time,value,\"'=cmd,\"\"x\"\"\"\n2023-11-14T22:13:20Z,41.5,\n2023-11-14T22:13:32Z,-1,2\n");
    EXPECT_EQ(historyCsv(std::vector<HistoryCurve>{{"CPU", Value()}}), "time\n");
    const Value banded =
        json(R"({"values":["value"],"samples":[{"time":1700000000,"values":[3],"low":[1],"high":[9]}]})");
    EXPECT_EQ(historyCsv(std::vector<HistoryCurve>{{"a/b", withFigure(answer, "value")}, {"c", banded}}),
        "time,a/b value,c value,c value low,c value high\n2023-11-14T22:13:20Z,41.5,3,1,9\n"
        "2023-11-14T22:13:32Z,-1,,,\n");
}

TEST(HistoryView, OneUnitIsOnePlot)
{
    const Value one = json(R"({"unit":"B","interval":300,"resolution":"longterm","values":["used","free"],"samples":[
        {"time":1700000000,"values":[1,2],"low":[0,null],"high":[2,3]},{"time":1799999000,"values":[5,6]},17]})");
    const Value other =
        json(R"({"unit":"%","interval":6,"values":["busy"],"samples":[{"time":1799999994,"values":[7]}]})");
    const std::vector<HistoryCurve> curves = {
        {"memory", one}, {"busy/sda", other}, {"memory/free", withFigure(one, "free")}};
    const auto plots = historyPlots(curves, "last day", 0, 2e9, 1.8e9);
    ASSERT_THAT(plots, SizeIs(2));
    EXPECT_EQ(plots[0].title, "memory, memory/free, last day");
    ASSERT_THAT(plots[0].series, SizeIs(3));
    EXPECT_EQ(plots[0].series[1].name, "memory free");
    EXPECT_EQ(plots[0].series[2].name, "memory/free");
    EXPECT_EQ(plots[0].series[2].points[1].value, 6);
    EXPECT_EQ(plots[1].series[0].name, "busy/sda");
    const PlotPoint& old = plots[0].series[0].points[0];
    EXPECT_EQ(old.interval, 6 * 3600) << "three years old";
    EXPECT_EQ(old.band->high, 2);
    EXPECT_FALSE(plots[0].series[1].points[0].band);
    EXPECT_EQ(plots[0].series[0].points[1].interval, 300);
}

TEST(HistoryListView, ShowsHowEachFigureWentAndIs)
{
    const std::vector<RecordedFigure> figures = {{.group = "memory",
                                                     .label = "memory/used",
                                                     .unit = "B",
                                                     .latest = 4096,
                                                     .points = {{10, 2048}, {30, 6144}, {90, 4096}}},
        {.group = "sensors", .label = "coretemp/a name of some length\x1B", .unit = "°C", .latest = {}, .points = {}}};
    EXPECT_EQ(textOf(historyListLines(figures, "last hour", 0, 120, 80)),
        "SERIES                     NOW  LAST HOUR                     LOWEST     HIGHEST\n"
        "memory\n"
        "  memory/used         4.00 KiB    ▁   █           ▅         2.00 KiB    6.00 KiB\n"
        "sensors\n"
        "  coretemp/a nam…            -                                     -           -\n");
    EXPECT_EQ(textOf(historyListLines({}, "x", 0, 1)), "nothing is recorded yet\n");
}

} // namespace
} // namespace meridal
