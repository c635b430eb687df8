#pragma once

#include "platform/host/TrafficCounters.h"

namespace meridal {

/// macOS lets nobody run programs in its kernel. The tap names the process of each packet instead.
class NoTrafficCounters final : public TrafficCounters {
public:
    Result<std::unique_ptr<Counting>> start() override
    {
        return unexpected(ErrorCode::NotFound, "macOS has no counters of traffic by process");
    }
};

} // namespace meridal
