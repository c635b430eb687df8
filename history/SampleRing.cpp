// SPDX-License-Identifier: Apache-2.0
#include "history/SampleRing.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meridal {

namespace {

/// Figures beyond this are no measurement. Sums over a ring stay finite below it.
constexpr double largestFigure = 1e300;

/// A slot with an earlier time than this has never been filled.
constexpr double earliestRealTime = 1.0;

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
    : records_(slots), valueCount_(std::min(valueCount, maximumValues))
{
    values_.resize(slots * valueCount_, absentFigure);
    for (std::size_t record = 0; record < slots; ++record) {
        records_[record].values = std::span(values_).subspan(record * valueCount_, valueCount_);
    }
}

const statsample* SampleRing::find(std::uint64_t sampleID) const
{
    for (SlotIndex slot; slot.value < size(); ++slot.value) {
        if ((*this)[slot].sampleID == sampleID) {
            return &(*this)[slot];
        }
    }
    return nullptr;
}

void SampleRing::push(std::uint64_t sampleID, double time, std::span<const double> values)
{
    if (records_.empty()) {
        return;
    }
    head_ = head_ == 0 ? size() - 1 : head_ - 1;
    statsample& record = records_[head_];
    record.sampleID = sampleID;
    record.time = isFigure(time) ? time : 0;
    record.empty = true;
    double* const own = values_.data() + head_ * valueCount_;
    for (std::size_t index = 0; index < valueCount_; ++index) {
        const bool isMeasured = index < values.size() && isFigure(values[index]);
        own[index] = isMeasured ? values[index] : absentFigure;
        record.empty = record.empty && !isMeasured;
    }
}

/// Calls it with each sample of the window that is not empty, the newest first.
template <typename Function>
void SampleRing::forEachIn(AverageWindow window, Function function) const
{
    for (SlotIndex slot; slot.value < size(); ++slot.value) {
        const statsample& sample = (*this)[slot];
        if (sample.empty) {
            continue;
        }
        if (window.start > 0) {
            if (sample.time <= window.start) {
                break;
            }
            if (sample.time > window.end) {
                continue;
            }
        }
        function(sample);
    }
}

double SampleRing::meanOfPresent(AverageWindow window, std::size_t index) const
{
    double sum = 0;
    double count = 0;
    forEachIn(window, [&](const statsample& sample) {
        const bool isPresent = !std::isnan(sample.values[index]);
        sum += isPresent ? sample.values[index] : 0;
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
    forEachIn(window, [&](const statsample& sample) {
        for (std::size_t index = 0; index < valueCount_; ++index) {
            const double value = sample.values[index];
            result.values[index] += value;
            result.lowest[index] = value < result.lowest[index] ? value : result.lowest[index]; // NaN is neither
            result.highest[index] = value > result.highest[index] ? value : result.highest[index];
        }
        result.oldest = sample.sampleID;
        result.newest = result.samples == 0 ? sample.sampleID : result.newest;
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
    if (records_.empty()) {
        return false;
    }
    if (query.seconds < 0) {
        return passes((*this)[SlotIndex{0}]);
    }
    for (SlotIndex slot; slot.value < size(); ++slot.value) {
        const statsample& sample = (*this)[slot];
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
