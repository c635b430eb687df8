// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PacketTap.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

struct mnl_socket;
struct nlmsghdr;

namespace meridal {

/// One socket as the kernel's socket tables have it.
struct DiagSocket {
    SocketFlow flow;          ///< foreign address and port are 0 while it is not connected
    std::uint64_t inode = 0;  ///< what /proc/PID/fd calls it; 0 = no process has it
    std::uint64_t cookie = 0; ///< its number for ever
    bool isListening = false;
    bool isClosing = false;                     ///< one end at least has closed it
    std::optional<std::uint64_t> bytesReceived; ///< of payload, since it was made; both of TCP, when asked for
    std::optional<std::uint64_t> bytesSent;
};

/// The kernel's socket tables over netlink (sock_diag, linux/inet_diag.h). Not for two threads at once.
class SocketDiag {
public:
    using Visit = std::function<void(const DiagSocket& socket)>;
    enum class Counts : std::uint8_t { No, Yes };

    SocketDiag();
    ~SocketDiag();
    SocketDiag(const SocketDiag&) = delete;
    SocketDiag& operator=(const SocketDiag&) = delete;

    /// The socket that a packet of this flow is for, as the kernel itself would find it: connected, bound or listening. TCP
    /// and UDP only.
    std::optional<DiagSocket> find(const SocketFlow& flow);

    /// All sockets of a protocol and family that carry traffic: not those that listen, nor those that are only waited
    /// for (TIME-WAIT). False when the kernel did not give all of them even at a second attempt; some may then have come
    /// twice.
    bool dump(std::uint8_t protocol, bool isIPv6, Counts counts, const Visit& visit);

private:
    struct Closer {
        void operator()(mnl_socket* socket) const;
    };
    enum class Outcome : std::uint8_t { Done, Again, Failed };

    bool open();
    Outcome attempt(std::uint8_t protocol, bool isIPv6, Counts counts, const Visit& visit);
    /// One read of answers to the request of this number.
    Outcome readDump(const Visit& visit, std::uint8_t protocol, bool& isInterrupted, bool& isEnd);

    std::unique_ptr<mnl_socket, Closer> socket_;
    std::uint32_t sequence_ = 0;
    std::unique_ptr<std::array<char, 65'536>> buffer_;
};

/// TCP sockets that end, with what they carried to the last byte (the destroy groups of sock_diag). The kernel keeps them
/// until they are read, as many as the buffer holds. Not for two threads at once.
class SocketEnds {
public:
    /// Subscribes; without the right or the means nothing is ever read.
    SocketEnds();
    ~SocketEnds();
    SocketEnds(const SocketEnds&) = delete;
    SocketEnds& operator=(const SocketEnds&) = delete;

    /// Takes what has ended since the last call. Does not wait.
    void read(const SocketDiag::Visit& visit);

private:
    struct Closer {
        void operator()(mnl_socket* socket) const;
    };

    std::unique_ptr<mnl_socket, Closer> socket_;
};

} // namespace meridal
