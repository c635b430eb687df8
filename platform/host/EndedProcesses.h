// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessUnit.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace meridal {

/// What processes have used over their whole lives that ended since the latest pass but one, or so. Of a process that a pass has
/// met, or may have met, these are its own final figures; all others that did the same work for the same one are told as one.
struct EndedRecord {
    std::int32_t known = 0; ///< pid of the nearest of it and its ancestors that a pass has met; 0 = none
    std::uint64_t knownStart = 0;
    bool isItself = false; ///< it is the known one
    /// Its own pid where it is so young that a pass may have met it, and may not: whether there are figures of it from before
    /// tells. 0 = no pass has met any of them, or it is the known one.
    std::int32_t own = 0;
    std::uint64_t ownStart = 0;
    bool isKernelThread = false; ///< they belong to the kernel
    bool isRest = false;         ///< of all that were too many to be told apart; nothing above or below holds
    std::uint64_t processes = 0;
    /// Its name, that of its parent and so on, up to right under the known one; empty where there are no more. Raw bytes.
    std::array<std::string_view, 4> names = {};
    std::optional<ProcessUnit> unit = {}; ///< that it was in, where that can still be told
    std::uint32_t user = 0;               ///< real user id

    std::uint64_t cpuTime = 0; ///< units of ProcessSource::timeBase()
    std::uint64_t cpuUser = 0; ///< of it, what was not spent in the kernel
    std::uint64_t diskBytesRead = 0;
    std::uint64_t diskBytesWritten = 0;
    std::uint64_t wakeups = 0; ///< as ProcessRecord::idleWakeups
};

} // namespace meridal
