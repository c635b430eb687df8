// SPDX-License-Identifier: Apache-2.0
#include "client/commands/SeriesMatch.h"

#include "base/Text.h"
#include "client/commands/NearWords.h"

#include <algorithm>
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

/// "coretemp/Core 0" of "coretemp-isa-0000" and "Core 0", whatever its label is.
bool isOfOrigin(const OfferedSeries& series, std::string_view folded)
{
    const std::string origin = lowercase(series.origin);
    const std::size_t slash = folded.find('/');
    return !origin.empty() && slash != std::string_view::npos && slash > 0
        && origin.starts_with(folded.substr(0, slash)) && lowercase(series.name) == folded.substr(slash + 1);
}

} // namespace

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
