#pragma once

#include "platform/host/SMARTDevice.h"

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
    bool smartEnabled = false;
    std::optional<bool> spins; ///< absent when the disk does not say
};

/// Absent for a page that cannot be genuine: a checksum that does not hold, or nothing but zeros.
std::optional<ATAIdentity> parseATAIdentity(const SMARTPage& page);

/// Bytes of a page add up to 0 (mod 256).
bool checksumHolds(const SMARTPage& page);
bool isBlank(const SMARTPage& page);

/// Text of a fixed field: ends at a NUL, without blanks around it. Absent where nothing is left.
std::optional<std::string> fieldText(std::string_view raw);

} // namespace meridal
