// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/PacketAttribution.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace meridal {

/// Bytes in both directions.
struct TrafficShare {
    double download = 0;
    double upload = 0;
    /// As interfaces count them, with link headers and of both directions together.
    double linkBytes = 0;

    TrafficShare& operator+=(const TrafficShare& other)
    {
        download += other.download;
        upload += other.upload;
        linkBytes += other.linkBytes;
        return *this;
    }
    TrafficShare& operator-=(const TrafficShare& other)
    {
        download -= other.download;
        upload -= other.upload;
        linkBytes -= other.linkBytes;
        return *this;
    }
};

/// Where the bytes went, over some time. The three add up to what was captured, or crossed the interfaces.
struct TrafficAccount {
    TrafficShare processes;
    TrafficShare
        kernel; ///< protocols without ports (ICMP, ARP, tunnels), sockets of the kernel, what is forwarded uncaptured
    TrafficShare unattributed; ///< no process was found, or it had ended
    std::uint64_t frames = 0;  ///< or packets of sockets

    TrafficAccount& operator+=(const TrafficAccount& other)
    {
        processes += other.processes;
        kernel += other.kernel;
        unattributed += other.unattributed;
        frames += other.frames;
        return *this;
    }
};

/// Traffic of one process, or of one pair of ports, since the last fold.
struct PacketRecord : PacketAttribution {
    double linkBytes = 0;
};

/// Records in a flat array that grows in steps and is reused after each fold. Records of one process and pair of ports are
/// one, so that what waits for a late fold is bounded by the number of those and not by the traffic.
class PacketBuffer {
public:
    static constexpr std::size_t step = 1000;
    /// More cannot be told apart; what comes on top is for the caller to count elsewhere.
    static constexpr std::size_t mostRecords = 64 * step;

    PacketBuffer() { records_.reserve(step); }

    /// False when there is no room for another record.
    bool add(const PacketRecord& record);
    std::span<const PacketRecord> records() const { return records_; }
    std::size_t capacity() const { return records_.capacity(); }
    void clear();

private:
    std::vector<PacketRecord> records_;
    std::unordered_map<std::uint64_t, std::uint32_t> places_; ///< by pid and ports
};

/// What one capture saw between two folds.
struct TrafficBatch {
    PacketBuffer packets;
    TrafficShare kernel;       ///< no process's: protocols without ports, sockets of the kernel
    TrafficShare unattributed; ///< somebody's, and nobody was found
    TrafficShare processes;    ///< the sum over `packets`
    std::uint64_t frames = 0;

    void add(const PacketRecord& record);
    void add(const TrafficBatch& other);
    void clear();
};

} // namespace meridal
