#include "history/SampleRing.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

/// Figures beyond this are no measurement. Sums over a ring stay finite below it.
constexpr double largestFigure = 1e300;

/// A slot with an earlier time than this has never been filled.
constexpr double earliestRealTime = 1.0;

bool isFigure(double value) { return std::abs(value) <= largestFigure; } // false for NaN too

} // namespace

SampleRing::SampleRing(std::size_t slots, std::size_t valueCount)
    : records_(slots), valueCount_(std::min(valueCount, maximumValues))
{
    values_.resize(slots * valueCount_);
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

void SampleRing::shift()
{
    if (size() < 2) {
        return;
    }
    const std::size_t newest = head_;
    head_ = head_ == 0 ? size() - 1 : head_ - 1;
    statsample& to = records_[head_];
    to.sampleID = records_[newest].sampleID;
    to.time = records_[newest].time;
    to.empty = records_[newest].empty;
    std::copy_n(values_.begin() + static_cast<std::ptrdiff_t>(newest * valueCount_), valueCount_,
        values_.begin() + static_cast<std::ptrdiff_t>(head_ * valueCount_));
}

void SampleRing::shiftLabels()
{
    for (std::size_t slot = size(); slot-- > 1;) {
        const statsample& newer = (*this)[SlotIndex{slot - 1}];
        setLabel(SlotIndex{slot}, newer.sampleID, newer.time);
    }
}

void SampleRing::setLabel(SlotIndex slot, std::uint64_t sampleID, double time)
{
    setID(slot, sampleID);
    setTime(slot, time);
}

void SampleRing::setID(SlotIndex slot, std::uint64_t sampleID)
{
    if (contains(slot)) {
        records_[recordOf(slot)].sampleID = sampleID;
    }
}

void SampleRing::setTime(SlotIndex slot, double time)
{
    if (contains(slot) && isFigure(time)) {
        records_[recordOf(slot)].time = time;
    }
}

void SampleRing::setEmpty(SlotIndex slot, std::int32_t empty)
{
    if (contains(slot)) {
        records_[recordOf(slot)].empty = empty;
    }
}

void SampleRing::setValue(SlotIndex slot, std::size_t index, double value)
{
    if (contains(slot) && index < valueCount_ && isFigure(value)) {
        values_[recordOf(slot) * valueCount_ + index] = value;
    }
}

void SampleRing::clear(SlotTimes times)
{
    for (statsample& record : records_) {
        record.sampleID = 0;
        record.empty = 1;
        if (times == SlotTimes::Clear) {
            record.time = 0;
        }
    }
    std::fill(values_.begin(), values_.end(), 0.0);
}

SampleAverages SampleRing::averages(AverageWindow window) const
{
    SampleAverages result;
    for (SlotIndex slot; slot.value < size(); ++slot.value) {
        const statsample& sample = (*this)[slot];
        if (sample.empty != 0) {
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
        for (std::size_t index = 0; index < valueCount_; ++index) {
            result.values[index] += sample.values[index];
        }
        ++result.samples;
    }
    if (result.samples > 0) {
        for (double& value : result.values) {
            value /= static_cast<double>(result.samples);
        }
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
        return test(sum);
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
