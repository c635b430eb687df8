#pragma once

#include "platform/linux/NetlinkSocket.h"

#include <cstdint>
#include <map>

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

private:
    NetlinkSocket socket_;
    std::map<std::int32_t, Bytes> before_; ///< by the kernel's number of the interface
    std::int32_t newest_ = 0;              ///< the highest number so far
    bool isPrimed_ = false;                ///< there was a reading to count from
};

} // namespace meridal
