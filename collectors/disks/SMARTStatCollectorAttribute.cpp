#include "collectors/disks/SMARTStatCollectorAttribute.h"

#include "collectors/disks/SMARTRawValue.h"

namespace meridal {

void SMARTStatCollectorAttribute::describe(const SMARTAttributeInfo* info)
{
    info_ = info;
    if (info) {
        name_ = std::string(info->name);
        format_ = static_cast<int>(info->format);
    }
}

AttributeStatus SMARTStatCollectorAttribute::status() const
{
    if (currentValue_.threshold > currentValue_.current) {
        return AttributeStatus::FailingNow;
    }
    return currentValue_.threshold > currentValue_.worst ? AttributeStatus::FailedInThePast : AttributeStatus::Fine;
}

std::uint64_t SMARTStatCollectorAttribute::rawvalue(const SMARTDataEntry& entry) const
{
    std::uint64_t raw = 0;
    for (std::size_t byte = entry.raw.size(); byte-- > 0;) {
        raw = raw << 8 | entry.raw[byte];
    }
    const auto format = static_cast<RawFormat>(effectiveFormat());
    if (format == RawFormat::Hex64 || format == RawFormat::Raw64) {
        return raw << 16 | static_cast<std::uint64_t>(entry.worst) << 8 | entry.current;
    }
    return raw;
}

void SMARTStatCollectorAttribute::updateWithAttribute(const SMARTDataEntry& entry, double sampleID, double time)
{
    lastRawValue_ = rawvalue(entry);
    const SMARTRawValue read = readRawValue(static_cast<RawFormat>(effectiveFormat()), entry.raw, lastRawValue_);
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
