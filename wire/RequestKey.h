// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace meridal {

/// One bit of a request mask; its decimal text is the "type" of the envelopes that answer it. The first five are the
/// lists of processes, which are also what a pass over the process table reads.
enum class RequestKey : std::uint32_t {
    Cpu = 1,
    Memory = 2,
    Disk = 4,
    Network = 8,
    Energy = 16,
    SmartTemperatures = 32,
    SmartStatus = 64,
    InternalBattery = 128,
};

constexpr std::uint32_t mask(RequestKey key) { return static_cast<std::uint32_t>(key); }
constexpr bool holds(std::int64_t requestMask, RequestKey key) { return (requestMask & mask(key)) != 0; }

/// As a person writes it on a command line.
struct RequestKeyName {
    RequestKey key;
    std::string_view name;
};
inline constexpr std::array<RequestKeyName, 8> requestKeyNames = {{
    {RequestKey::Cpu, "cpu"},
    {RequestKey::Memory, "memory"},
    {RequestKey::Disk, "disk"},
    {RequestKey::Network, "network"},
    {RequestKey::Energy, "energy"},
    {RequestKey::SmartTemperatures, "smart-temperatures"},
    {RequestKey::SmartStatus, "smart-status"},
    {RequestKey::InternalBattery, "battery"},
}};

} // namespace meridal
