// SPDX-License-Identifier: Apache-2.0
#include "client/views/ApplicationsView.h"

#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <string>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

constexpr double mebibyte = 1024 * 1024;

Value groupOf(const char* name, double cpu, double memory, const char* kind = "application")
{
    return {{"group", std::string("exe:/usr/bin/") + name}, {"name", name}, {"kind", kind}, {"user", 1000},
        {"cpuUser", cpu / 2}, {"cpuSystem", cpu / 2}, {"memory", memory}, {"memoryPeak", 2 * memory},
        {"diskRead", 1024}, {"diskWritten", 0}, {"received", 0}, {"sent", 10}, {"energyScore", 3 * cpu}};
}

Value someGroups()
{
    Value groups = {groupOf("firefox", 7260, 900 * mebibyte), groupOf("make", 30, 2 * mebibyte),
        groupOf("make", 6, mebibyte), groupOf("tiny", 1.5, 0), groupOf("other", 0.5, mebibyte, "other"),
        groupOf("kernel", 2, 0, "kernel")};
    groups[2]["user"] = 0;
    return groups;
}

TEST(ApplicationsView, TotalsHaveABarAndAShareEach)
{
    EXPECT_EQ(textOf(applicationLines(foldedApplications(someGroups(), 3), ApplicationFigure::Cpu, 80)),
        "APPLICATION                                          CPU TIME   SHARE\n"
        "firefox                      ████████████████████   2 h 1 min  99.5 %\n"
        "make (user 1000)             ▏                         30.0 s   0.4 %\n"
        "make (user 0)                ▏                          6.0 s   0.1 %\n"
        "other                        ▏                          2.0 s   0.0 %\n"
        "kernel                       ▏                          2.0 s   0.0 %\n");
    EXPECT_THAT(textOf(applicationLines(foldedApplications(someGroups(), 1), ApplicationFigure::Memory)),
        HasSubstr("other                                                       -       -      38.0 s"));
    EXPECT_EQ(
        textOf(applicationLines(Value::array(), ApplicationFigure::Cpu)), "no application is recorded in this time\n");
    EXPECT_EQ(foldedApplications(someGroups(), 0), someGroups());
}

TEST(ApplicationsView, FoldingAddsWhatCanBeAdded)
{
    Value groups = someGroups();
    groups[3]["joules"] = 12;
    const Value folded = foldedApplications(groups, 2);
    ASSERT_THAT(folded, SizeIs(4));
    const Value& other = folded[2];
    EXPECT_EQ(other.at("kind"), "other");
    EXPECT_EQ(other.at("cpuUser"), 4.0);
    EXPECT_EQ(other.at("diskRead"), 3072);
    EXPECT_EQ(other.at("joules"), 12);
    EXPECT_FALSE(other.contains("memory")) << "means of different times have no sum";
    EXPECT_EQ(folded[3].at("kind"), "kernel");
}

TEST(ApplicationsView, ACourseIsDrawnAsRates)
{
    const Value course = {{"group", "app:firefox"}, {"name", "firefox"}, {"step", "minute"},
        {"periods",
            {{{"time", 600}, {"seconds", 60}, {"cpuUser", 20}, {"cpuSystem", 10}, {"memory", 5}, {"received", 120}},
                {{"time", 660}, {"seconds", 30}, {"cpuUser", 30}, {"cpuSystem", 0}, {"memory", 7}, {"received", 0},
                    {"joules", 45}},
                {{"time", 720}, {"seconds", 0}}, 17}}};
    const Plot cpu = applicationPlot(course, ApplicationFigure::Cpu, "last hour", 0, 700);
    EXPECT_EQ(cpu.title, "firefox, last hour");
    EXPECT_EQ(cpu.unit, "% of one core");
    ASSERT_THAT(cpu.series, SizeIs(1));
    ASSERT_THAT(cpu.series[0].points, SizeIs(2));
    EXPECT_EQ(cpu.series[0].points[0].time, 630);
    EXPECT_EQ(cpu.series[0].points[0].value, 50);
    EXPECT_EQ(cpu.series[0].points[1].value, 100);
    const Plot power = applicationPlot(course, ApplicationFigure::Energy, "", 0, 700);
    EXPECT_EQ(power.unit, "W");
    EXPECT_EQ(power.series[0].points[0].value, 1.5);
    EXPECT_EQ(applicationPlot(course, ApplicationFigure::Network, "", 0, 700).series[0].points[0].value, 2);
    EXPECT_THAT(applicationPlot(course, ApplicationFigure::Memory, "", 0, 700).series, SizeIs(1)) << "no peak was told";
    EXPECT_THAT(textOf(plotLines(applicationPlot(Value(), ApplicationFigure::Disk, "", 0, 700), 60, 5)),
        HasSubstr("no measurements"));
}

TEST(ApplicationsView, CsvHasTheFiguresThatAreThere)
{
    const Value rows = {{{"group", "exe:a"}, {"name", "=a,b"}, {"cpuUser", 1.5}}, {{"group", "kernel"}, {"sent", 3}}};
    EXPECT_EQ(applicationCsv(rows), "group,name,cpuUser,sent\nexe:a,\"'=a,b\",1.5,\nkernel,,,3\n");
    const std::string svg = barsSvg(applicationPicture(someGroups(), ApplicationFigure::Memory, "<T>"));
    EXPECT_THAT(svg, HasSubstr("&lt;T&gt;"));
    EXPECT_THAT(svg, HasSubstr("width=\"468.00\"")); // 900 of the axis' 1000 MiB
    EXPECT_THAT(svg, HasSubstr("(MiB)"));
    EXPECT_THAT(svg, HasSubstr("900 MiB"));
}

} // namespace
} // namespace meridal
