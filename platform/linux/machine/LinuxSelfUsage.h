// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SelfUsage.h"
#include "platform/linux/kernel/RootFolder.h"

namespace meridal {

/// The daemon's own cost: getrusage for CPU and voluntary context switches of all threads, /proc/self for the rest.
class LinuxSelfUsage final : public SelfUsage {
public:
    explicit LinuxSelfUsage(const std::filesystem::path& root) : root_(root) { }

    SelfUsageReading read() override;
    SelfCost readCost() override;

private:
    RootFolder root_;
};

} // namespace meridal
