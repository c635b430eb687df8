// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace meridal {

/// Traffic that somebody saw and wants to have counted for a process: named by its pid where that is known, else by
/// ports.
struct PacketAttribution {
    std::int32_t pid = 0;
    std::uint16_t localPort = 0;
    std::uint16_t foreignPort = 0;
    double downloadBytes = 0;
    double uploadBytes = 0;
};

/// One end-to-end connection of a process.
struct ProcessConnection {
    std::uint16_t localPort = 0;
    std::uint16_t foreignPort = 0;
    bool operator==(const ProcessConnection&) const = default;
};

} // namespace meridal
