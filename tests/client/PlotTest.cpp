// SPDX-License-Identifier: Apache-2.0
#include "client/plot/Plot.h"

#include "base/Text.h"
#include "client/plot/PlotAxis.h"
#include "client/plot/SvgPlot.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr double start = 1'700'000'000; // 2023-11-14 22:13:20 UTC

std::size_t countOf(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

std::string drawn(const Plot& plot, int columns = 60, int rows = 6) { return textOf(plotLines(plot, columns, rows)); }

Plot hourOf(std::vector<PlotPoint> points, double interval = 6)
{
    return {.title = "CPU",
        .unit = "°C",
        .from = start,
        .until = start + 3600,
        .series = {{.name = "value", .points = std::move(points), .interval = interval}},
        .least = {},
        .most = {}};
}

class PlotTest : public testing::Test {
protected:
    PlotTest()
    {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
};

TEST_F(PlotTest, ShowsALineItsAxesAndItsSummary)
{
    std::vector<PlotPoint> points;
    for (int i = 0; i < 600; ++i) {
        points.push_back({start + 6 * i, 40 + 10.0 * i / 600});
    }
    const std::string text = drawn(hourOf(points));
    EXPECT_EQ(text.substr(0, text.find('\n')), "CPU  °C");
    EXPECT_THAT(text, HasSubstr("50 ┤"));
    EXPECT_THAT(text, HasSubstr("40 ┤⣀")) << "it starts at the lower left";
    EXPECT_THAT(text, HasSubstr("22:30"));
    EXPECT_THAT(text, HasSubstr("min 40.0 °C   avg 45.0 °C   max 50.0 °C"));
}

TEST_F(PlotTest, GapsStayBlank)
{
    std::vector<PlotPoint> points;
    for (int i = 0; i < 600; ++i) {
        if (i < 200 || i >= 400) {
            points.push_back({start + 6 * i, 40});
        }
    }
    const Plot plot = hourOf(points);
    EXPECT_EQ(runsOf(plot.series[0]).size(), 2U);
    EXPECT_THAT(drawn(plot), HasSubstr("⠒" + std::string(18, ' ') + "⠒")) << "a third of the width";
    EXPECT_EQ(countOf(plotSvg(plot), "<polyline"), 2U);
    EXPECT_EQ(runsOf({.name = "", .points = {{10, 1}, {4, 1}, {10, 1}}, .interval = 6}).size(), 2U)
        << "a clock that was set back";
    EXPECT_THAT(plotSvg(hourOf({{start + 60, 1}, {start + 900, 2}})), HasSubstr("<circle"));
}

TEST_F(PlotTest, NothingToShowIsOneLine)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& points :
        {std::vector<PlotPoint>{}, {{start - 100, 1}}, {{start + 10, nan}}, {{nan, 1}}, {{start + 4000, 1}}}) {
        EXPECT_EQ(drawn(hourOf(points)), "CPU  °C\nno measurements in this time\n");
        EXPECT_THAT(plotSvg(hourOf(points)), HasSubstr("no measurements in this time"));
    }
    Plot backwards = hourOf({{start + 10, 1}});
    backwards.until = start - 1;
    EXPECT_THAT(drawn(backwards), HasSubstr("no measurements"));
}

TEST_F(PlotTest, NamesFromOutsideDoNoHarm)
{
    Plot plot = hourOf({{start + 6, 1}, {start + 12, 2}});
    plot.title = "\x1B[2J</title><script>alert(\"1\")&\xFF";
    plot.unit = "<b>\x07";
    plot.series.push_back({.name = "\x1B]0;x", .points = {}, .interval = 6});
    EXPECT_EQ(drawn(plot).find('\x1B'), std::string::npos);
    const std::string svg = plotSvg(plot);
    EXPECT_THAT(svg, HasSubstr("?[2J&lt;/title&gt;&lt;script&gt;alert(&quot;1&quot;)&amp;"));
    EXPECT_THAT(svg, Not(HasSubstr("<script")));
    EXPECT_THAT(svg, Not(HasSubstr("<b>")));
}

TEST_F(PlotTest, BandsAreLighterThanTheLine)
{
    Plot plot = hourOf({{start, 20, PlotBand{0, 40}}, {start + 1800, 20, PlotBand{0, 40}}, {start + 3600, 20}}, 1800);
    const std::string text = drawn(plot, 40, 8);
    EXPECT_THAT(text, HasSubstr("40 ┤░░░░░░░░░░░░░░░░░░░\n")) << "half of the width";
    EXPECT_THAT(text, HasSubstr("min 0 °C   avg 20 °C   max 40 °C"));
    EXPECT_EQ(countOf(plotSvg(plot), "<polygon"), 1U);
    plot.series[0].points[0].band = PlotBand{25, 30};
    EXPECT_FALSE(clipped(plot).series[0].points[0].band) << "the mean is not in it";
    EXPECT_EQ(runsOf({.name = "", .points = {{0, 1}, {90, 1, {}, 80}, {180, 1}}, .interval = 10}).size(), 1U)
        << "points that stand for more than their series' interval";
}

TEST_F(PlotTest, BytesAreInTheUnitThatSuitsThem)
{
    const std::tuple<const char*, double, const char*> units[] = {{"B", 3.0 * (1 << 30), "GiB"},
        {"B/s", 3 << 10, "KiB/s"}, {"B", 3, "B"}, {"Hz", 3e9, "GHz"}, {"rpm", 3e9, "rpm"}};
    for (const auto& [unit, value, shown] : units) {
        Plot plot = hourOf({{start, value, PlotBand{value, value}}});
        plot.unit = unit;
        plot = inReadableUnit(std::move(plot));
        EXPECT_EQ(plot.unit, shown);
        EXPECT_EQ(plot.series[0].points[0].value, std::string(unit) == "rpm" ? value : 3);
        EXPECT_EQ(plot.series[0].points[0].band->high, plot.series[0].points[0].value);
    }
    Plot burst = hourOf({{start, 0}, {start + 6, 3.0 * (1 << 30)}, {start + 12, 0}});
    burst.unit = "B/s";
    EXPECT_THAT(drawn(burst), HasSubstr("min 0 B/s   avg 1.00 GiB/s   max 3.00 GiB/s"));
    EXPECT_THAT(plotSvg(burst), HasSubstr("min 0 B/s, avg 1.00 GiB/s, max 3.00 GiB/s<"));
    const std::vector<Plot> two = {hourOf({{start, 1}}), hourOf({{start, 1}})};
    EXPECT_EQ(countOf(plotsSvg(two), "<svg"), 1U);
    EXPECT_THAT(plotsSvg(two), HasSubstr("translate(0 376)"));
}

TEST_F(PlotTest, TimeMarksFitTheirRange)
{
    EXPECT_EQ(timeMarks(start, start + 3600, 5).front().label, "22:15");
    EXPECT_EQ(timeMarks(start, start + 86'400, 5)[1].label, "06:00");
    EXPECT_EQ(timeMarks(start, start + 7 * 86'400, 8).front().label, "15 Nov");
    EXPECT_EQ(timeMarks(start, start + 365.0 * 86'400, 4).front().label.size(), std::string("Nov 2023").size());
    EXPECT_TRUE(timeMarks(start, start, 5).empty());
    EXPECT_TRUE(timeMarks(0, 1e300, 5).empty());
}

TEST(ValueAxis, OfWhatNeverWasAnythingBeginsAtTheGround)
{
    const ValueAxis axis = valueAxis(0, 0, 5);
    EXPECT_EQ(axis.low, 0);
    EXPECT_EQ(axis.high, 1);
}

RC_GTEST_PROP(ValueAxis, HoldsAllValuesInFewRoundSteps, ())
{
    const auto mantissa = *rc::gen::inRange(-100'000, 100'001);
    const auto width = *rc::gen::inRange(0, 100'001);
    const double scale = std::pow(10.0, *rc::gen::inRange(-6, 8));
    const int most = *rc::gen::inRange(1, 12);
    const double low = mantissa * scale;
    const double high = low + width * scale;
    const ValueAxis axis = valueAxis(low, high, most);
    RC_ASSERT(axis.step > 0);
    RC_ASSERT(axis.low <= low + axis.step * 1e-6);
    RC_ASSERT(axis.high >= high - axis.step * 1e-6);
    RC_ASSERT(axis.intervals() >= 1);
    RC_ASSERT(axis.intervals() <= std::max(most, 2)); // both signs need a mark at 0
}

RC_GTEST_PROP(PlotLines, AreAsWideAsAskedWhateverTheValues, (const std::vector<double>& values))
{
    std::vector<PlotPoint> points;
    for (std::size_t i = 0; i < values.size(); ++i) {
        points.push_back({start + static_cast<double>(i), values[i] * 1e3});
    }
    const int columns = *rc::gen::inRange(30, 150);
    for (const Line& line : plotLines(hourOf(points), columns, *rc::gen::inRange(-5, 30))) {
        if (plainText(line).find("min ") != 0) {
            RC_ASSERT(displayWidth(plainText(line)) <= columns);
        }
    }
}

} // namespace
} // namespace meridal
