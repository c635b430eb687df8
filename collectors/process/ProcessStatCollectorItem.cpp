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

void stamp(double& time, const OptionalDouble& figure, double wallTime)
{
    if (*figure > 0) {
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
    OptionalDouble rateOf(std::uint64_t& counter, std::uint64_t now) const
    {
        const std::uint64_t before = std::exchange(counter, now);
        return hasBegin ? OptionalDouble(ratePerSecond({identity, before, begin}, {identity, now, end})) : std::nullopt;
    }
};

/// Absent when the pass has no reading of the group, or one that comes too soon. `readAt` is when the group was read last.
inline std::optional<Interval> beginReading(
    ProcessState& state, ProcessFields group, double& readAt, const ProcessRecord& record, const ProcessPass& pass)
{
    const bool hasBegin = has(state.read, group);
    if (!has(record.present & pass.wanted, group)
        || (hasBegin && pass.monotonicTime - readAt < pass.shortestInterval)) {
        return std::nullopt;
    }
    state.read = state.read | group;
    return Interval{state.startIdentity, hasBegin, std::exchange(readAt, pass.monotonicTime), pass.monotonicTime};
}

} // namespace

std::string ProcessStatCollectorItem::key() const { return std::to_string(pid); }

void ProcessStatCollectorItem::startAfresh(std::uint64_t identity, std::uint32_t pass)
{
    static_cast<ProcessState&>(*this) = ProcessState();
    startIdentity = identity;
    firstPass = pass;
}

void ProcessStatCollectorItem::setName(std::string newName)
{
    const ProcessNameTraits traits = traitsOfName(newName);
    isSafariWebContent = traits.safariWebContent;
    standsAlone = traits.standsAlone;
    startsCommands = traits.startsCommands;
    if (newName != std::string_view(commandName)) {
        makeExtras().name = std::move(newName);
    } else if (extras) {
        extras->name.clear();
    }
}

std::string_view ProcessStatCollectorItem::name() const
{
    return extras && !extras->name.empty() ? std::string_view(extras->name) : commandName;
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

ActiveProcess& ProcessStatCollectorItem::makeActive()
{
    if (!active) {
        active = std::make_unique<ActiveProcess>(ActiveProcess{.activity = idleActivities[known], .scores = {}});
    }
    return *active;
}

void ProcessStatCollectorItem::measure(const ProcessRecord& record, const ProcessPass& pass)
{
    exists = true;
    state = record.state;
    nice = record.nice;
    threads = record.threads;
    uid = record.user.value_or(uid);
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
    read = read | ProcessFields::Memory;
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
        if (extras || record.childCpuTime > 0) {
            makeExtras().children = {record.childCpuTime, record.childCpuUser};
        }
        figures.cpu =
            pass.timeBase > 0 ? OptionalDouble(*units / pass.timeBase * 100) : std::nullopt; // so unknown units, too
    }
}

/// After passes that did not ask, the interval is the whole pause and the rate an honest mean over it.
void ProcessStatCollectorItem::updateIOWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    if (const auto interval = beginReading(*this, ProcessFields::Disk, counters.diskUpdateTime, record, pass)) {
        const auto bytesRead = interval->rateOf(counters.diskReadTotal, record.diskBytesRead);
        const auto written = interval->rateOf(counters.diskWriteTotal, record.diskBytesWritten);
        setDisk(bytesRead, written, pass.wallTime);
    }
}

/// Most processes move nothing, and it takes a bit to say that it is known.
void ProcessStatCollectorItem::setDisk(
    const OptionalDouble& bytesRead, const OptionalDouble& bytesWritten, double wallTime)
{
    if (!active && bytesRead == bytesWritten && !(*bytesRead > 0)) {
        setKnown(KnowsDisk, bytesRead.has_value());
        return;
    }
    ProcessActivity& activity = makeActive().activity;
    activity.diskRead = bytesRead;
    activity.diskWrite = bytesWritten;
    stamp(activity.diskReadTime, bytesRead, wallTime);
    stamp(activity.diskWriteTime, bytesWritten, wallTime);
}

/// A pass that does not ask forgets the reading: the first one after a pause would otherwise put the wake-ups of the whole
/// pause into one interval. One that asked and got none does not, and the interval goes on.
void ProcessStatCollectorItem::updatePowerWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    if (!has(pass.wanted, ProcessFields::Wakeups)) {
        if (has(read, ProcessFields::Wakeups)) {
            read = without(read, ProcessFields::Wakeups);
            figures.wakeups.reset();
            forgetScores();
        }
        return;
    }
    if (const auto interval = beginReading(*this, ProcessFields::Wakeups, counters.wakeupsTime, record, pass)) {
        figures.wakeups = interval->rateOf(counters.idleWakeups, record.idleWakeups);
        // Not known where either is not.
        updatePowerUsageAverage(*figures.wakeups * ProcessScore::ofWakeup + *figures.cpu * pass.scoreOfCpu, pass);
    }
}

void ProcessStatCollectorItem::forgetScores()
{
    setKnown(KnowsScore, false);
    if (active) {
        active->activity.powerScore.reset();
        active->scores.clear();
    }
}

/// The mean of the scores that count, of this pass and those of the last half minute. A score that is not known is none.
void ProcessStatCollectorItem::updatePowerUsageAverage(const OptionalDouble& power, const ProcessPass& pass)
{
    if (!active && !(*power >= scoreThatCounts)) { // nearly all
        setKnown(KnowsScore, (known & KnowsScore) != 0 || power);
        return;
    }
    auto& [activity, scores] = makeActive();
    std::erase_if(scores, [&](const ProcessScore& score) {
        return pass.scoreNumber - score.number >= averagedPasses || score.time < pass.monotonicTime - averagedSeconds;
    });
    if (!power) {
        return;
    }
    if (*power >= scoreThatCounts) {
        scores.push_back({pass.monotonicTime, pass.scoreNumber, static_cast<float>(*power)});
    }
    double sum = 0;
    for (const ProcessScore& score : scores) {
        sum += static_cast<double>(score.power);
    }
    activity.powerScore = scores.empty() ? 0 : sum / static_cast<double>(scores.size());
}

void ProcessStatCollectorItem::clearBandwidth()
{
    setKnown(KnowsTraffic, true);
    if (active) {
        active->activity.networkDownload = active->activity.networkUpload = 0;
    }
}

void ProcessStatCollectorItem::addTraffic(double downloadBytes, double uploadBytes)
{
    ProcessActivity& activity = makeActive().activity;
    activity.networkDownload = activity.networkDownload.value_or(0) + downloadBytes;
    activity.networkUpload = activity.networkUpload.value_or(0) + uploadBytes;
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
    if (active) {
        ProcessActivity& activity = active->activity;
        stamp(activity.networkDownloadTime, activity.networkDownload, wallTime);
        stamp(activity.networkUploadTime, activity.networkUpload, wallTime);
    }
}

} // namespace meridal
