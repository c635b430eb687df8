#include "collectors/sensors/SensorStatCollectorItem.h"

#include "base/Runtime.h"
#include "platform/Context.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

/// Stands for "not seen yet" among the lowest values.
constexpr double notSeen = -1;

} // namespace

SensorStatCollectorItem::SensorStatCollectorItem(Context& context)
    : StatCollectorItem(context, sampleCount(), StorageLayout::forHistory())
{
}

void SensorStatCollectorItem::noteRecordedValue(double value)
{
    const bool isFirst = lowestRecordedValue_ == notSeen && !hasRecorded_;
    if (isFirst || value < lowestRecordedValue_) {
        lowestRecordedValue_ = value;
        recordedValueChanged_ = true;
    }
    if (value > highestRecordedValue_) {
        highestRecordedValue_ = value;
        recordedValueChanged_ = true;
    }
    hasRecorded_ = true;
}

void SensorStatCollectorItem::takeStoredLimits(const SeenLimits& stored)
{
    // A table that says 0 was made before any value was seen.
    const double low = stored.low == 0 ? notSeen : stored.low;
    if (!hasRecorded_) {
        lowestRecordedValue_ = low;
    } else if (low != notSeen) {
        lowestRecordedValue_ = std::min(lowestRecordedValue_, low);
    }
    highestRecordedValue_ = std::max(highestRecordedValue_, stored.high);
    knowsStoredLimits_ = true;
    recordedValueChanged_ =
        recordedValueChanged_ || lowestRecordedValue_ != low || highestRecordedValue_ != stored.high;
    updateLimits();
    updatePercentage();
}

void SensorStatCollectorItem::addValue(const Value& value, const Value& identifier)
{
    const double reading = value.is_number() ? value.get<double>() : std::nan("");
    if (!std::isfinite(reading)) {
        setValueMissing();
        return;
    }
    value_ = reading;
    hasValue_ = true;
    sample_["value"] = reading;
    sample_["time"] = context().runtime.wallTime();
    if (identifier.is_number()) {
        sample_["sample"] = identifier;
    } else {
        sample_.erase("sample");
    }
    addSample(sample_, StorageIndex::Live);
    updateLimits();
    updatePercentage();
}

void SensorStatCollectorItem::updateLimits()
{
    if (!hasFixedLimits_ && hasRecorded_) {
        low_ = lowestRecordedValue_;
        high_ = highestRecordedValue_;
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
