#include "client/views/HistoryView.h"

#include "client/screen/WallClock.h"

namespace meridal {

namespace {

/// Quoted where it must be. What a spreadsheet would run as a formula is made text.
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

const Value& listIn(const Value& answer, const char* entry)
{
    static const Value none = Value::array();
    const Value* list = find(answer, entry);
    return list && list->is_array() ? *list : none;
}

} // namespace

Plot historyPlot(const Value& answer, const std::string& title, double from, double until)
{
    Plot plot{.title = title,
        .unit = text(answer, "unit").value_or(""),
        .from = from,
        .until = until,
        .series = {},
        .least = std::nullopt,
        .most = std::nullopt};
    for (const Value& name : listIn(answer, "values")) {
        plot.series.push_back({.name = name.is_string() ? name.get<std::string>() : "",
            .points = {},
            .interval = number(answer, "interval").value_or(0)});
    }
    for (const Value& sample : listIn(answer, "samples")) {
        const auto time = number(sample, "time");
        const Value& values = listIn(sample, "values");
        for (std::size_t index = 0; time && index < values.size() && index < plot.series.size(); ++index) {
            if (values[index].is_number()) {
                plot.series[index].points.push_back({.time = *time, .value = values[index].get<double>()});
            }
        }
    }
    return plot;
}

std::string historyCsv(const Value& answer)
{
    std::string out = "time";
    for (const Value& name : listIn(answer, "values")) {
        out += ',' + csvField(name.is_string() ? name.get<std::string>() : "");
    }
    out += '\n';
    for (const Value& sample : listIn(answer, "samples")) {
        out += formatTime(number(sample, "time"), "%Y-%m-%dT%H:%M:%SZ", TimeZone::Utc);
        for (const Value& value : listIn(sample, "values")) {
            out += ',';
            out += value.is_number() ? serialise(value) : "";
        }
        out += '\n';
    }
    return out;
}

} // namespace meridal
