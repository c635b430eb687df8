#pragma once

#include "platform/host/SelfUsage.h"

namespace meridal {

/// proc_pid_rusage and the descriptor list of this process.
class MacSelfUsage final : public SelfUsage {
public:
    /// The time base is in units of CPU time a second, 0 when unknown.
    explicit MacSelfUsage(double timeBase) : timeBase_(timeBase) { }
    SelfUsageReading read() override;
    SelfCost readCost() override;

private:
    const double timeBase_;
};

} // namespace meridal
