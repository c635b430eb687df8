// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxSelfUsage.h"

#include "platform/linux/kernel/ProcParsers.h"

#include <sys/resource.h>

namespace meridal {

namespace {

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

SelfCost LinuxSelfUsage::readCost()
{
    SelfCost cost;
    rusage usage{};
    if (::getrusage(RUSAGE_SELF, &usage) == 0) {
        cost.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
        cost.wakeups = static_cast<std::uint64_t>(usage.ru_nvcsw);
    }
    return cost;
}

SelfUsageReading LinuxSelfUsage::read()
{
    SelfUsageReading reading{readCost(), {}, {}, {}, {}};
    if (const auto status = proc::parseStatus(root_.read("proc/self/status").value_or(""));
        status && status->hasMemory) {
        reading.residentBytes = status->residentBytes;
    }
    const std::string rollup = root_.read("proc/self/smaps_rollup").value_or("");
    if (const auto pages = leadingNumber(valueOfKey(rollup, "Pss", ':').value_or(""))) {
        reading.proportionalBytes = *pages * 1024;
    }
    if (const auto io = proc::parseIo(root_.read("proc/self/io").value_or(""))) {
        reading.bytesWritten = io->writeBytes;
    }
    if (const std::size_t open = root_.list("proc/self/fd").size(); open > 0) {
        reading.openDescriptors = open - 1; // the one that the listing itself used
    }
    return reading;
}

} // namespace meridal
