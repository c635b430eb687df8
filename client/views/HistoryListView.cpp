// SPDX-License-Identifier: Apache-2.0
#include "client/views/HistoryListView.h"

#include "base/Text.h"
#include "base/Value.h"
#include "client/plot/Sparkline.h"
#include "client/screen/Format.h"
#include "client/screen/TextTable.h"
#include "client/views/SensorsView.h"

namespace meridal {

namespace {

constexpr int sparkColumns = 24;

std::string readingOf(const std::optional<double>& value, const std::string& unit)
{
    return formatReading(value ? Value(*value) : Value(), printable(unit));
}

} // namespace

Lines historyListLines(
    std::span<const RecordedFigure> figures, const std::string& time, double from, double until, int room)
{
    if (figures.empty()) {
        return {{{Style::Plain, "nothing is recorded yet"}}};
    }
    TextTable table(
        {{.title = "SERIES", .width = 36, .gap = 1, .least = 16}, {"NOW", 12, Align::Right, 2},
            {upperCase(printable(time)), sparkColumns}, {"LOWEST", 12, Align::Right}, {"HIGHEST", 12, Align::Right}},
        room);
    std::string group;
    for (const RecordedFigure& figure : figures) {
        if (figure.group != group) {
            group = figure.group;
            table.addLine({{Style::Title, printable(group)}});
        }
        const auto summary = summarise({.name = {}, .points = figure.points});
        table.add({"  " + printable(figure.label),
            {figure.latest ? Style::Plain : Style::Faint, readingOf(figure.latest, figure.unit)},
            {Style::Faint, sparkline(figure.points, from, until, sparkColumns)},
            readingOf(summary ? std::optional(summary->minimum) : std::nullopt, figure.unit),
            readingOf(summary ? std::optional(summary->maximum) : std::nullopt, figure.unit)});
    }
    return table.lines();
}

} // namespace meridal
