// SPDX-License-Identifier: Apache-2.0
#include "client/views/TopTable.h"

#include "base/Text.h"
#include "client/screen/WallClock.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>

namespace meridal {

namespace {

/// Where a column's figure stands in an envelope.
struct Source {
    std::string_view list;
    std::string_view entry;
    std::size_t column = 0;
};

/// All there is to know about a list.
struct Schema {
    std::array<std::string_view, 2> jsonNames;
    std::vector<Source> sources;
    bool ranksBySum = false; ///< the daemon sends one ranking a column; we merge them
    bool isSums = false;     ///< over the time since the list before, of which we make rates
};

const Schema& schema(RequestKey list)
{
    static const std::array<Schema, allTopLists.size()> schemas = {{
        {{"cpuPercent", ""}, {{"processes", "c", 0}}},
        {{"memoryBytes", "footprintBytes"}, {{"processes", "m", 0}, {"processes-footprint", "m", 1}}},
        {{"readBytesPerSecond", "writeBytesPerSecond"},
            {{"read", "r", 0}, {"read", "w", 1}, {"write", "r", 0}, {"write", "w", 1}}, true},
        {{"receivedBytesPerSecond", "sentBytesPerSecond"},
            {{"download", "d", 0}, {"download", "u", 1}, {"upload", "d", 0}, {"upload", "u", 1}}, true, true},
        {{"energyScore", ""}, {{"processes", "score", 0}}},
    }};
    return schemas.at(static_cast<std::size_t>(std::countr_zero(mask(list))));
}

/// Some lists carry their figures as decimal text.
std::optional<double> figure(const Value& entry, std::string_view key)
{
    const std::optional<std::string> written = text(entry, key);
    if (!written) {
        return number(entry, key);
    }
    constexpr std::size_t longest = 64;
    const auto parsed = written->size() <= longest ? parseUntrusted(*written) : std::nullopt;
    return parsed ? number(Value{{"figure", *parsed}}, "figure") : std::nullopt;
}

std::string pidText(const Value& entry)
{
    if (const auto written = text(entry, "key")) {
        return printable(*written);
    }
    const auto value = integer(entry, "key");
    return value ? std::to_string(*value) : "?";
}

/// A rate has no more digits than the clock that it was measured by.
double inTenths(double rate) { return std::round(rate * 10) / 10; }

std::optional<TrafficShares> trafficShares(const Dictionary& envelope, double seconds)
{
    const auto rate = [&envelope, seconds](std::string_view share) {
        const Value* directions = find(envelope, share);
        return directions && directions->is_object() ? std::optional(
                   inTenths((number(*directions, "d").value_or(0) + number(*directions, "u").value_or(0)) / seconds))
                                                     : std::nullopt;
    };
    const auto unattributed = rate("unattributed");
    if (!unattributed) {
        return std::nullopt;
    }
    return TrafficShares{rate("attributed").value_or(0), rate("kernel").value_or(0), *unattributed};
}

void makeRates(TopTable& table)
{
    for (TopRow& row : table.rows) {
        for (std::optional<double>& figure : row.figures) {
            figure = figure && table.seconds ? std::optional(inTenths(*figure / *table.seconds)) : std::nullopt;
        }
    }
}

/// Of what is not known nobody can say that it is nothing.
bool hasNothing(const TopRow& row)
{
    const auto isZero = [](const std::optional<double>& figure) { return figure == 0.0; };
    return std::any_of(row.figures.begin(), row.figures.end(), isZero)
        && std::all_of(row.figures.begin(), row.figures.end(),
            [&](const std::optional<double>& figure) { return !figure || isZero(figure); });
}

double rank(const TopRow& row) { return row.figures[0].value_or(0) + row.figures[1].value_or(0); }

} // namespace

std::string_view listName(RequestKey list)
{
    const auto named = std::find_if(requestKeyNames.begin(), requestKeyNames.end(),
        [list](const RequestKeyName& entry) { return entry.key == list; });
    return named->name;
}

double TrafficShares::unattributedPercent() const
{
    const double all = attributed + kernel + unattributed;
    return all > 0 ? unattributed / all * 100 : 0;
}

std::optional<double> TopTable::sum(std::size_t column) const
{
    std::optional<double> total;
    for (const TopRow& row : rows) {
        if (row.figures.at(column)) {
            total = total.value_or(0) + *row.figures.at(column);
        }
    }
    return total;
}

TopTable readTopTable(
    RequestKey list, const Dictionary& envelope, std::optional<double> seconds, std::optional<double> time)
{
    TopTable table;
    table.list = list;
    table.time = time;
    table.seconds = seconds && *seconds > 0 ? seconds : std::nullopt;
    if (list == RequestKey::Network) {
        table.traffic = table.seconds ? trafficShares(envelope, *table.seconds) : std::nullopt;
        table.trafficSource = text(envelope, "source").value_or("");
    }
    std::map<std::string, std::size_t> rowOfPid;
    for (const Source& source : schema(list).sources) {
        const Value* entries = find(envelope, source.list);
        if (!entries || !entries->is_array()) {
            continue;
        }
        for (const Value& entry : *entries) {
            if (!entry.is_object()) {
                continue;
            }
            const std::string pid = pidText(entry);
            const auto [known, isNew] = rowOfPid.emplace(pid, table.rows.size());
            if (isNew) {
                table.rows.push_back({pid, printable(text(entry, "name").value_or("?")), {}});
            }
            auto& slot = table.rows[known->second].figures.at(source.column);
            slot = slot ? slot : figure(entry, source.entry);
        }
    }
    std::erase_if(table.rows, hasNothing);
    if (schema(list).isSums) {
        makeRates(table);
    }
    if (schema(list).ranksBySum) {
        std::stable_sort(table.rows.begin(), table.rows.end(),
            [](const TopRow& left, const TopRow& right) { return rank(left) > rank(right); });
    }
    return table;
}

Dictionary tableAsJson(const TopTable& table, std::size_t maximumRows)
{
    const auto& names = schema(table.list).jsonNames;
    Value processes = Value::array();
    for (std::size_t i = 0; i < std::min(maximumRows, table.rows.size()); ++i) {
        const TopRow& row = table.rows[i];
        const auto pid = parseUntrusted(row.pid);
        Dictionary process = {{"pid", pid && pid->is_number_integer() ? *pid : Value(row.pid)}, {"name", row.name}};
        for (std::size_t column = 0; column < names.size(); ++column) {
            if (!names.at(column).empty() && row.figures.at(column)) {
                process[std::string(names.at(column))] = *row.figures.at(column);
            }
        }
        processes.push_back(std::move(process));
    }
    Dictionary object = {{"list", listName(table.list)}, {"processes", std::move(processes)}};
    if (table.seconds) {
        object["seconds"] = std::round(*table.seconds * 1000) / 1000;
    }
    if (table.time) {
        object["time"] = isoTime(*table.time);
    }
    if (!table.trafficSource.empty()) {
        object["source"] = table.trafficSource;
    }
    if (table.traffic) {
        object["attributedBytesPerSecond"] = table.traffic->attributed;
        object["kernelBytesPerSecond"] = table.traffic->kernel;
        object["unattributedBytesPerSecond"] = table.traffic->unattributed;
    }
    return object;
}

} // namespace meridal
