#include "collectors/process/ProcessStatCollectorItem.h"

#include "collectors/process/ProcessNames.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double microsecondsPerWakeup = 500; ///< of CPU time, charged for waking an idle package
constexpr double scoreThatCounts = 1.0;
/// s over which scores are averaged, and how many passes of them at most.
constexpr double averagedSeconds = 31;
constexpr std::uint32_t averagedPasses = 30;

bool isThere(const ProcessRecord& record, const ProcessPass& pass, ProcessFields group)
{
    return has(record.present & pass.wanted, group);
}

/// What a cumulative counter moved; nothing when it started over.
std::uint64_t growth(std::uint64_t previous, std::uint64_t current)
{
    return current > previous ? current - previous : 0;
}

/// What is left of one size after another is taken off.
double remainder(std::uint64_t size, std::uint64_t part) { return static_cast<double>(growth(part, size)); }

} // namespace

std::string ProcessStatCollectorItem::key() const { return std::to_string(pid_); }

void ProcessStatCollectorItem::startAfresh(std::uint64_t startIdentity, std::uint32_t pass)
{
    state_ = State{};
    state_.startIdentity = startIdentity;
    state_.firstPass = pass;
    scores_.clear();
    sharingTotals_ = {};
    sharingUseHierachy_ = true;
}

void ProcessStatCollectorItem::setName(std::string name)
{
    const ProcessNameTraits traits = traitsOfName(name);
    state_.isSafariWebContent = traits.safariWebContent;
    state_.standsAlone = traits.standsAlone;
    state_.startsCommands = traits.startsCommands;
    state_.name = std::move(name);
}

std::string_view ProcessStatCollectorItem::bundleLocation() const
{
    return state_.extras ? std::string_view(state_.extras->bundleLocation) : std::string_view();
}

void ProcessStatCollectorItem::setBundleLocation(std::string location)
{
    extras().bundleLocation = std::move(location);
}

const std::vector<std::string>& ProcessStatCollectorItem::safariURLS() const
{
    static const std::vector<std::string> none;
    return state_.extras ? state_.extras->safariURLS : none;
}

void ProcessStatCollectorItem::setSafariURLS(std::vector<std::string> urls) { extras().safariURLS = std::move(urls); }

ProcessStatCollectorItem::Extras& ProcessStatCollectorItem::extras()
{
    if (!state_.extras) {
        state_.extras = std::make_unique<Extras>();
    }
    return *state_.extras;
}

void ProcessStatCollectorItem::beginPass(const ProcessPass& pass)
{
    state_.updateTime = pass.wallTime;
    state_.exists = true;
}

void ProcessStatCollectorItem::endPass()
{
    state_.updateTimePrevious = state_.updateTime;
    ++state_.sequence;
}

void ProcessStatCollectorItem::updateMemoryWithTaskInfo(const ProcessRecord& record, const ProcessPass& pass)
{
    if (!isThere(record, pass, ProcessFields::Memory)) {
        state_.memory = state_.memoryFootprint = state_.memoryAnonymous = state_.memoryCompressed = 0;
        return;
    }
    state_.memoryFootprint = static_cast<double>(record.physFootprint);
    state_.memoryAnonymous = static_cast<double>(record.anonymous);
    state_.memoryCompressed = static_cast<double>(record.compressed);
    state_.memory = pass.footprintFromKernel
        ? state_.memoryFootprint
        : remainder(record.anonymous, record.purgeableVolatile) + state_.memoryCompressed;
}

std::optional<double> ProcessStatCollectorItem::updateCPUWithRusage(
    const ProcessRecord& record, const ProcessPass& pass)
{
    const std::uint64_t time = record.cpuTime;
    const double elapsed = state_.cpuKnown ? pass.monotonicTime - state_.lastUpdateCPU : 0;
    if (elapsed > 0 && elapsed < pass.shortestInterval) {
        return std::nullopt;
    }
    state_.cpuPreviousTime = state_.cpuKnown && time >= state_.cpuTime ? state_.cpuTime : time;
    state_.cpuTime = time;
    state_.lastUpdateCPU = pass.monotonicTime;
    state_.cpuKnown = true;
    const auto units = static_cast<double>(state_.cpuTime - state_.cpuPreviousTime);
    state_.cpu = pass.timeBase > 0 ? units / pass.timeBase / (elapsed > 0 ? elapsed : 1.0) * 100 : 0;
    return elapsed;
}

bool ProcessStatCollectorItem::updateIOWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    // After passes that did not ask, the interval is the whole pause and the rate an honest mean over it.
    const double elapsed = pass.monotonicTime - state_.diskUpdateTime;
    const bool isTooSoon = state_.diskKnown && (elapsed <= 0 || elapsed < pass.shortestInterval);
    if (!isThere(record, pass, ProcessFields::Disk) || isTooSoon) {
        return false;
    }
    const std::uint64_t read = record.diskBytesRead;
    const std::uint64_t written = record.diskBytesWritten;
    if (state_.diskKnown) {
        state_.diskRead = static_cast<double>(growth(state_.diskReadTotal, read)) / elapsed;
        state_.diskWrite = static_cast<double>(growth(state_.diskWriteTotal, written)) / elapsed;
        state_.diskReadTime = state_.diskRead > 0 ? state_.updateTime : state_.diskReadTime;
        state_.diskWriteTime = state_.diskWrite > 0 ? state_.updateTime : state_.diskWriteTime;
    }
    state_.diskReadTotal = read;
    state_.diskWriteTotal = written;
    state_.diskUpdateTime = pass.monotonicTime;
    const bool known = state_.diskKnown;
    state_.diskKnown = true;
    return known;
}

void ProcessStatCollectorItem::clearDiskActivity() { state_.diskRead = state_.diskWrite = 0; }

void ProcessStatCollectorItem::updatePowerWithRusage(
    const ProcessRecord& record, const ProcessPass& pass, double elapsed)
{
    const auto units = static_cast<double>(state_.cpuTime - state_.cpuPreviousTime);
    updatePower(record, pass, elapsed, pass.timeBase > 0 ? units / pass.timeBase * 1e6 : 0);
}

void ProcessStatCollectorItem::updatePowerWithRusage2(
    const ProcessRecord& record, const ProcessPass& pass, double elapsed)
{
    // An unsigned product without the time base: scores of those releases were always taken so, and stay comparable.
    const std::uint64_t product = (state_.cpuTime - state_.cpuPreviousTime) * 1'000'000;
    updatePower(record, pass, elapsed, static_cast<double>(product));
}

void ProcessStatCollectorItem::updatePower(
    const ProcessRecord& record, const ProcessPass& pass, double elapsed, double cpuMicroseconds)
{
    // Each over its own interval: wake-ups may have been read first by a pass that came too soon for CPU time.
    const double wakeupsElapsed = pass.monotonicTime - state_.lastUpdateWakeups;
    state_.idleWakeupsPrevious = std::exchange(state_.idleWakeups, record.idleWakeups);
    state_.lastUpdateWakeups = pass.monotonicTime;
    const auto wakeups = static_cast<double>(growth(state_.idleWakeupsPrevious, state_.idleWakeups));
    const double charged = wakeups * microsecondsPerWakeup; // us
    state_.power =
        elapsed > 0 && wakeupsElapsed > 0 ? (charged / wakeupsElapsed + cpuMicroseconds / elapsed) / 1e6 * 100 : 0;
    updatePowerUsageAverage(pass);
}

/// A pass that does not ask forgets the reading: the first one after a pause would otherwise put the wake-ups of the whole
/// pause into one interval. One that asked and got none does not, and the interval goes on.
bool ProcessStatCollectorItem::beginWakeups(const ProcessRecord& record, const ProcessPass& pass)
{
    if (!has(pass.wanted, ProcessFields::Wakeups)) {
        state_.wakeupsKnown = false;
        scores_.clear();
        return false;
    }
    if (!has(record.present, ProcessFields::Wakeups)) {
        return false;
    }
    if (state_.wakeupsKnown) {
        return true;
    }
    state_.wakeupsKnown = true;
    state_.idleWakeups = state_.idleWakeupsPrevious = record.idleWakeups;
    state_.lastUpdateWakeups = pass.monotonicTime;
    state_.power = state_.powerScore = 0;
    return false;
}

/// The mean of the scores that count, of this pass and those of the last half minute.
void ProcessStatCollectorItem::updatePowerUsageAverage(const ProcessPass& pass)
{
    std::erase_if(scores_, [&](const Score& score) {
        return pass.scoreNumber - score.number >= averagedPasses || score.time < pass.monotonicTime - averagedSeconds;
    });
    const bool counts = state_.power >= scoreThatCounts;
    if (scores_.empty() && !counts) {
        state_.powerScore = 0;
        return;
    }
    double sum = counts ? state_.power : 0;
    for (const Score& score : scores_) {
        sum += static_cast<double>(score.power);
    }
    state_.powerScore = sum / static_cast<double>(scores_.size() + (counts ? 1 : 0));
    if (counts && pass.keepsScores) {
        scores_.push_back({pass.monotonicTime, pass.scoreNumber, static_cast<float>(state_.power)});
    }
}

const std::vector<ProcessConnection>& ProcessStatCollectorItem::connections() const
{
    static const std::vector<ProcessConnection> none;
    return state_.extras ? state_.extras->connections : none;
}

void ProcessStatCollectorItem::setConnections(std::vector<ProcessConnection> connections)
{
    extras().connections = std::move(connections);
}

bool ProcessStatCollectorItem::processPacket(const PacketAttribution& packet)
{
    for (const ProcessConnection& connection : connections()) {
        // Seen from the other end of a connection within this machine, what was received is what this process sent.
        if (connection.localPort == packet.foreignPort && connection.foreignPort == packet.localPort) {
            state_.networkUpload += packet.downloadBytes;
            state_.networkDownload += packet.uploadBytes;
            return true;
        }
        if (connection.foreignPort == packet.foreignPort && connection.localPort == packet.localPort) {
            state_.networkDownload += packet.downloadBytes;
            state_.networkUpload += packet.uploadBytes;
            return true;
        }
    }
    return false;
}

void ProcessStatCollectorItem::processCachePacket(const PacketAttribution& packet, double wallTime)
{
    state_.networkDownload += packet.downloadBytes;
    state_.networkUpload += packet.uploadBytes;
    updatePCapBandwidth(wallTime);
}

void ProcessStatCollectorItem::updatePCapBandwidth(double wallTime)
{
    if (state_.networkDownload > 0) {
        state_.networkDownloadTime = wallTime;
    }
    if (state_.networkUpload > 0) {
        state_.networkUploadTime = wallTime;
    }
}

std::vector<ProcessStatCollectorItem*> ProcessStatCollectorItem::children() const
{
    std::vector<ProcessStatCollectorItem*> result;
    for (ProcessStatCollectorItem* child = firstChild_; child; child = child->nextSibling_) {
        result.push_back(child);
    }
    return result;
}

void ProcessStatCollectorItem::leaveGroup() { controller_ = firstChild_ = nextSibling_ = nullptr; }

void ProcessStatCollectorItem::joinFront(ProcessStatCollectorItem& controller)
{
    controller_ = &controller;
    nextSibling_ = std::exchange(controller.firstChild_, this);
}

ProcessStatCollectorItem* ProcessStatCollectorItem::next(const ProcessStatCollectorItem& top, bool descend) const
{
    if (descend && firstChild_) {
        return firstChild_;
    }
    for (const ProcessStatCollectorItem* item = this; item && item != &top; item = item->controller_) {
        if (item->nextSibling_) {
            return item->nextSibling_;
        }
    }
    return nullptr;
}

double ProcessStatCollectorItem::own(ProcessFigure figure) const
{
    switch (figure) {
    case ProcessFigure::Cpu:
        return state_.cpu;
    case ProcessFigure::Memory:
        return state_.memory;
    case ProcessFigure::MemoryFootprint:
        return state_.memoryFootprint;
    case ProcessFigure::Power:
        return state_.powerScore;
    case ProcessFigure::DiskRead:
        return state_.diskRead;
    case ProcessFigure::DiskWrite:
        return state_.diskWrite;
    case ProcessFigure::Download:
        return state_.networkDownload;
    case ProcessFigure::Upload:
        return state_.networkUpload;
    }
    return 0;
}

double ProcessStatCollectorItem::total(ProcessFigure figure) const
{
    if (!shared_->sharingUseHeirachy) {
        return own(figure);
    }
    // Walked, not recursed: a chain of children may be as long as any user likes.
    double sum = 0;
    for (const ProcessStatCollectorItem* item = this; item; item = item->next(*this, item->sharingUseHierachy_)) {
        sum += item->own(figure);
    }
    return sum;
}

double ProcessStatCollectorItem::lastActive(ProcessFigure figure) const
{
    switch (figure) {
    case ProcessFigure::DiskRead:
        return state_.diskReadTime;
    case ProcessFigure::DiskWrite:
        return state_.diskWriteTime;
    case ProcessFigure::Download:
        return state_.networkDownloadTime;
    case ProcessFigure::Upload:
        return state_.networkUploadTime;
    default:
        return 0;
    }
}

} // namespace meridal
