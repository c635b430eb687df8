// SPDX-License-Identifier: Apache-2.0
#include "client/views/SeriesLabels.h"

#include <cstddef>
#include <map>
#include <set>
#include <string_view>

namespace meridal {

namespace {

/// "coretemp" of "coretemp-isa-0000"; a device's name as it is.
std::string_view driverOf(std::string_view origin)
{
    for (const std::string_view bus :
        {"-isa-", "-pci-", "-i2c-", "-acpi-", "-virtual-", "-hid-", "-spi-", "-scsi-", "-mdio-"}) {
        if (const std::size_t at = origin.find(bus); at != std::string_view::npos && at > 0) {
            return origin.substr(0, at);
        }
    }
    return origin;
}

/// The same with all that the origin says, and by the names that never change, from the most welcome to the last resort.
std::string labelOf(const OfferedSeries& series, std::string_view origin)
{
    const std::string_view collector = std::string_view(series.series).substr(0, series.series.find('/'));
    if (series.key.empty()) {
        return series.series;
    }
    if (collector == "sensors") {
        return origin.empty() ? series.name : std::string(origin) + "/" + series.name;
    }
    return std::string(collector) + "/" + (origin.empty() ? series.name : std::string(origin));
}

} // namespace

void labelSeries(std::span<OfferedSeries> all)
{
    std::map<std::string_view, std::set<std::string_view>> chips; // by driver
    for (const OfferedSeries& each : all) {
        chips[driverOf(each.origin)].insert(each.origin);
    }
    std::map<std::string, std::size_t> uses;
    for (OfferedSeries& each : all) {
        const std::string_view driver = driverOf(each.origin);
        each.label = labelOf(each, chips[driver].size() == 1 ? driver : std::string_view(each.origin));
        ++uses[each.label];
    }
    for (OfferedSeries& each : all) {
        each.label = uses[each.label] == 1 ? each.label : each.series;
    }
}

std::vector<OfferedSeries> offeredSeries(const Value& rows)
{
    std::vector<OfferedSeries> all;
    for (const Value& row : rows) {
        all.push_back({.series = text(row, "series").value_or(""),
            .key = text(row, "key").value_or(""),
            .name = text(row, "name").value_or(""),
            .origin = text(row, "origin").value_or("")});
    }
    labelSeries(all);
    return all;
}

} // namespace meridal
