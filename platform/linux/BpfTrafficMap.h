#pragma once

#include "platform/host/TrafficCounters.h"
#include "platform/linux/TrafficLedger.h"
#include "platform/linux/bpf/traffic_record.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace meridal {

/// The kernel's sums of traffic by process, read in a few calls however many there are.
class BpfTrafficMap {
public:
    /// `map` is a descriptor that outlives it.
    explicit BpfTrafficMap(int map);

    /// Adds what moved since the last call to `into`, and makes room in the kernel.
    void read(std::vector<TrafficCount>& into);
    std::size_t entries() const { return ledger_.entries(); }

    static constexpr std::size_t room = 16'384; ///< as in platform/linux/bpf/traffic_count.h

private:
    BpfTraffic sumOf(std::size_t place) const;
    void drop(std::uint64_t key, std::vector<TrafficCount>& into);

    int map_;
    std::size_t processors_;
    std::vector<std::uint64_t> keys_;
    std::vector<BpfTraffic> values_; ///< one per key and processor
    TrafficLedger ledger_{room};
};

} // namespace meridal
