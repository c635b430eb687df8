// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SMARTDevice.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// What IDENTIFY DEVICE says. Text is trimmed and readable; absent where the disk has nothing but blanks.
struct ATAIdentity {
    std::optional<std::string> model;
    std::optional<std::string> serial;
    std::optional<std::string> firmware;
    bool smartSupported = false;
    bool smartEnabled = false;      ///< true also for one that does not say
    std::optional<bool> spins;      ///< absent when the disk does not say
    bool isModern = false;          ///< of ATA/ATAPI Command Set 2 or later (some 2011)
    std::uint32_t sectorSize = 512; ///< bytes, logical
};

/// Absent for a page that cannot be genuine: a checksum that does not hold, or nothing but zeros or ones.
std::optional<ATAIdentity> parseATAIdentity(const SMARTPage& page);

/// Bytes of a page add up to 0 (mod 256).
bool checksumHolds(const SMARTPage& page);
/// Nothing but zeros, or nothing but ones.
bool isBlank(const SMARTPage& page);

/// Text of a fixed field: ends at a NUL, without blanks around it. Absent where nothing is left.
std::optional<std::string> fieldText(std::string_view raw);

} // namespace meridal
