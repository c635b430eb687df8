// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/NetlinkSocket.h"
#include "platform/linux/network/LinkMessages.h"

#include <cstdint>
#include <map>
#include <vector>

namespace meridal {

/// What crossed the interfaces of this network namespace, all together. An interface whose frames are those of others as well
/// (VLAN, bond, bridge) is left out, so that a packet of a local process counts once; forwarded ones count on their way in and
/// on their way out. Not for two threads at once.
class InterfaceTotals {
public:
    struct Bytes {
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
    };

    /// Counts from here on.
    InterfaceTotals();
    /// Since the last call.
    Bytes read();
    /// Indexes of the interfaces whose counters hold no link headers, ascending, as of the last call: loopback, and those of
    /// bare IP packets (tunnels, PPP, modems).
    const std::vector<std::int32_t>& bare() const { return bare_; }

    /// Those of them whose counters make up the sum.
    static std::vector<rtnl::Link> counted(const std::vector<rtnl::Link>& links);

private:
    NetlinkSocket socket_;
    std::map<std::int32_t, Bytes> before_; ///< by the kernel's number of the interface
    std::vector<std::int32_t> bare_;
    std::int32_t newest_ = 0; ///< the highest number so far
    bool isPrimed_ = false;   ///< there was a reading to count from
};

} // namespace meridal
