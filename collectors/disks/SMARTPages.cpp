// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTPages.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

// Places are bytes from the start of the page, as the ATA command set and the NVMe base specification number them.

constexpr std::size_t entryCount = 30;
constexpr std::size_t entrySize = 12;
constexpr std::size_t firstEntry = 2;

/// Bytes of one of its data units: a thousand sectors of 512.
constexpr double dataUnit = 512'000;
constexpr double minute = 60;      ///< s
constexpr int freezingPoint = 273; ///< K, as the disks themselves round it

std::uint16_t little16(const SMARTPage& page, std::size_t offset)
{
    return static_cast<std::uint16_t>(page[offset] | page[offset + 1] << 8);
}

std::uint32_t little32(const SMARTPage& page, std::size_t offset)
{
    return little16(page, offset) | static_cast<std::uint32_t>(little16(page, offset + 2)) << 16;
}

/// 16 bytes, least significant first.
double little128(const SMARTPage& page, std::size_t offset)
{
    double sum = 0;
    for (std::size_t byte = 16; byte-- > 0;) {
        sum = sum * 256 + page[offset + byte];
    }
    return sum;
}

std::string bytesAt(const SMARTPage& page, std::size_t offset, std::size_t size)
{
    return {
        page.begin() + static_cast<std::ptrdiff_t>(offset), page.begin() + static_cast<std::ptrdiff_t>(offset + size)};
}

std::optional<int> celsius(std::uint16_t kelvin)
{
    constexpr int coldest = 200;
    constexpr int hottest = 450;
    return kelvin < coldest || kelvin > hottest ? std::nullopt
                                                : std::optional(static_cast<int>(kelvin) - freezingPoint);
}

} // namespace

std::optional<SMARTDataPage> parseSMARTData(const SMARTPage& page)
{
    if (!checksumHolds(page) || isBlank(page)) {
        return std::nullopt;
    }
    SMARTDataPage data{.revision = little16(page, 0), .entries = {}};
    std::array<bool, 256> seen = {};
    for (std::size_t place = 0; place < entryCount; ++place) {
        const std::size_t offset = firstEntry + place * entrySize;
        SMARTDataEntry entry{.attributeID = page[offset],
            .flags = little16(page, offset + 1),
            .current = page[offset + 3],
            .worst = page[offset + 4]};
        entry.reserved = page[offset + 11];
        std::copy_n(page.begin() + static_cast<std::ptrdiff_t>(offset + 5), entry.raw.size(), entry.raw.begin());
        if (entry.attributeID != 0 && !std::exchange(seen[entry.attributeID], true)) {
            data.entries.push_back(entry);
        }
    }
    return data;
}

std::optional<SMARTThresholdPage> parseSMARTThresholds(const SMARTPage& page)
{
    if (!checksumHolds(page) || isBlank(page)) {
        return std::nullopt;
    }
    SMARTThresholdPage found;
    for (std::size_t place = 0; place < entryCount; ++place) {
        const std::size_t offset = firstEntry + place * entrySize;
        auto& threshold = found.thresholds[page[offset]];
        if (page[offset] != 0 && !threshold) {
            threshold = page[offset + 1];
        }
    }
    return found;
}

std::optional<NVMeHealth> parseNVMeHealth(const SMARTPage& page)
{
    if (isBlank(page)) {
        return std::nullopt;
    }
    NVMeHealth health;
    health.criticalWarning = page[0];
    health.temperature = celsius(little16(page, 1));
    health.availableSpare = page[3];
    health.spareThreshold = page[4];
    health.percentageUsed = page[5];
    health.dataRead = little128(page, 32) * dataUnit;
    health.dataWritten = little128(page, 48) * dataUnit;
    health.readCommands = little128(page, 64);
    health.writeCommands = little128(page, 80);
    health.busyTime = little128(page, 96) * minute;
    health.powerCycles = little128(page, 112);
    health.powerOnHours = little128(page, 128);
    health.unsafeShutdowns = little128(page, 144);
    health.mediaErrors = little128(page, 160);
    health.errorLogEntries = little128(page, 176);
    health.warmTime = little32(page, 192) * minute;
    health.hotTime = little32(page, 196) * minute;
    for (std::size_t sensor = 0; sensor < health.sensors.size(); ++sensor) {
        health.sensors[sensor] = celsius(little16(page, 200 + 2 * sensor));
    }
    return health;
}

std::optional<NVMeIdentity> parseNVMeIdentity(const SMARTPage& page)
{
    if (isBlank(page)) {
        return std::nullopt;
    }
    return NVMeIdentity{.model = fieldText(bytesAt(page, 24, 40)),
        .serial = fieldText(bytesAt(page, 4, 20)),
        .firmware = fieldText(bytesAt(page, 64, 8))};
}

} // namespace meridal
