// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PacketTap.h"

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

struct mnl_socket;
struct nlmsghdr;

namespace meridal {

/// Which interfaces stand on top of which (rtnetlink). A packet that comes in on a VLAN, a bond or a bridge crosses the
/// interface below as well, and a tap on all interfaces sees it on both. Not for two threads at once.
class InterfaceStack {
public:
    InterfaceStack();
    ~InterfaceStack();

    /// Whether a packet of this flow, seen on its interface, is on its way to or from another one on top of that: the
    /// interface has one on top, and the local address is not its own but another interface's.
    bool isCarried(const SocketFlow& flow);
    /// Whether it only passes through this machine, over a bridge or a route: the local address is no interface's.
    bool isForwarded(const SocketFlow& flow);
    /// Reads anew at the next question, if the last time was `age` seconds ago or more.
    void expire(double age);

private:
    struct Closer {
        void operator()(mnl_socket* socket) const;
    };
    using Address = std::array<std::uint8_t, 16>;
    struct Link {
        bool carries = false;
        std::vector<Address> addresses; ///< 4 bytes of IPv4
    };

    bool isOwn(const Address& address) const;
    void read();
    bool dump(std::uint16_t type, unsigned char family, void (InterfaceStack::*visit)(const nlmsghdr&));
    void readLink(const nlmsghdr& header);
    void readAddress(const nlmsghdr& header);

    std::unique_ptr<mnl_socket, Closer> socket_;
    std::unordered_map<std::uint32_t, Link> links_;
    std::vector<Address> own_; ///< of all interfaces
    std::vector<char> buffer_;
    double readAt_ = 0; ///< s of CLOCK_MONOTONIC; 0 = not yet
    bool isFresh_ = false;
};

} // namespace meridal
