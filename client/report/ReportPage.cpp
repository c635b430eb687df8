// SPDX-License-Identifier: Apache-2.0
#include "client/report/ReportPage.h"

#include "base/Text.h"
#include "client/plot/SvgBars.h"
#include "client/plot/SvgPlot.h"
#include "client/plot/SvgText.h"
#include "client/report/Html.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/BandwidthView.h"
#include "client/views/BatteryView.h"
#include "client/views/DisksView.h"
#include "client/views/UptimeView.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <span>

namespace meridal {

namespace {

constexpr int reportColumns = 110; // what fits the page's width in its fixed-width font
constexpr std::size_t applicationsOfReport = 12;

bool hasRows(const Value& list) { return list.is_array() && !list.empty(); }

std::string hostOf(const Value& info) { return text(info, "hostName").value_or("this machine"); }

std::string withoutNothing(const Value& from, std::string_view key)
{
    const std::string value = text(from, key).value_or("");
    return value.empty() ? "" : value + ", ";
}

/// What machine it is, and which time the page is about.
std::string headingOf(const ReportSources& sources)
{
    const Value* cpu = find(sources.info, "cpu");
    std::string machine = withoutNothing(sources.info, "model") + withoutNothing(cpu ? *cpu : Value(), "model");
    if (const auto memory = number(sources.info, "memory")) {
        machine += formatBytes(*memory) + " of memory, ";
    }
    machine += withoutNothing(sources.info, "system") + withoutNothing(sources.info, "kernel");
    machine = machine.substr(0, machine.find_last_not_of(", ") + 1);
    const auto moment = [](double time) { return formatTime(time, "%d %b %Y %H:%M"); };
    return fmt::format("<header>\n<h1>{}</h1>\n<p>{}<br>{}: {} to {}. Made {}.</p>\n</header>\n",
        svgText(hostOf(sources.info)), svgText(machine), svgText(sources.time), moment(sources.from),
        moment(sources.until), moment(sources.now));
}

Style styleOfState(CheckState state)
{
    return state == CheckState::Fine ? Style::Plain : state == CheckState::Critical ? Style::High : Style::Warning;
}

std::string healthOf(const CheckReport& report)
{
    Lines lines;
    for (const CheckedTopic& topic : report.topics) {
        const std::vector<std::string> words = topicLines(topic);
        for (const std::string& line : words) {
            lines.push_back({{&line == &words.front() ? styleOfState(topic.state()) : Style::Plain, line}});
        }
    }
    return htmlOf(lines, true);
}

std::string applicationsOf(const ReportSources& sources)
{
    std::string out;
    for (const auto& [figure, groups] : sources.applications) {
        const Value rows = foldedApplications(groups, applicationsOfReport);
        const bool isAnything = hasRows(rows);
        if (isAnything) {
            out += barsElement(applicationPicture(rows, figure, applicationFigureTitle(figure)));
        }
    }
    return out;
}

std::string plotsOf(const ReportSources& sources, std::span<const HistoryCurve> curves)
{
    if (curves.empty()) {
        return {};
    }
    std::string out;
    for (const Plot& plot : historyPlots(curves, sources.time, sources.from, sources.until, sources.now)) {
        out += plotsElement({&plot, 1});
    }
    return out;
}

std::string disksOf(const ReportSources& sources)
{
    return hasRows(sources.disks) ? htmlOf(diskLines(sources.disks, false, reportColumns)) : std::string();
}

/// A machine without a battery has no such section. The recorded figures are plots here, so the words go without them.
std::string batteryOf(const ReportSources& sources)
{
    const Value* batteries = find(sources.battery, "batteries");
    if (!batteries || !hasRows(*batteries)) {
        return {};
    }
    Value state = sources.battery;
    state.erase("history");
    std::string out = htmlOf(batteryLines(state, reportColumns)) + plotsOf(sources, sources.charge);
    for (const Plot& plot : batteryPlots(sources.battery, sources.now)) {
        out += plot.series.empty() ? std::string() : plotsElement({&plot, 1});
    }
    return out;
}

std::string trafficOf(const ReportSources& sources)
{
    return hasRows(sources.traffic)
        ? barsElement(barPicture("Network, by " + sources.trafficBy, bandwidthBars(sources.traffic, sources.trafficBy)))
        : std::string();
}

std::string bootsOf(const ReportSources& sources)
{
    return sources.boots.is_object() ? htmlOf(uptimeLines(sources.boots, true)) : std::string();
}

} // namespace

std::string reportPage(const ReportSources& sources)
{
    const std::string body = headingOf(sources) + htmlSection("Health", healthOf(sources.check))
        + htmlSection("Applications", applicationsOf(sources)) + htmlSection("Load", plotsOf(sources, sources.load))
        + htmlSection("Temperatures", plotsOf(sources, sources.temperatures))
        + htmlSection("Fans", plotsOf(sources, sources.fans)) + htmlSection("Disks", disksOf(sources))
        + htmlSection("Battery", batteryOf(sources)) + htmlSection("Network", trafficOf(sources))
        + htmlSection("Boots", bootsOf(sources));
    return htmlPage(hostOf(sources.info) + ", " + sources.time, body);
}

} // namespace meridal
