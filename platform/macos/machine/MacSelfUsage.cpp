// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include "platform/macos/kernel/KernelLayouts.h"

#include <unistd.h>

#include <vector>

namespace meridal {

namespace {

/// The size query counts the table's empty slots too, so the list itself is fetched.
std::optional<std::uint64_t> countDescriptors()
{
    const int room = proc_pidinfo(getpid(), PROC_PIDLISTFDS, 0, nullptr, 0);
    if (room <= 0) {
        return std::nullopt;
    }
    std::vector<proc_fdinfo> list(static_cast<std::size_t>(room) / sizeof(proc_fdinfo) + 1);
    const auto size = static_cast<int>(list.size() * sizeof(proc_fdinfo));
    const int used = proc_pidinfo(getpid(), PROC_PIDLISTFDS, 0, list.data(), size);
    if (used <= 0) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(used) / sizeof(proc_fdinfo);
}

SelfCost costOf(const rusage_info_v2& usage, double timeBase)
{
    SelfCost cost;
    if (timeBase > 0) {
        cost.cpuSeconds = static_cast<double>(usage.ri_user_time + usage.ri_system_time) / timeBase;
    }
    cost.wakeups = usage.ri_pkg_idle_wkups;
    return cost;
}

class MacSelfUsage final : public SelfUsage {
public:
    /// The time base is in units of CPU time a second, 0 when unknown.
    explicit MacSelfUsage(double timeBase) : timeBase_(timeBase) { }
    SelfUsageReading read() override;
    SelfCost readCost() override;

private:
    const double timeBase_;
};

} // namespace

SelfCost MacSelfUsage::readCost()
{
    rusage_info_v2 usage{};
    if (proc_pid_rusage(getpid(), RUSAGE_INFO_V2, reinterpret_cast<rusage_info_t*>(&usage)) != 0) {
        return {};
    }
    return costOf(usage, timeBase_);
}

SelfUsageReading MacSelfUsage::read()
{
    SelfUsageReading reading;
    reading.openDescriptors = countDescriptors();
    rusage_info_v2 usage{}; // the oldest record that has all of it
    if (proc_pid_rusage(getpid(), RUSAGE_INFO_V2, reinterpret_cast<rusage_info_t*>(&usage)) != 0) {
        return reading;
    }
    static_cast<SelfCost&>(reading) = costOf(usage, timeBase_);
    reading.residentBytes = usage.ri_resident_size;
    reading.bytesWritten = usage.ri_diskio_byteswritten;
    return reading;
}

std::unique_ptr<SelfUsage> makeMacSelfUsage(double timeBase) { return std::make_unique<MacSelfUsage>(timeBase); }

} // namespace meridal
