// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/MachineFigures.h"

#include "base/Rate.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

using Count = std::optional<std::uint64_t>;

/// How far a counter of the machine moved; absent where it is absent or was started anew.
Count moved(const Count& before, const Count& now)
{
    return before && now ? countBetween({.count = *before}, {.count = *now}) : std::nullopt;
}

std::optional<double> perSecond(const Count& before, const Count& now, double seconds)
{
    return before && now ? ratePerSecond({.count = *before}, {.count = *now, .time = seconds}) : std::nullopt;
}

/// % of a time; counters that are kept in ticks may run ahead of it by one.
std::optional<double> share(const Count& before, const Count& now, double seconds)
{
    constexpr double nsPerPercentSecond = 1e7;
    const auto rate = perSecond(before, now, seconds);
    return rate ? std::optional(std::min(*rate / nsPerPercentSecond, 100.0)) : std::nullopt;
}

/// The mean of a sum over requests, ms each.
std::optional<double> meanMs(const Count& ns, const Count& requests)
{
    constexpr double nsPerMs = 1e6;
    if (!ns || !requests || *requests == 0) {
        return std::nullopt;
    }
    return static_cast<double>(*ns) / nsPerMs / static_cast<double>(*requests);
}

} // namespace

std::optional<ProcessorShares> processorShares(const ProcessorTimes& before, const ProcessorTimes& now)
{
    const Count user = moved(before.userNs, now.userNs);
    const Count nice = moved(before.niceNs, now.niceNs);
    const Count system = moved(before.systemNs, now.systemNs);
    const Count interrupt = moved(before.interruptNs, now.interruptNs);
    const Count steal = moved(before.stealNs, now.stealNs);
    // Both may go back a little on Linux, whose tickless processors estimate them.
    const auto estimate = [](const Count& earlier, const Count& later) {
        return earlier && later ? Count(*later - std::min(*earlier, *later)) : std::nullopt;
    };
    const Count idle = estimate(before.idleNs, now.idleNs);
    const Count ioWait = estimate(before.ioWaitNs, now.ioWaitNs);
    if (!user || !nice || !system) {
        return std::nullopt;
    }
    const std::uint64_t all =
        *user + *nice + *system + *idle + ioWait.value_or(0) + interrupt.value_or(0) + steal.value_or(0);
    if (all == 0) {
        return std::nullopt;
    }
    const auto percent = [&](std::uint64_t ns) { return static_cast<double>(ns) * 100 / static_cast<double>(all); };
    const auto orAbsent = [&](const Count& ns) { return ns ? std::optional(percent(*ns)) : std::nullopt; };
    return ProcessorShares{.user = percent(*user),
        .nice = percent(*nice),
        .system = percent(*system),
        .idle = percent(*idle),
        .ioWait = orAbsent(ioWait),
        .interrupt = orAbsent(interrupt),
        .steal = orAbsent(steal)};
}

std::map<int, double> busyByProcessor(
    const std::vector<ProcessorRecord>& before, const std::vector<ProcessorRecord>& now)
{
    std::map<int, double> busy;
    auto earlier = before.begin();
    for (const ProcessorRecord& processor : now) {
        earlier = std::find_if(
            earlier, before.end(), [&](const ProcessorRecord& each) { return each.number >= processor.number; });
        if (earlier == before.end()) {
            break;
        }
        const auto shares =
            earlier->number == processor.number ? processorShares(earlier->times, processor.times) : std::nullopt;
        if (shares) {
            busy[processor.number] = shares->busy();
        }
    }
    return busy;
}

ProcessorRates processorRates(const Timed<ProcessorReading>& before, const Timed<ProcessorReading>& now)
{
    const double seconds = now.time - before.time;
    return {.contextSwitches = perSecond(before.reading.contextSwitches, now.reading.contextSwitches, seconds),
        .interrupts = perSecond(before.reading.interrupts, now.reading.interrupts, seconds),
        .forks = perSecond(before.reading.forks, now.reading.forks, seconds)};
}

SwapRates swapRates(const Timed<MemoryReading>& before, const Timed<MemoryReading>& now)
{
    const double seconds = now.time - before.time;
    return {.inBytes = perSecond(before.reading.swappedIn, now.reading.swappedIn, seconds),
        .outBytes = perSecond(before.reading.swappedOut, now.reading.swappedOut, seconds)};
}

StallShares stallShares(const std::optional<Stall>& before, const std::optional<Stall>& now, double seconds)
{
    if (!before || !now) {
        return {};
    }
    return {.some = share(before->someNs, now->someNs, seconds), .full = share(before->fullNs, now->fullNs, seconds)};
}

BlockDeviceRates blockDeviceRates(const BlockDeviceRecord& before, const BlockDeviceRecord& now, double seconds)
{
    if (before.identity != now.identity) {
        return {};
    }
    constexpr double nsPerSecond = 1e9;
    const Count waited = moved(before.readNs + before.writeNs, now.readNs + now.writeNs);
    return {.reads = perSecond(before.reads, now.reads, seconds),
        .readBytes = perSecond(before.readBytes, now.readBytes, seconds),
        .writes = perSecond(before.writes, now.writes, seconds),
        .writtenBytes = perSecond(before.writtenBytes, now.writtenBytes, seconds),
        .readMs = meanMs(moved(before.readNs, now.readNs), moved(before.reads, now.reads)),
        .writeMs = meanMs(moved(before.writeNs, now.writeNs), moved(before.writes, now.writes)),
        .busy = share(before.busyNs, now.busyNs, seconds),
        .queue =
            waited && seconds > 0 ? std::optional(static_cast<double>(*waited) / nsPerSecond / seconds) : std::nullopt};
}

InterfaceRates interfaceRates(const InterfaceRecord& before, const InterfaceRecord& now, double seconds)
{
    if (before.index != now.index || !before.hasCounters || !now.hasCounters) {
        return {};
    }
    // All began anew when one did: another device may be behind the name.
    const bool restarted = now.bytesReceived < before.bytesReceived || now.bytesSent < before.bytesSent
        || now.packetsReceived < before.packetsReceived || now.packetsSent < before.packetsSent;
    if (restarted) {
        return {};
    }
    return {.receivedBytes = perSecond(before.bytesReceived, now.bytesReceived, seconds),
        .sentBytes = perSecond(before.bytesSent, now.bytesSent, seconds),
        .receivedPackets = perSecond(before.packetsReceived, now.packetsReceived, seconds),
        .sentPackets = perSecond(before.packetsSent, now.packetsSent, seconds),
        .errors = perSecond(before.errorsReceived + before.errorsSent, now.errorsReceived + now.errorsSent, seconds),
        .dropped = perSecond(before.dropsReceived + before.dropsSent, now.dropsReceived + now.dropsSent, seconds)};
}

std::optional<double> awakeShare(const Timed<std::uint64_t>& asleepBefore, const Timed<std::uint64_t>& asleepNow)
{
    const auto asleep = share(asleepBefore.reading, asleepNow.reading, asleepNow.time - asleepBefore.time);
    return asleep ? std::optional(100 - *asleep) : std::nullopt;
}

} // namespace meridal
