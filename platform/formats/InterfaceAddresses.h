// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkInterfaces.h"

#include <cstdint>
#include <optional>
#include <span>

namespace meridal {

/// What getifaddrs gives on a Mac, by its bytes: the first is their number, the second the family. Those that the kernel left
/// out count as 0.

/// A sockaddr_in or sockaddr_in6 and its netmask, of which there may be none; absent for other families.
std::optional<InterfaceAddress> interfaceAddressOf(
    std::span<const std::uint8_t> address, std::span<const std::uint8_t> netmask);

/// What a sockaddr_dl tells of an interface.
struct LinkAddress {
    std::int32_t index = 0;
    bool isLoopback = false;
    std::optional<HardwareAddress> hardware = {};
    bool operator==(const LinkAddress&) const = default;
};
LinkAddress linkAddressOf(std::span<const std::uint8_t> address);

} // namespace meridal
