// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/TrafficCounters.h"
#include "platform/linux/bpf/traffic_record.h"
#include "platform/linux/traffic/TrafficLedger.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

namespace meridal {

/// The kernel's sums of traffic by process, read in a few calls however many there are.
class BpfTrafficMap {
public:
    /// Descriptors of the maps of sums and of people, which outlive it.
    BpfTrafficMap(int sums, int people);

    /// Tells what moved since the last call and what waits now, and makes room in the kernel.
    void read(TrafficReading& into);
    std::size_t entries() const { return ledger_.entries(); }

    static constexpr std::size_t room = 16'384; ///< as in platform/linux/bpf/traffic_count.h

private:
    BpfTraffic sumOf(std::size_t place) const;
    void note(std::uint64_t key, const BpfTraffic& sums, TrafficReading& into);
    std::optional<BpfTrafficOwner> takeOwner(std::uint64_t key);
    void drop(std::uint64_t key, TrafficReading& into);

    int map_;
    int people_;
    std::size_t processors_;
    std::vector<std::uint64_t> keys_;
    std::unique_ptr<BpfTraffic[]> values_; ///< one per key and processor; not zeroed, as hardly any is ever used
    TrafficLedger ledger_{room};
    std::unordered_set<std::uint64_t> unowned_; ///< seen once without their owner
};

} // namespace meridal
