// SPDX-License-Identifier: Apache-2.0
#include "history/HistoryMoment.h"

#include "history/LongTermThinning.h"

#include <algorithm>
#include <set>
#include <utility>

namespace meridal {

namespace {

/// Disks that sleep are read every half hour, and a row comes a while after its period's end.
constexpr double farthestBack = 2100; // s

} // namespace

double HistoryMoment::lengthOf(StorageIndex index) const
{
    auto length = static_cast<double>(storageConstants[position(index)].interval);
    if (index == StorageIndex::LongTerm) {
        for (const LongTermStep& step : longTermSteps) {
            length = now_ - time_ > step.age ? step.step : length;
        }
    }
    return length;
}

TimeSpan HistoryMoment::spanOf(StorageIndex index) const
{
    const double length = lengthOf(index);
    const double back = index == StorageIndex::Day ? std::max(minutesAround, farthestBack) : minutesAround;
    return {.from = time_ - back - length, .until = time_ + minutesAround + length};
}

void HistoryMoment::add(StorageIndex index, RowsOfSpan rows)
{
    if (rows.oldest > 0) {
        oldest_ = oldest_ > 0 ? std::min(oldest_, rows.oldest) : rows.oldest;
        newest_ = std::max(newest_, rows.newest);
    }
    layers_.push_back({index, std::move(rows)});
    std::sort(layers_.begin(), layers_.end(),
        [this](const Layer& a, const Layer& b) { return lengthOf(a.index) < lengthOf(b.index); });
}

HistoryMoment::Sample HistoryMoment::sampleOf(const Layer& layer, std::size_t row) const
{
    const double end = layer.found.rows.rows[row].time;
    return {.index = layer.index,
        .from = end - lengthOf(layer.index),
        .until = end,
        .values = layer.found.rows.valuesOf(row)};
}

/// Rows with a measurement.
template <typename Function>
void HistoryMoment::forEachRow(const Layer& layer, const std::string& key, Function function)
{
    if (!key.empty()) {
        if (const auto rows = layer.found.rows.byKey.find(key); rows != layer.found.rows.byKey.end()) {
            for (const std::size_t row : rows->second) {
                function(row);
            }
        }
        return;
    }
    for (std::size_t row = 0; row < layer.found.rows.rows.size(); ++row) {
        if (!layer.found.rows.rows[row].empty) {
            function(row);
        }
    }
}

/// A table that reaches back so far and has nothing of the moment says that nothing was measured: the mean of a coarser
/// period would be of hours around.
const HistoryMoment::Layer* HistoryMoment::covering(const std::string& key, double slack) const
{
    constexpr double aboutTwice = 2.2;
    bool isReached = false;
    for (const Layer& layer : layers_) {
        const double length = lengthOf(layer.index);
        if (isReached && length > aboutTwice * slack) {
            break;
        }
        bool covers = false;
        forEachRow(layer, key, [&](std::size_t row) {
            const double end = layer.found.rows.rows[row].time;
            covers = covers || (end >= time_ && end - length <= time_);
        });
        if (covers) {
            return &layer;
        }
        const bool reaches =
            layer.found.oldest > 0 && layer.found.oldest - length <= time_ && time_ <= layer.found.newest;
        isReached = isReached || reaches;
    }
    return nullptr;
}

std::optional<HistoryMoment::Sample> HistoryMoment::at(const std::string& key, double slack) const
{
    std::optional<Sample> found;
    if (const Layer* layer = covering(key, slack)) {
        forEachRow(*layer, key, [&](std::size_t row) {
            const Sample sample = sampleOf(*layer, row);
            if (sample.until >= time_ && sample.from <= time_) {
                found = sample;
            }
        });
        return found;
    }
    for (const Layer& layer : layers_) {
        forEachRow(layer, key, [&](std::size_t row) {
            const double end = layer.found.rows.rows[row].time;
            if (end < time_ && time_ - end <= slack && (!found || end > found->until)) {
                found = sampleOf(layer, row);
            }
        });
    }
    return found;
}

std::vector<HistoryMoment::Sample> HistoryMoment::around(const std::string& key, double slack) const
{
    std::vector<Sample> samples;
    const Layer* layer = covering(key, slack);
    if (!layer) {
        return samples;
    }
    const double length = lengthOf(layer->index);
    forEachRow(*layer, key, [&](std::size_t row) {
        const double end = layer->found.rows.rows[row].time;
        if (end > time_ - minutesAround && end <= time_ + minutesAround + length) {
            samples.push_back(sampleOf(*layer, row));
        }
    });
    return samples;
}

std::vector<std::string> HistoryMoment::keys() const
{
    std::set<std::string> all;
    for (const Layer& layer : layers_) {
        for (const auto& [key, rows] : layer.found.rows.byKey) {
            all.insert(key);
        }
    }
    return {all.begin(), all.end()};
}

} // namespace meridal
