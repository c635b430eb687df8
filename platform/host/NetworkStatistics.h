// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace meridal {

/// One TCP or UDP socket whose payload the kernel counts.
struct CountedConnection {
    std::uint64_t id = 0;                           ///< the kernel's number of it, which no later one has
    std::optional<std::int32_t> pid = std::nullopt; ///< absent until its process is known
    std::uint8_t protocol = 0;                      ///< as in the IP header: 6 TCP, 17 UDP; 0 while it is not known
    std::uint16_t localPort = 0;                    ///< 0 likewise
    std::uint64_t bytesReceived = 0;                ///< of payload, since it came into being
    std::uint64_t bytesSent = 0;
    double countedAt = 0;  ///< s of the clock that cannot step; 0 = it has not been counted yet
    bool isNew = false;    ///< came into being while we counted, so that all its bytes did, too
    bool hasEnded = false; ///< its last word
};

/// The kernel's account of every connection. Main queue only.
/// macOS: the kernel control "com.apple.network.statistics". Linux: sock_diag, TCP only.
class NetworkStatistics {
public:
    /// Destroying it ends the counting.
    class Counting {
    public:
        virtual ~Counting() = default;
        /// All connections that are there, and once those that have ended. Valid until the next call.
        virtual std::span<const CountedConnection> read() = 0;
    };

    virtual ~NetworkStatistics() = default;
    /// What is there already is known as such when this returns or soon after.
    virtual Result<std::unique_ptr<Counting>> start() = 0;
    /// Whether the kernel tells by itself of every connection, whose it is, and what it carried to its end: good enough to
    /// count by for good.
    virtual bool knowsEveryConnection() const { return false; }
};

} // namespace meridal
