// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

/// What the kernel knows a process by.
struct ProcessIdentity {
    std::int32_t pid = 0;            ///< 0 = none
    std::uint64_t startIdentity = 0; ///< as in ProcessRecord: the pid may be another process's by now
};

/// Network bytes of one process since the last reading, with their IP headers unless the method says otherwise. The process may
/// have ended meanwhile.
struct TrafficCount {
    ProcessIdentity process;                  ///< of no pid: of processes that could not be told apart
    std::string name;                         ///< as ProcessRecord has it; empty = not known
    std::array<ProcessIdentity, 4> ancestors; ///< its parent first, as far as known. They may have ended as well
    /// Through a network namespace of its own (a container), which the interfaces of this one do not carry, or carry as
    /// somebody else's.
    bool isElsewhere = false;
    std::uint64_t bytesReceived = 0;
    std::uint64_t bytesSent = 0;
    std::uint64_t packetsReceived = 0; ///< as sockets get and give them: a train of segments may be one
    std::uint64_t packetsSent = 0;
    std::uint64_t barePackets = 0; ///< of both: by interfaces whose packets have no link header, such as loopback
};

/// All that moved since the last reading.
struct TrafficReading {
    std::vector<TrafficCount> counts; ///< a process may be there more than once
    /// What waits at this moment for a process to take it, as in a connection that is not accepted yet: crossed the
    /// interfaces, and will be in a later count. Names nobody, holds nothing of other networks.
    TrafficCount waiting;
    /// Across the interfaces of this network, with link headers; loopback counts both ways, as it does itself. What is
    /// carried by another interface (VLANs, bonds, bridges) counts there.
    std::uint64_t interfaceBytesReceived = 0;
    std::uint64_t interfaceBytesSent = 0;
};

/// Counts network bytes per process inside the kernel, without a look at any packet from here. Main queue only.
/// Linux: BPF programs. macOS has no such thing.
class TrafficCounters {
public:
    /// Destroying it ends the counting and leaves nothing in the kernel.
    class Counting {
    public:
        virtual ~Counting() = default;
        /// Valid until the next call. Says nothing of what moved before the start.
        virtual const TrafficReading& read() = 0;
        /// For `status`, such as "packets" or "calls".
        virtual std::string method() const = 0;
    };

    virtual ~TrafficCounters() = default;
    /// NotFound where the system has no such thing; any other failure is worth telling.
    virtual Result<std::unique_ptr<Counting>> start() = 0;
};

} // namespace meridal
