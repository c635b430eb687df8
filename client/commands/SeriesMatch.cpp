// SPDX-License-Identifier: Apache-2.0
#include "client/commands/SeriesMatch.h"

#include "base/Text.h"
#include "client/commands/NearWords.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostCandidates = 8;

template <typename Test>
std::vector<std::size_t> placesOf(std::span<const OfferedSeries> all, Test test)
{
    std::vector<std::size_t> places;
    for (std::size_t place = 0; place < all.size(); ++place) {
        if (test(all[place])) {
            places.push_back(place);
        }
    }
    return places;
}

/// Every series by how near its name is, or its key; those of one thing alone have none.
std::vector<std::size_t> nearest(std::span<const OfferedSeries> all, const std::string& wanted)
{
    std::vector<std::pair<std::size_t, std::size_t>> ranked;
    for (std::size_t place = 0; place < all.size(); ++place) {
        const std::string& key = all[place].key.empty() ? all[place].series : all[place].key;
        const std::size_t away =
            std::min(lettersApart(wanted, lowercase(all[place].name)), lettersApart(wanted, lowercase(key)));
        ranked.emplace_back(away, place);
    }
    std::sort(ranked.begin(), ranked.end());
    ranked.resize(std::min(ranked.size(), mostCandidates));
    std::vector<std::size_t> places;
    for (const auto& entry : ranked) {
        places.push_back(entry.second);
    }
    return places;
}

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

/// "coretemp/Core 0" of "coretemp-isa-0000" and "Core 0", whatever its label is.
bool isOfOrigin(const OfferedSeries& series, std::string_view folded)
{
    const std::string origin = lowercase(series.origin);
    const std::size_t slash = folded.find('/');
    return !origin.empty() && slash != std::string_view::npos && slash > 0
        && origin.starts_with(folded.substr(0, slash)) && lowercase(series.name) == folded.substr(slash + 1);
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

SeriesMatch matchSeries(std::span<const OfferedSeries> all, std::string_view wanted)
{
    const std::string folded = lowercase(wanted);
    const auto contains = [&](const std::string& text) { return lowercase(text).find(folded) != std::string::npos; };
    std::vector<std::vector<std::size_t>> attempts = {
        placesOf(all,
            [&](const OfferedSeries& each) {
                return each.series == wanted || each.label == wanted || each.key == wanted;
            }),
        placesOf(all,
            [&](const OfferedSeries& each) {
                return lowercase(each.name) == folded || lowercase(each.label) == folded || isOfOrigin(each, folded);
            }),
        placesOf(all,
            [&](const OfferedSeries& each) {
                return lowercase(each.series) == folded || lowercase(each.key) == folded;
            }),
        placesOf(all,
            [&](const OfferedSeries& each) {
                return contains(each.name) || contains(each.key) || contains(each.series) || contains(each.label);
            }),
    };
    for (std::vector<std::size_t>& places : attempts) {
        if (wanted.empty()) {
            break; // everything has nothing in it
        }
        if (places.size() == 1) {
            return {.found = places.front(), .candidates = {}, .isAmbiguous = false};
        }
        if (!places.empty()) {
            places.resize(std::min(places.size(), mostCandidates));
            return {.found = std::nullopt, .candidates = std::move(places), .isAmbiguous = true};
        }
    }
    return {.found = std::nullopt, .candidates = nearest(all, folded), .isAmbiguous = false};
}

} // namespace meridal
