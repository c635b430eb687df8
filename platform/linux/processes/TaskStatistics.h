// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/NetlinkSocket.h"
#include "platform/linux/kernel/ProcParsers.h"

#include <cstdint>
#include <linux/netlink.h>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace meridal {

/// How long and how often processes ran, all their threads that live summed up: the kernel's taskstats, of many processes
/// in one call. That is some two fifths of what one file of each in /proc costs. It takes CAP_NET_ADMIN outside of all
/// containers, and a kernel with CONFIG_TASK_DELAY_ACCT, as Debian's; whether delays are accounted at all does not matter.
class TaskStatistics {
public:
    /// Null where the kernel does not answer.
    static std::unique_ptr<TaskStatistics> open();

    /// In the order of the pids; zeros of a process that is gone. False when an answer went missing.
    bool read(std::span<const std::int32_t> pids, std::vector<proc::Schedstat>& sums);

private:
    TaskStatistics() = default;
    bool findFamily();
    bool readSome(std::span<const std::int32_t> pids, std::span<proc::Schedstat> sums);

    NetlinkSocket socket_{NETLINK_GENERIC};
    std::uint16_t family_ = 0;
    std::vector<std::uint32_t> requests_; ///< memory for them
};

/// What an answer says of a process; absent when it is another message, or too short.
std::optional<proc::Schedstat> parseTaskStatistics(const nlmsghdr& message);

} // namespace meridal
