// SPDX-License-Identifier: Apache-2.0
#include "daemon/MomentFigures.h"

#include "daemon/HistoryQuestions.h"
#include "history/HistoryRecorder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

using Moment = HistoryMoment;

constexpr std::size_t mostOfAKind = 64; // entries of one list

/// Series of the machine as a whole → the entry that tells them.
constexpr std::array<std::pair<std::string_view, std::string_view>, 8> wholes = {
    {{"processors", "cpu"}, {"load", "load"}, {"tasks", "tasks"}, {"kernel", "kernel"}, {"memory", "memory"},
        {"swap", "swap"}, {"paging", "paging"}, {"pressure", "pressure"}}};
/// Series of things of which there are several, each with one entry for all its figures.
struct ThingSeries {
    std::string_view collector;
    const char* list;
    const char* name; ///< of the entry that says which it is
};
constexpr std::array<ThingSeries, 10> ofThings = {{{"throughput", "disks", "disk"}, {"requests", "disks", "disk"},
    {"latency", "disks", "disk"}, {"busy", "disks", "disk"}, {"queue", "disks", "disk"},
    {"network", "rates", "interface"}, {"networkfaults", "rates", "interface"}, {"graphics", "gpus", "gpu"},
    {"graphicsmemory", "gpus", "gpu"}, {"graphicsclock", "gpus", "gpu"}}};

const ThingSeries* thingOf(const MomentSeries& series)
{
    const auto* found = std::find_if(
        ofThings.begin(), ofThings.end(), [&](const auto& each) { return each.collector == series.collector; });
    return found != ofThings.end() ? found : nullptr;
}

double cleaned(double figure, double step)
{
    constexpr double digits = 1e4; // what a mean has beyond them is noise
    return step > 0 ? inSteps(figure, step) : std::round(figure * digits) / digits;
}

/// The time that a sample stands for, to be filled with figures.
Value framed(const Moment::Sample& sample)
{
    return {{"resolution", resolutionName(sample.index)}, {"from", sample.from}, {"until", sample.until}};
}

void addColumns(const MomentRecord& record, const MomentSeries& series, const Moment::Sample& sample, Value& entry)
{
    for (const std::string& column : series.series.values) {
        const auto place = series.recorder->columnNamed(column);
        const double figure = place && *place < sample.values.size() ? sample.values[*place] : absentFigure;
        if (!std::isnan(figure)) {
            entry[column] = cleaned(figure, record.isExact ? 0 : series.series.step);
        }
    }
}

void addBusy(Value& cpu)
{
    std::optional<double> busy;
    for (const char* part : {"user", "nice", "system", "interrupt", "steal"}) {
        if (const auto share = number(cpu, part)) {
            busy = busy.value_or(0) + *share;
        }
    }
    if (busy) {
        cpu["busy"] = cleaned(*busy, 0);
    }
}

const Moment* momentOf(const MomentRecord& record, const MomentSeries& series)
{
    const auto found = record.figures.find(series.recorder);
    return found != record.figures.end() ? found->second.get() : nullptr;
}

std::optional<Moment::Sample> sampleOf(const MomentRecord& record, const MomentSeries& series)
{
    const Moment* moment = momentOf(record, series);
    return moment ? moment->at(series.series.key, series.collector == "disks" ? slackOfDisks : usualSlack)
                  : std::nullopt;
}

void addTo(Value& answer, const char* list, Value entry)
{
    if (Value& entries = answer[list]; entries.size() < mostOfAKind) {
        entries.push_back(std::move(entry));
    }
}

void addWhole(const MomentRecord& record, const MomentSeries& series, std::string_view name, Value& answer)
{
    if (const auto sample = sampleOf(record, series)) {
        Value entry = framed(*sample);
        addColumns(record, series, *sample, entry);
        if (name == "cpu") {
            addBusy(entry);
        }
        answer[std::string(name)] = std::move(entry);
    }
}

/// Also of those that are not there any more.
void addThings(const MomentRecord& record, const MomentSeries& any, const ThingSeries& kind, Value& answer)
{
    const Moment* moment = momentOf(record, any);
    MomentSeries thing = any;
    thing.series.values = any.recorder->traits().columns;
    for (const std::string& key : moment ? moment->keys() : std::vector<std::string>()) {
        const auto sample = moment->at(key, usualSlack);
        if (!sample) {
            continue;
        }
        Value entry = framed(*sample);
        entry[kind.name] = key;
        addColumns(record, thing, *sample, entry);
        addTo(answer, kind.list, std::move(entry));
    }
}

Value describeReading(const MomentRecord& record, const MomentSeries& series, const Moment::Sample& sample)
{
    Value entry = framed(sample);
    entry["series"] = series.name();
    entry["name"] = series.series.name;
    entry["unit"] = series.series.unit;
    if (!series.series.origin.empty()) {
        entry["chip"] = series.series.origin;
    }
    if (series.series.values.size() == 1) {
        Value columns;
        addColumns(record, series, sample, columns);
        entry["value"] = columns.is_object() && !columns.empty() ? *columns.begin() : Value();
    } else {
        addColumns(record, series, sample, entry["values"]);
    }
    return entry;
}

/// The list that a series of a sensor belongs to; null where it is of no interest.
const char* listOf(const MomentSeries& series)
{
    const std::string& unit = series.series.unit;
    if (series.collector == "wear") {
        return nullptr;
    }
    if (series.collector != "sensors" && series.collector != "disks") {
        return "others";
    }
    return unit == "°C" ? "temperatures" : unit == "rpm" ? "fans" : unit == "W" ? "power" : nullptr;
}

} // namespace

void addFigures(const MomentRecord& record, Value& answer)
{
    for (const char* list : {"temperatures", "fans", "disks"}) {
        answer[list] = Value::array();
    }
    std::set<std::string_view> told; // a recorder has all figures of its things
    for (const MomentSeries& series : record.series) {
        const auto* whole = std::find_if(
            wholes.begin(), wholes.end(), [&](const auto& each) { return each.first == series.collector; });
        if (whole != wholes.end()) {
            addWhole(record, series, whole->second, answer);
        } else if (const ThingSeries* thing = thingOf(series)) {
            if (told.insert(thing->list).second) {
                addThings(record, series, *thing, answer);
            }
        } else if (const char* list = listOf(series)) {
            const auto sample = sampleOf(record, series);
            Value entry = sample ? describeReading(record, series, *sample) : Value();
            if (sample && (entry.contains("values") || !entry["value"].is_null())) {
                addTo(answer, list, std::move(entry));
            }
        }
    }
}

} // namespace meridal
