// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"

#include <algorithm>

using namespace meridal::test;

extern "C" {

/// How many there are; with room, how many it has taken.
int getfsstat(struct statfs* all, int size, int mode)
{
    const Kernel& kernel = Kernel::current();
    if (mode != MNT_NOWAIT) {
        Ledger::misuse("servers are waited for");
    }
    if (const auto fault = Ledger::current().call(all ? "getfsstat" : "getfsstat, size")) {
        return refuseWith(*fault);
    }
    const std::size_t room = all ? static_cast<std::size_t>(size) / sizeof(struct statfs) : kernel.mounts.size();
    const std::size_t count = std::min(room, kernel.mounts.size());
    std::copy_n(kernel.mounts.begin(), all ? count : 0, all);
    kernel.answered(all ? "getfsstat" : "getfsstat, size");
    return static_cast<int>(count);
}

int ntp_gettime(ntptimeval* clock)
{
    *clock = Kernel::current().clock;
    return Kernel::current().clock.time_state;
}
}
