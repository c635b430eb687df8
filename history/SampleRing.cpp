// SPDX-License-Identifier: Apache-2.0
#include "history/SampleRing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace meridal {

namespace {

/// Figures beyond this are no measurement. Sums over a ring stay finite below it.
constexpr double largestFigure = 1e300;

/// A slot with an earlier time than this has never been filled.
constexpr double earliestRealTime = 1.0;

/// Room taken for the first sample of a ring.
constexpr std::size_t fewestSlots = 8;

constexpr std::array<double, maximumValues> neverMeasured = [] {
    std::array<double, maximumValues> values{};
    values.fill(absentFigure);
    return values;
}();

bool isFigure(double value) { return std::abs(value) <= largestFigure; } // false for NaN too

double sumOfPresent(const statsample& sample, std::span<const std::size_t> indexes)
{
    double sum = 0;
    for (const std::size_t index : indexes) {
        sum += index < sample.values.size() && !std::isnan(sample.values[index]) ? sample.values[index] : 0;
    }
    return sum;
}

} // namespace

SampleRing::SampleRing(std::size_t slots, std::size_t valueCount)
    : slots_(slots), valueCount_(std::min(valueCount, maximumValues))
{
}

statsample SampleRing::operator[](SlotIndex slot) const
{
    if (slot.value >= stamps_.size()) {
        return {.values = std::span(neverMeasured).first(valueCount_)};
    }
    const std::size_t record = recordOf(slot);
    const Stamp& stamp = stamps_[record];
    return {.sampleID = stamp.sampleID(),
        .time = stamp.time,
        .empty = !stamp.isMeasured(),
        .values = {valuesOf(record), valueCount_}};
}

std::optional<statsample> SampleRing::find(std::uint64_t sampleID) const
{
    for (SlotIndex slot; slot.value < stamps_.size(); ++slot.value) {
        if (stamps_[recordOf(slot)].sampleID() == sampleID) {
            return (*this)[slot];
        }
    }
    return std::nullopt;
}

/// The record of the sample that comes next. Grows by half at a time and ends at the slots exactly: the largest rings take
/// fifteen hours to fill, and those of what is there for a moment never do.
std::size_t SampleRing::nextRecord()
{
    if (stamps_.size() == slots_) {
        return newest_ + 1 < slots_ ? newest_ + 1 : 0;
    }
    if (stamps_.size() == stamps_.capacity()) {
        const std::size_t room = std::min(slots_, std::max(fewestSlots, stamps_.size() + stamps_.size() / 2));
        values_.reserve(room * valueCount_);
        stamps_.reserve(room);
    }
    values_.resize(values_.size() + valueCount_);
    stamps_.emplace_back();
    return stamps_.size() - 1;
}

void SampleRing::push(std::uint64_t sampleID, double time, std::span<const double> values)
{
    if (slots_ == 0) {
        return;
    }
    newest_ = nextRecord();
    double* const own = values_.data() + newest_ * valueCount_;
    bool isAnyMeasured = false;
    for (std::size_t index = 0; index < valueCount_; ++index) {
        const bool isMeasured = index < values.size() && isFigure(values[index]);
        own[index] = isMeasured ? values[index] : absentFigure;
        isAnyMeasured = isAnyMeasured || isMeasured;
    }
    stamps_[newest_] = {.mark = 2 * sampleID + (isAnyMeasured ? 1 : 0), .time = isFigure(time) ? time : 0};
}

/// Calls it with identifier and values of each sample of the window that is not empty, the newest first.
template <typename Function>
void SampleRing::forEachIn(AverageWindow window, Function function) const
{
    for (SlotIndex slot; slot.value < stamps_.size(); ++slot.value) {
        const std::size_t record = recordOf(slot);
        const Stamp& stamp = stamps_[record];
        if (!stamp.isMeasured()) {
            continue;
        }
        if (window.start > 0) {
            if (stamp.time <= window.start) {
                break;
            }
            if (stamp.time > window.end) {
                continue;
            }
        }
        function(stamp.sampleID(), valuesOf(record));
    }
}

double SampleRing::meanOfPresent(AverageWindow window, std::size_t index) const
{
    double sum = 0;
    double count = 0;
    forEachIn(window, [&](std::uint64_t, const double* values) {
        const bool isPresent = !std::isnan(values[index]);
        sum += isPresent ? values[index] : 0;
        count += isPresent ? 1 : 0;
    });
    return count > 0 ? sum / count : absentFigure;
}

SampleAverages SampleRing::averages(AverageWindow window) const
{
    SampleAverages result;
    result.valueCount = valueCount_;
    result.lowest.fill(std::numeric_limits<double>::infinity());
    result.highest.fill(-std::numeric_limits<double>::infinity());
    forEachIn(window, [&](std::uint64_t sampleID, const double* values) {
        for (std::size_t index = 0; index < valueCount_; ++index) {
            const double value = values[index];
            result.values[index] += value;
            result.lowest[index] = value < result.lowest[index] ? value : result.lowest[index]; // NaN is neither
            result.highest[index] = value > result.highest[index] ? value : result.highest[index];
        }
        result.oldest = sampleID;
        result.newest = result.samples == 0 ? sampleID : result.newest;
        ++result.samples;
    });
    for (std::size_t index = 0; index < valueCount_ && result.samples > 0; ++index) {
        double& value = result.values[index];
        // Seldom is a value missing: then the sum has told so.
        value = std::isnan(value) ? meanOfPresent(window, index) : value / static_cast<double>(result.samples);
    }
    return result;
}

template <typename Test>
bool SampleRing::holds(const ThresholdQuery& query, Test test) const
{
    const auto passes = [&](const statsample& sample) {
        double sum = 0;
        for (const std::size_t index : query.indexes) {
            sum += index < valueCount_ ? sample.values[index] : 0;
        }
        return test(std::isnan(sum) ? sumOfPresent(sample, query.indexes) : sum);
    };
    if (slots_ == 0) {
        return false;
    }
    if (query.seconds < 0) {
        return passes((*this)[SlotIndex{0}]);
    }
    for (SlotIndex slot; slot.value < size(); ++slot.value) {
        const statsample sample = (*this)[slot];
        if (sample.time < query.now - query.seconds) {
            // The period is covered; but a slot that was never filled means that the samples do not reach back over it.
            return slot.value > 0 && sample.time > earliestRealTime;
        }
        if (!passes(sample)) {
            return false;
        }
    }
    return true;
}

bool SampleRing::below(const ThresholdQuery& query) const
{
    return holds(query, [&](double sum) { return sum < query.threshold; });
}

bool SampleRing::above(const ThresholdQuery& query) const
{
    return holds(query, [&](double sum) { return sum >= query.threshold; });
}

} // namespace meridal
