// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"

namespace meridal {

/// How long the machine has been up. It has no sample series: what it knows is when the boot was.
class UptimeStatCollector : public StatCollector {
public:
    explicit UptimeStatCollector(Context& context);

    double uptime() const { return uptime_; } ///< s since the boot, sleep included; -1 until known
    void setUptime(double uptime) { uptime_ = uptime; }
    /// s since 1970; -1 until known, 0 when the system does not tell.
    double boottime() const { return boottime_; }
    void setBoottime(double boottime) { boottime_ = boottime; }

private:
    double uptime_ = -1;
    double boottime_ = -1;
};

} // namespace meridal
