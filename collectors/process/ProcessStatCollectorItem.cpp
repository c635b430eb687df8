// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessStatCollectorItem.h"

#include "base/Rate.h"
#include "collectors/process/ProcessNames.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double scoreThatCounts = 1.0;
/// s over which scores are averaged, and how many passes of them at most.
constexpr double averagedSeconds = 31;
constexpr std::uint32_t averagedPasses = 30;

inline void stamp(double& time, const std::optional<double>& figure, double wallTime)
{
    if (figure > 0) {
        time = wallTime;
    }
}

/// Between two readings of a process.
struct Interval {
    std::uint64_t identity = 0;
    bool hasBegin = false; ///< a first reading has none
    double begin = 0;      ///< s of the clock that cannot step
    double end = 0;        ///< likewise

    /// How fast a counter moved; what it reads now takes the place of what it read before.
    std::optional<double> rateOf(std::uint64_t& counter, std::uint64_t now) const
    {
        const std::uint64_t before = std::exchange(counter, now);
        return hasBegin ? ratePerSecond({identity, before, begin}, {identity, now, end}) : std::nullopt;
    }
};

/// Absent when the pass has no reading of the group, or one that comes too soon. `readAt` is when the group was read last.
inline std::optional<Interval> beginReading(
    ProcessState& state, ProcessFields group, double& readAt, const ProcessRecord& record, const ProcessPass& pass)
{
    const bool hasBegin = has(state.counters.read, group);
    if (!has(record.present & pass.wanted, group)
        || (hasBegin && pass.monotonicTime - readAt < pass.shortestInterval)) {
        return std::nullopt;
    }
    state.counters.read |= group;
    return Interval{state.startIdentity, hasBegin, std::exchange(readAt, pass.monotonicTime), pass.monotonicTime};
}

} // namespace

std::string ProcessStatCollectorItem::key() const { return std::to_string(pid); }

void ProcessStatCollectorItem::startAfresh(std::uint64_t identity, std::uint32_t pass)
{
    static_cast<ProcessState&>(*this) = {};
    startIdentity = identity;
    firstPass = pass;
}

void ProcessStatCollectorItem::setName(std::string newName)
{
    const ProcessNameTraits traits = traitsOfName(newName);
    isSafariWebContent = traits.safariWebContent;
    standsAlone = traits.standsAlone;
    startsCommands = traits.startsCommands;
    name = std::move(newName);
}

const ProcessExtras& ProcessStatCollectorItem::knownExtras() const
{
    static const ProcessExtras none;
    return extras ? *extras : none;
}

ProcessExtras& ProcessStatCollectorItem::makeExtras()
{
    if (!extras) {
        extras = std::make_unique<ProcessExtras>();
    }
    return *extras;
}

void ProcessStatCollectorItem::measure(const ProcessRecord& record, const ProcessPass& pass)
{
    exists = true;
    state = record.state;
    nice = record.nice;
    threads = record.threads;
    user = record.user ? record.user : user;
    updateMemoryWithTaskInfo(record, pass);
    updateCPUWithRusage(record, pass);
    updateIOWithRusage(record, pass);
    updatePowerWithRusage(record, pass);
}

void ProcessStatCollectorItem::updateMemoryWithTaskInfo(const ProcessRecord& record, const ProcessPass& pass)
{
    if (!has(pass.wanted, ProcessFields::Memory)) {
        return;
    }
    if (!has(record.present, ProcessFields::Memory)) {
        figures.memory = figures.memoryFootprint = std::nullopt;
        return;
    }
    counters.read |= ProcessFields::Memory;
    counters.residentSize = record.residentSize;
    counters.swapped = record.compressed;
    const std::uint64_t kept =
        record.anonymous - std::min(record.anonymous, record.purgeableVolatile) + record.compressed;
    figures.memoryFootprint = static_cast<double>(record.physFootprint);
    figures.memory = static_cast<double>(pass.footprintFromKernel ? record.physFootprint : kept);
}

void ProcessStatCollectorItem::updateCPUWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    if (const auto interval = beginReading(*this, ProcessFields::Cpu, counters.lastUpdateCPU, record, pass)) {
        const auto units = interval->rateOf(counters.cpuTime, record.cpuTime);
        counters.cpuUser = record.cpuUser;
        counters.childCpuTime = record.childCpuTime;
        counters.childCpuUser = record.childCpuUser;
        figures.cpu = units && pass.timeBase > 0 ? std::optional(*units / pass.timeBase * 100) : std::nullopt;
    }
}

/// After passes that did not ask, the interval is the whole pause and the rate an honest mean over it.
void ProcessStatCollectorItem::updateIOWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    if (const auto interval = beginReading(*this, ProcessFields::Disk, counters.diskUpdateTime, record, pass)) {
        const auto read = interval->rateOf(counters.diskReadTotal, record.diskBytesRead);
        const auto written = interval->rateOf(counters.diskWriteTotal, record.diskBytesWritten);
        stamp(activity.diskReadTime, read, pass.wallTime);
        stamp(activity.diskWriteTime, written, pass.wallTime);
        figures.diskRead = read;
        figures.diskWrite = written;
    }
}

/// A pass that does not ask forgets the reading: the first one after a pause would otherwise put the wake-ups of the whole
/// pause into one interval. One that asked and got none does not, and the interval goes on.
void ProcessStatCollectorItem::updatePowerWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    if (!has(pass.wanted, ProcessFields::Wakeups)) {
        if (has(counters.read, ProcessFields::Wakeups)) {
            counters.read = without(counters.read, ProcessFields::Wakeups);
            figures.powerScore.reset();
            figures.wakeups.reset();
            energy = {};
        }
        return;
    }
    if (const auto interval = beginReading(*this, ProcessFields::Wakeups, counters.wakeupsTime, record, pass)) {
        const auto wakeups = interval->rateOf(counters.idleWakeups, record.idleWakeups);
        figures.wakeups = wakeups;
        const auto& cpu = figures.cpu;
        energy.power = wakeups && cpu ? std::optional(*wakeups * ProcessEnergy::scoreOfWakeup + *cpu * pass.scoreOfCpu)
                                      : std::nullopt;
        updatePowerUsageAverage(pass);
    }
}

/// The mean of the scores that count, of this pass and those of the last half minute. A score that is not known is none.
void ProcessStatCollectorItem::updatePowerUsageAverage(const ProcessPass& pass)
{
    auto& scores = energy.scores;
    if (scores.empty() && energy.power < scoreThatCounts) { // nearly all
        figures.powerScore = energy.power ? std::optional(0.0) : figures.powerScore;
        return;
    }
    std::erase_if(scores, [&](const ProcessEnergy::Score& score) {
        return pass.scoreNumber - score.number >= averagedPasses || score.time < pass.monotonicTime - averagedSeconds;
    });
    if (!energy.power) {
        return;
    }
    if (*energy.power >= scoreThatCounts) {
        scores.push_back({pass.monotonicTime, pass.scoreNumber, static_cast<float>(*energy.power)});
    }
    double sum = 0;
    for (const ProcessEnergy::Score& score : scores) {
        sum += static_cast<double>(score.power);
    }
    figures.powerScore = scores.empty() ? 0 : sum / static_cast<double>(scores.size());
}

void ProcessStatCollectorItem::clearBandwidth() { figures.networkDownload = figures.networkUpload = 0; }

void ProcessStatCollectorItem::addTraffic(double downloadBytes, double uploadBytes)
{
    figures.networkDownload = figures.networkDownload.value_or(0) + downloadBytes;
    figures.networkUpload = figures.networkUpload.value_or(0) + uploadBytes;
}

bool ProcessStatCollectorItem::processPacket(const PacketAttribution& packet)
{
    for (const ProcessConnection& connection : knownExtras().connections) {
        // Seen from the other end of a connection within this machine, what was received is what this process sent.
        if (connection.localPort == packet.foreignPort && connection.foreignPort == packet.localPort) {
            addTraffic(packet.uploadBytes, packet.downloadBytes);
            return true;
        }
        if (connection.foreignPort == packet.foreignPort && connection.localPort == packet.localPort) {
            addTraffic(packet.downloadBytes, packet.uploadBytes);
            return true;
        }
    }
    return false;
}

void ProcessStatCollectorItem::updatePCapBandwidth(double wallTime)
{
    stamp(activity.networkDownloadTime, figures.networkDownload, wallTime);
    stamp(activity.networkUploadTime, figures.networkUpload, wallTime);
}

} // namespace meridal
