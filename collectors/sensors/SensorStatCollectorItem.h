// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/StatCollectorItem.h"
#include "collectors/sensors/SensorConfiguration.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

class SampleStorages;

/// The lowest and the highest value that a sensor ever had; absent while nobody knows.
struct SeenLimits {
    std::optional<double> low;
    std::optional<double> high;
};

/// One sensor: what it is called, its latest value, the range in which its value lies, and the extremes ever seen.
class SensorStatCollectorItem : public StatCollectorItem {
public:
    using StatCollectorItem::StatCollectorItem;

    /// Where its readings are kept.
    const std::shared_ptr<SampleStorages>& samples() const { return samples_; }
    void setSamples(std::shared_ptr<SampleStorages> samples) { samples_ = std::move(samples); }

    /// What a client, or the host, said of it.
    const SensorConfiguration& sensorConfig() const { return sensorConfig_; }
    void setSensorConfig(SensorConfiguration configuration) { sensorConfig_ = std::move(configuration); }
    const std::string& name() const { return name_; }
    void setName(std::string name) { name_ = std::move(name); }
    void setNameFanControl(std::string name) { nameFanControl_ = std::move(name); }
    std::int64_t index() const { return index_; } ///< its place in the list that it came in
    void setIndex(std::int64_t index) { index_ = index; }
    std::int64_t type() const { return type_; } ///< a sensorKind
    void setType(std::int64_t type) { type_ = type; }
    std::int64_t subType() const { return subType_; }

    double value() const { return value_; } ///< the latest reading, in the unit of its kind
    /// Whether the latest attempt to read it gave a value.
    bool hasValue() const { return hasValue_; }
    /// The latest attempt gave none; value() stays as it was.
    void setValueMissing() { hasValue_ = false; }

    double low() const { return low_; }
    void setLow(double low) { low_ = low; }
    double high() const { return high_; }
    void setHigh(double high) { high_ = high; }
    bool hasFixedLimits() const { return hasFixedLimits_; }
    void setHasFixedLimits(bool fixed) { hasFixedLimits_ = fixed; }
    /// Where the value lies between low (0) and high (100); 0 while there is no range.
    double percentage() const { return percentage_; }

    /// -1 while nothing has been seen, which is a value, too: hasSeenLimits() tells them apart.
    double lowestRecordedValue() const { return lowest_.value_or(-1); }
    double highestRecordedValue() const { return highest_.value_or(0); } ///< 0 while nothing has been seen
    bool hasSeenLimits() const { return lowest_ && highest_; }
    /// Whether the extremes changed since they were last handed to the database.
    bool recordedValueChanged() const { return recordedValueChanged_; }
    void setRecordedValueChanged(bool changed) { recordedValueChanged_ = changed; }
    /// Whether it has had a value in this run.
    bool hasRecorded() const { return hasRecorded_; }
    /// Whether one of them was above 0: a fan that turned.
    bool hasBeenAboveZero() const { return hasBeenAboveZero_; }
    /// Widens the extremes to hold a value.
    void noteRecordedValue(double value);
    /// Whether it knows what earlier runs saw. Until then nothing may be written over that.
    bool knowsStoredLimits() const { return knowsStoredLimits_; }
    /// Joins what earlier runs saw with what this one has seen meanwhile.
    void takeStoredLimits(const SeenLimits& stored);

    /// A new reading: becomes the value and a live sample. What is no finite number is no reading.
    void addValue(const Value& value, const Value& identifier) override;
    /// Without fixed limits the range is what has been seen.
    void updateLimits();
    void updatePercentage();
    /// By kind, then by place.
    std::weak_ordering sort(const StatCollectorItem& other) const override;

    // Of the interface, and called by nothing here
    /// What fan control calls it; its name unless something else was set.
    const std::string& nameFanControl() const { return nameFanControl_.empty() ? name_ : nameFanControl_; }
    void setSubType(std::int64_t subType) { subType_ = subType; }
    bool defaultSensor() const { return defaultSensor_; }
    void setDefaultSensor(bool isDefault) { defaultSensor_ = isDefault; }

private:
    SensorConfiguration sensorConfig_;
    std::string name_;
    std::string nameFanControl_;
    std::int64_t index_ = 0;
    std::int64_t type_ = 0;
    std::int64_t subType_ = 0;
    double value_ = 0;
    double low_ = 0;
    double high_ = 0;
    std::optional<double> lowest_;
    std::optional<double> highest_;
    double percentage_ = 0;
    bool hasValue_ = false;
    bool hasRecorded_ = false;
    bool hasBeenAboveZero_ = false;
    bool knowsStoredLimits_ = false;
    bool recordedValueChanged_ = false;
    bool defaultSensor_ = false;
    bool hasFixedLimits_ = false;
    std::shared_ptr<SampleStorages> samples_;
};

} // namespace meridal
