// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineCounters.h"
#include "platform/host/NetworkInterfaces.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace meridal {

/// A reading, and when it was made: s of the clock that cannot step.
template <typename Reading>
struct Timed {
    Reading reading;
    double time = 0;
};

/// What all processors together did between two readings, % of their time; 100 is all of them. Absent on a first reading,
/// and where the counters have been started anew.
struct ProcessorShares {
    double user = 0;
    double nice = 0;
    double system = 0;
    double idle = 0;
    std::optional<double> ioWait = {};
    std::optional<double> interrupt = {};
    std::optional<double> steal = {};
    /// All but idle and waiting for disks, which is idle, too.
    double busy() const { return user + nice + system + interrupt.value_or(0) + steal.value_or(0); }
    bool operator==(const ProcessorShares&) const = default;
};
std::optional<ProcessorShares> processorShares(const ProcessorTimes& before, const ProcessorTimes& now);
/// How busy each is that both readings have, by number.
std::map<int, double> busyByProcessor(
    const std::vector<ProcessorRecord>& before, const std::vector<ProcessorRecord>& now);

/// Rates a second.
struct ProcessorRates {
    std::optional<double> contextSwitches = {};
    std::optional<double> interrupts = {};
    std::optional<double> forks = {};
};
ProcessorRates processorRates(const Timed<ProcessorReading>& before, const Timed<ProcessorReading>& now);

struct SwapRates {
    std::optional<double> inBytes = {}; ///< a second
    std::optional<double> outBytes = {};
};
SwapRates swapRates(const Timed<MemoryReading>& before, const Timed<MemoryReading>& now);

/// % of the time in which some task, or all that had work, waited.
struct StallShares {
    std::optional<double> some = {};
    std::optional<double> full = {};
};
StallShares stallShares(const std::optional<Stall>& before, const std::optional<Stall>& now, double seconds);

/// What a block device did between two readings. Absent where there is no honest figure.
struct BlockDeviceRates {
    std::optional<double> reads = {}; ///< a second
    std::optional<double> readBytes = {};
    std::optional<double> writes = {};
    std::optional<double> writtenBytes = {};
    std::optional<double> readMs = {}; ///< a request, from queue to end
    std::optional<double> writeMs = {};
    std::optional<double> busy = {};  ///< % of the time with a request under way
    std::optional<double> queue = {}; ///< requests under way, in the mean
};
BlockDeviceRates blockDeviceRates(const BlockDeviceRecord& before, const BlockDeviceRecord& now, double seconds);

/// What an interface did between two readings, a second. Absent where its counters began anew, or are another's.
struct InterfaceRates {
    std::optional<double> receivedBytes = {};
    std::optional<double> sentBytes = {};
    std::optional<double> receivedPackets = {};
    std::optional<double> sentPackets = {};
    std::optional<double> errors = {}; ///< both ways
    std::optional<double> dropped = {};
};
InterfaceRates interfaceRates(const InterfaceRecord& before, const InterfaceRecord& now, double seconds);

/// % of the time in which something did not sleep, by a counter of its sleep, ns.
std::optional<double> awakeShare(const Timed<std::uint64_t>& asleepBefore, const Timed<std::uint64_t>& asleepNow);

} // namespace meridal
