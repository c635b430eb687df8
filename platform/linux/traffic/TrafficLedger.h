// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/TrafficCounters.h"
#include "platform/linux/bpf/traffic_record.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace meridal {

/// Turns the kernel's cumulative sums into what moved since the last reading, and tells which of its entries have stood still
/// for so long that they may go.
class TrafficLedger {
public:
    /// `room`: how many entries the kernel has at the most.
    explicit TrafficLedger(std::size_t room) : room_(room) { }

    void beginReading();
    bool knows(std::uint64_t key) const { return entries_.contains(key); }
    /// Says who is behind an entry that is not known yet.
    void introduce(std::uint64_t key, const BpfTrafficOwner& owner);
    /// Notes the sums of one entry, over all processors. What moved is added to `into`.
    void note(std::uint64_t key, const BpfTraffic& sums, std::vector<TrafficCount>& into);
    /// Entries to take out of the kernel: they stood still for a while; for one reading, when it is half full. Those without a
    /// process stay.
    const std::vector<std::uint64_t>& idle();
    /// The entry is no longer in the kernel; a new one of that key begins at 0.
    void forget(std::uint64_t key) { entries_.erase(key); }
    std::size_t entries() const { return entries_.size(); }

    /// Readings for which an entry stands still before it goes.
    static constexpr std::uint32_t patience = 16;

private:
    struct Entry {
        BpfTrafficOwner owner = {};
        BpfTraffic sums = {};
        std::uint32_t moved = 0; ///< number of the reading that saw it move
    };

    std::size_t room_;
    std::uint32_t reading_ = 0;
    std::unordered_map<std::uint64_t, Entry> entries_;
    std::vector<std::uint64_t> idle_; ///< kept for its memory
};

} // namespace meridal
