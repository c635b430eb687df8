// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorStatCollectorItem.h"

#include "base/Runtime.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"

#include <algorithm>
#include <cmath>

namespace meridal {

void SensorStatCollectorItem::noteRecordedValue(double value)
{
    if (!lowest_ || value < *lowest_) {
        lowest_ = value;
        recordedValueChanged_ = true;
    }
    if (!highest_ || value > *highest_) {
        highest_ = value;
        recordedValueChanged_ = true;
    }
    hasRecorded_ = true;
    hasBeenAboveZero_ = hasBeenAboveZero_ || value > 0;
}

void SensorStatCollectorItem::takeStoredLimits(const SeenLimits& stored)
{
    if (stored.low && (!lowest_ || *stored.low < *lowest_)) {
        lowest_ = stored.low;
    }
    if (stored.high && (!highest_ || *stored.high > *highest_)) {
        highest_ = stored.high;
    }
    knowsStoredLimits_ = true;
    recordedValueChanged_ = recordedValueChanged_ || lowest_ != stored.low || highest_ != stored.high;
    updateLimits();
    updatePercentage();
}

void SensorStatCollectorItem::addValue(const Value& value, const Value&)
{
    const double reading = value.is_number() ? value.get<double>() : std::nan("");
    if (!std::isfinite(reading)) {
        setValueMissing();
        return;
    }
    value_ = reading;
    hasValue_ = true;
    if (samples_) {
        const std::optional<double> sample = reading;
        samples_->addSample(context().runtime.wallTime(), {&sample, 1});
    }
    updateLimits();
    updatePercentage();
}

void SensorStatCollectorItem::updateLimits()
{
    if (!hasFixedLimits_ && hasRecorded_) {
        low_ = lowestRecordedValue();
        high_ = highestRecordedValue();
    }
}

void SensorStatCollectorItem::updatePercentage()
{
    const double range = high_ - low_;
    percentage_ = range > 0 && std::isfinite(range) ? std::clamp((value_ - low_) / range, 0.0, 1.0) * 100 : 0;
}

std::weak_ordering SensorStatCollectorItem::sort(const StatCollectorItem& other) const
{
    const auto* sensor = dynamic_cast<const SensorStatCollectorItem*>(&other);
    if (!sensor) {
        return std::weak_ordering::less;
    }
    const auto byKind = type_ <=> sensor->type_;
    return byKind != 0 ? byKind : index_ <=> sensor->index_;
}

} // namespace meridal
