// SPDX-License-Identifier: Apache-2.0
#include "client/views/HistoryView.h"

#include "client/screen/WallClock.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostNamesInTitle = 3;

const Value& listIn(const Value& answer, const char* entry)
{
    static const Value none = Value::array();
    const Value* list = find(answer, entry);
    return list && list->is_array() ? *list : none;
}

std::vector<std::string> figuresOf(const Value& answer)
{
    std::vector<std::string> names;
    for (const Value& name : listIn(answer, "values")) {
        names.push_back(name.is_string() ? name.get<std::string>() : "");
    }
    return names;
}

/// A number of a sample as it came; null where there is none.
const Value* valueIn(const Value& sample, const char* entry, std::size_t figure)
{
    const Value& values = listIn(sample, entry);
    return figure < values.size() && values[figure].is_number() ? &values[figure] : nullptr;
}

std::optional<double> figureIn(const Value& sample, const char* entry, std::size_t figure)
{
    const Value* value = valueIn(sample, entry, figure);
    return value ? std::optional(value->get<double>()) : std::nullopt;
}

std::string titleOf(const Plot& plot, std::span<const HistoryCurve> curves, const std::string& time)
{
    std::string names;
    std::size_t count = 0;
    for (const HistoryCurve& curve : curves) {
        if (text(curve.answer, "unit").value_or("") == plot.unit && ++count <= mostNamesInTitle) {
            names += (names.empty() ? "" : ", ") + curve.label;
        }
    }
    return (count > mostNamesInTitle ? names + " and " + std::to_string(count - mostNamesInTitle) + " more" : names)
        + ", " + time;
}

/// A column of comma-separated values: where in the samples, and of what.
struct CsvColumn {
    std::size_t curve = 0;
    const char* entry = "";
    std::size_t figure = 0;
};

struct KeptResolution {
    std::string_view name;
    double span = 0; ///< s that it reaches back
    double interval() const { return span / 600; }
};
constexpr std::array<KeptResolution, 7> keptResolutions = {{
    {"hour", 3600},
    {"day", day},
    {"week", 7 * day},
    {"month", 30 * day},
    {"threemonth", 90 * day},
    {"sixmonth", 180 * day},
    {"year", 365 * day},
}};

std::string csvTime(double time) { return formatTime(time, "%Y-%m-%dT%H:%M:%SZ", TimeZone::Utc); }

} // namespace

Value withFigure(const Value& answer, std::string_view figure)
{
    const auto names = figuresOf(answer);
    const auto place = static_cast<std::size_t>(std::find(names.begin(), names.end(), figure) - names.begin());
    Value one = answer;
    for (Value& sample : one["samples"]) {
        for (const char* entry : {"values", "low", "high"}) {
            if (sample.is_object() && sample.contains(entry)) {
                const Value* value = valueIn(sample, entry, place);
                sample[entry] = Value::array({value ? *value : Value()});
            }
        }
    }
    one["values"] = Value::array({figure});
    return one;
}

std::vector<PlotPoint> historyPoints(const Value& answer, std::size_t figure, double now)
{
    const bool isLongTerm = text(answer, "resolution") == "longterm";
    std::vector<PlotPoint> points;
    for (const Value& sample : listIn(answer, "samples")) {
        const auto time = number(sample, "time");
        const auto value = figureIn(sample, "values", figure);
        if (!time || !value) {
            continue;
        }
        const auto low = figureIn(sample, "low", figure);
        const auto high = figureIn(sample, "high", figure);
        points.push_back({.time = *time,
            .value = *value,
            .band = low && high ? std::optional(PlotBand{*low, *high}) : std::nullopt,
            .interval = isLongTerm ? longTermInterval(now - *time) : 0});
    }
    return points;
}

std::vector<Plot> historyPlots(
    std::span<const HistoryCurve> curves, const std::string& time, double from, double until, double now)
{
    std::vector<Plot> plots;
    for (const HistoryCurve& curve : curves) {
        const std::string unit = text(curve.answer, "unit").value_or("");
        auto plot = std::find_if(plots.begin(), plots.end(), [&](const Plot& each) { return each.unit == unit; });
        if (plot == plots.end()) {
            plots.push_back(
                {.title = {}, .unit = unit, .from = from, .until = until, .series = {}, .least = {}, .most = {}});
            plot = plots.end() - 1;
        }
        const auto figures = figuresOf(curve.answer);
        for (std::size_t figure = 0; figure < figures.size(); ++figure) {
            const std::string name = curves.size() == 1 ? figures[figure]
                : figures.size() == 1                   ? curve.label
                                                        : curve.label + " " + figures[figure];
            plot->series.push_back({.name = name,
                .points = historyPoints(curve.answer, figure, now),
                .interval = number(curve.answer, "interval").value_or(0)});
        }
    }
    for (Plot& plot : plots) {
        plot.title = titleOf(plot, curves, time);
    }
    return plots;
}

double longTermInterval(double age)
{
    constexpr double hour = 3600;
    return age <= 93 * day ? hour / 12 : age <= 2 * 365.25 * day ? hour : 6 * hour;
}

std::string resolutionFor(double from, double until, double now)
{
    constexpr double slack = 60; // s: "-1h" was typed a moment ago
    constexpr double mostSamplesDrawn = 3000;
    const auto kept = std::find_if(keptResolutions.begin(), keptResolutions.end(),
        [&](const KeptResolution& each) { return now - from <= each.span + slack; });
    const double interval = longTermInterval(now - from);
    const bool isFiner =
        kept == keptResolutions.end() || (interval < kept->interval() && (until - from) / interval <= mostSamplesDrawn);
    return std::string(isFiner ? "longterm" : kept->name);
}

std::string historyCsv(std::span<const HistoryCurve> curves)
{
    std::vector<CsvColumn> columns;
    std::string out = "time";
    std::map<double, std::vector<std::string>> rows; // by time, a field a column
    for (std::size_t curve = 0; curve < curves.size(); ++curve) {
        const Value& answer = curves[curve].answer;
        const Value& samples = listIn(answer, "samples");
        const auto has = [&](const char* entry) {
            return std::any_of(samples.begin(), samples.end(), [&](const Value& each) { return find(each, entry); });
        };
        const auto figures = figuresOf(answer);
        for (std::size_t figure = 0; figure < figures.size(); ++figure) {
            const std::string name = curves.size() == 1 ? figures[figure] : curves[curve].label + " " + figures[figure];
            for (const char* entry : {"values", "low", "high"}) {
                const bool isMean = std::string_view(entry) == "values";
                if (isMean || has(entry)) {
                    out += ',' + csvField(isMean ? name : name + " " + entry);
                    columns.push_back({curve, entry, figure});
                }
            }
        }
    }
    for (std::size_t column = 0; column < columns.size(); ++column) {
        for (const Value& sample : listIn(curves[columns[column].curve].answer, "samples")) {
            const auto time = number(sample, "time");
            const Value* value = valueIn(sample, columns[column].entry, columns[column].figure);
            if (time && csvTime(*time) != "-") {
                auto& row = rows.try_emplace(*time, columns.size()).first->second;
                row[column] = value ? serialise(*value) : "";
            }
        }
    }
    for (const auto& [time, fields] : rows) {
        out += '\n' + csvTime(time);
        for (const std::string& field : fields) {
            (out += ',') += field;
        }
    }
    return out + '\n';
}

std::string csvField(const std::string& text)
{
    constexpr std::string_view formula = "=+-@";
    const bool isFormula = !text.empty() && formula.find(text.front()) != std::string_view::npos;
    const std::string field = isFormula ? "'" + text : text;
    if (field.find_first_of(",\"\r\n") == std::string::npos) {
        return field;
    }
    std::string quoted = "\"";
    for (const char character : field) {
        quoted += character == '"' ? "\"\"" : std::string(1, character);
    }
    return quoted + '"';
}

} // namespace meridal
