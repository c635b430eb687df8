#pragma once

#include <cstdint>

namespace meridal {

/// One bit of a request mask; its decimal text is the "type" of the envelopes that answer it.
enum class RequestKey : std::int64_t {
    Cpu = 1,
    Memory = 2,
    Disk = 4,
    Network = 8,
    Energy = 16,
    SmartTemperatures = 32,
    SmartStatus = 64,
    InternalBattery = 128,
};

constexpr std::int64_t mask(RequestKey key) { return static_cast<std::int64_t>(key); }
constexpr bool holds(std::int64_t requestMask, RequestKey key) { return (requestMask & mask(key)) != 0; }

} // namespace meridal
