// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTStatCollectorAttribute.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

void SMARTStatCollectorAttribute::describe(AttributeDescription description)
{
    description_ = std::move(description);
    format_ = static_cast<int>(description_.format);
}

AttributeStatus SMARTStatCollectorAttribute::status() const
{
    if (currentValue_.threshold > currentValue_.current) {
        return AttributeStatus::FailingNow;
    }
    return currentValue_.threshold > currentValue_.worst ? AttributeStatus::FailedInThePast : AttributeStatus::Fine;
}

// Figures

std::optional<double> SMARTStatCollectorAttribute::temperature() const
{
    // All zeros is what disks without a sensor have there; of one at 0 °C the extremes are with it, as a rule.
    return means(AttributeRole::Temperature) && lastRawValue_ != 0 && isDiskTemperature(currentValue_.formatted)
        ? std::optional(currentValue_.formatted)
        : std::nullopt;
}

std::optional<double> SMARTStatCollectorAttribute::powerOnHours() const
{
    constexpr double aCentury = 876'600;
    const auto format = effectiveFormat();
    const bool isPattern = format == RawFormat::Hex48 || format == RawFormat::Hex56 || format == RawFormat::Hex64;
    return means(AttributeRole::PowerOnTime) && !isPattern && currentValue_.formatted < aCentury
        ? std::optional(currentValue_.formatted)
        : std::nullopt;
}

std::optional<double> SMARTStatCollectorAttribute::powerCycles() const
{
    return means(AttributeRole::PowerCycles) && currentValue_.formatted > 0 ? std::optional(currentValue_.formatted)
                                                                            : std::nullopt;
}

std::optional<double> SMARTStatCollectorAttribute::bytes() const
{
    return means(AttributeRole::BytesWritten) || means(AttributeRole::BytesRead)
        ? std::optional(currentValue_.formatted * description_.unit)
        : std::nullopt;
}

bool SMARTStatCollectorAttribute::hasDefects() const
{
    return means(AttributeRole::Defects) && currentValue_.formatted > 0;
}

namespace {

/// Percentage of life used by three words that each have whole percents in their upper byte and hundredths below. Absent
/// where that cannot be what they hold.
std::optional<double> lifeInWords(std::uint64_t number)
{
    constexpr unsigned hundredths = 100;
    for (int word = 0; word < 3; ++word) {
        if ((number >> (16 * word) & 0xFFU) >= hundredths) {
            return std::nullopt;
        }
    }
    return static_cast<double>(number >> 8 & 0xFFU) + static_cast<double>(number & 0xFFU) / hundredths;
}

std::optional<double> used(double left) { return left >= 0 && left <= 100 ? std::optional(100 - left) : std::nullopt; }

} // namespace

std::optional<double> SMARTStatCollectorAttribute::lifeUsed() const
{
    constexpr double mostUsed = 255; ///< a disk may serve longer than it is rated
    constexpr double highStart = 50; ///< with a threshold like that the scale does not end at 0
    if (!means(AttributeRole::Life)) {
        return std::nullopt;
    }
    const auto raw = static_cast<double>(lastRawValue_);
    const auto byCurrent = threshold_ < highStart ? used(currentValue_.current) : std::nullopt;
    const auto format = effectiveFormat();
    switch (description_.meaning->scale) {
    case LifeScale::CurrentLeft:
        return byCurrent;
    case LifeScale::CurrentKept:
        return currentValue_.current > 0 ? byCurrent : std::nullopt;
    case LifeScale::RawLeft:
        return raw >= 1 && raw <= 100 ? used(raw) : byCurrent;
    case LifeScale::RawUsed:
        return raw <= mostUsed ? std::optional(raw) : std::nullopt;
    case LifeScale::WordsUsed:
        return format == RawFormat::Raw16 || format == RawFormat::Hex48 ? lifeInWords(lastRawValue_) : std::nullopt;
    }
    return std::nullopt;
}

// Readings

std::uint64_t SMARTStatCollectorAttribute::rawvalue(const SMARTDataEntry& entry) const
{
    return rawNumber(effectiveFormat(), description_.byteOrder, entry);
}

void SMARTStatCollectorAttribute::updateWithAttribute(const SMARTDataEntry& entry, double sampleID, double time)
{
    lastRawValue_ = rawvalue(entry);
    const SMARTRawValue read = readRawValue(effectiveFormat(), lastRawValue_);
    value_ = read.shown;
    currentValue_ = {.flag = entry.flags,
        .current = static_cast<double>(entry.current),
        .worst = static_cast<double>(entry.worst),
        .threshold = threshold_,
        .rawvalue = entry.raw,
        .formatted = read.figure,
        .time = time,
        .sampleID = sampleID,
        .empty = 0};
    if (const auto amount = bytes()) {
        value_ = fmt::format("{:.4g} GB", *amount / 1e9);
    }
}

void SMARTStatCollectorAttribute::addSample(const Dictionary& sample, StorageIndex)
{
    const auto take = [&sample](const char* key, double& into) {
        if (const auto figure = number(sample, key)) {
            into = *figure;
        }
    };
    take("f", currentValue_.formatted);
    take("c", currentValue_.current);
    take("w", currentValue_.worst);
    take("t", currentValue_.threshold);
}

} // namespace meridal
