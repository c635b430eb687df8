// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/disks/AttributeMeanings.h"
#include "collectors/disks/SMARTPages.h"
#include "history/SampleRecords.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

/// One reading of an attribute.
struct smartattribute {
    std::uint16_t flag = 0;
    double current = 0; ///< the vendor's own scale; higher is better
    double worst = 0;
    double threshold = 0; ///< 0: never fails
    std::array<std::uint8_t, 6> rawvalue = {};
    double formatted = 0; ///< the raw value as its format reads it, in that format's unit
    double time = 0;      ///< s since 1970
    double sampleID = 0;
    std::int32_t empty = 1;
};

/// An attribute against its threshold. The numbers are given.
enum class AttributeStatus { Fine = 0, FailingNow = 1, FailedInThePast = 2 };

/// One SMART attribute of one ATA disk. Main queue only.
class SMARTStatCollectorAttribute {
public:
    explicit SMARTStatCollectorAttribute(std::uint8_t attributeID) : attributeID_(attributeID) { }

    std::uint8_t attributeID() const { return attributeID_; }
    const smartattribute& currentValue() const { return currentValue_; }
    /// A RawFormat, or -1 for the default.
    int format() const { return format_; }
    static constexpr int defaultFormat() { return defaultRawFormat; }
    double threshold() const { return threshold_; }
    void setThreshold(double threshold) { threshold_ = threshold; }
    /// Absent for what only the vendor knows.
    const std::optional<std::string>& name() const { return description_.title; }
    /// The raw value for people, or as a number where it is one; null before the first reading.
    const Value& value() const { return value_; }
    std::uint64_t lastRawValue() const { return lastRawValue_; }
    AttributeRole role() const { return description_.role; }
    /// What its failing means, for people; empty where nothing is known.
    std::string meaning() const { return std::string(description_.meaning ? description_.meaning->meaning : ""); }
    /// A failure of the disk is predicted from it; others tell of age and use.
    bool predictsFailure() const { return (currentValue_.flag & 1U) != 0; }

    // Figures of its role; absent for another role, before the first reading, and where it makes no sense
    std::optional<double> temperature() const; ///< °C
    std::optional<double> powerOnHours() const;
    std::optional<double> powerCycles() const;
    std::optional<double> lifeUsed() const; ///< percentage of the rated life
    std::optional<double> bytes() const;    ///< written or read
    /// Smaller ones are to be preferred. Of the role Life.
    std::size_t lifeRank() const { return meridal::lifeRank(*description_.meaning); }
    /// Data or spare sectors have been lost.
    bool hasDefects() const;

    /// Takes over what is known of it on such disks.
    void describe(AttributeDescription description);

    AttributeStatus status() const;
    /// The raw bytes as one number, together with worst and current in the formats of 64 bits.
    std::uint64_t rawvalue(const SMARTDataEntry& entry) const;
    void updateWithAttribute(const SMARTDataEntry& entry, double sampleID, double time);
    void setSampleID(double sampleID) { currentValue_.sampleID = sampleID; }
    /// Takes figures from a stored sample: "f", "c", "w", "t".
    void addSample(const Dictionary& sample, StorageIndex storage);

    // Of the interface, and called by nothing here
    void setFormat(int format) { format_ = format; }

private:
    RawFormat effectiveFormat() const { return static_cast<RawFormat>(format_ == -1 ? defaultFormat() : format_); }
    bool means(AttributeRole role) const { return description_.role == role && currentValue_.empty == 0; }

    std::uint8_t attributeID_;
    smartattribute currentValue_;
    double threshold_ = 0;
    int format_ = -1;
    Value value_;
    std::uint64_t lastRawValue_ = 0;
    AttributeDescription description_;
};

} // namespace meridal
