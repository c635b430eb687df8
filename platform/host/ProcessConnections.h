// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// One TCP or UDP socket that a process has.
struct ConnectionRecord {
    std::int32_t pid = 0;
    std::uint16_t localPort = 0;
    std::uint16_t foreignPort = 0;                             ///< 0 while not connected
    std::optional<std::uint64_t> bytesReceived = std::nullopt; ///< since it was made, where the kernel counts
    std::optional<std::uint64_t> bytesSent = std::nullopt;     ///< likewise
};

/// One TCP or UDP socket of a process that has another end.
struct ProcessSocket {
    std::uint8_t protocol = 0; ///< as in the IP header: 6 TCP, 17 UDP
    std::string host;          ///< the other end's address as text
    std::uint16_t port = 0;    ///< likewise
    std::uint16_t localPort = 0;
    std::optional<std::uint64_t> bytesReceived =
        std::nullopt;                                      ///< of payload since it was made, where the kernel counts
    std::optional<std::uint64_t> bytesSent = std::nullopt; ///< likewise
};

/// The connections of all processes, for what is told by ports alone. Main queue only.
/// macOS: proc_pidinfo and proc_pidfdinfo. Linux: sock_diag and /proc/PID/fd.
class ProcessConnections {
public:
    virtual ~ProcessConnections() = default;
    /// One pass over these processes, rows of one process in a row. Valid until the next call. Processes that may not be
    /// asked are left out.
    virtual std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t> pids) = 0;
    /// The connected sockets of one process, so many at most.
    virtual std::vector<ProcessSocket> socketsOf(std::int32_t, std::size_t) { return {}; }
};

} // namespace meridal
