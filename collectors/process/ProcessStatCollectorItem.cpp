#include "collectors/process/ProcessStatCollectorItem.h"

#include "collectors/process/ProcessNames.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double microsecondsPerWakeup = 500; ///< of CPU time, charged for waking an idle package
constexpr double scoreThatCounts = 1.0;
constexpr std::uint32_t averagedRows = 30;

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
    rows_.clear();
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
    const std::uint64_t time = record.userTime + record.systemTime;
    const double elapsed = state_.cpuKnown ? pass.monotonicTime - state_.lastUpdateCPU : 0;
    if (elapsed > 0 && elapsed < pass.shortestCPUInterval) {
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

void ProcessStatCollectorItem::updateIOWithRusage(const ProcessRecord& record, const ProcessPass& pass)
{
    if (!isThere(record, pass, ProcessFields::Disk)) {
        return;
    }
    const std::uint64_t read = record.diskBytesRead;
    const std::uint64_t written = record.diskBytesWritten;
    if (state_.diskWriteTotal == 0) { // not read yet: what went before is no rate of this interval
        state_.diskWriteTotal = written;
    }
    if (state_.diskReadTotal == 0) {
        state_.diskReadTotal = read;
    }
    // After passes that did not ask, the interval is the whole pause and the rate an honest mean over it.
    const double elapsed = pass.monotonicTime - state_.diskUpdateTime;
    if (elapsed > 0) {
        state_.diskRead = static_cast<double>(growth(state_.diskReadTotal, read)) / elapsed;
        state_.diskWrite = static_cast<double>(growth(state_.diskWriteTotal, written)) / elapsed;
        state_.diskReadTime = state_.diskRead > 0 ? state_.updateTime : state_.diskReadTime;
        state_.diskWriteTime = state_.diskWrite > 0 ? state_.updateTime : state_.diskWriteTime;
    }
    state_.diskReadTotal = read;
    state_.diskWriteTotal = written;
    state_.diskUpdateTime = pass.monotonicTime;
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
    const auto wakeups = static_cast<double>(newWakeups(record, pass));
    state_.power = elapsed > 0 ? (wakeups * microsecondsPerWakeup + cpuMicroseconds) / (elapsed * 1e6) * 100 : 0;
    updatePowerUsageAverage(pass);
}

/// Idle wake-ups of this interval. A pass that does not ask for them counts none and forgets the reading: the first
/// one after a pause would otherwise put the wake-ups of the whole pause into one interval.
std::uint64_t ProcessStatCollectorItem::newWakeups(const ProcessRecord& record, const ProcessPass& pass)
{
    const bool known = state_.wakeupsKnown;
    state_.wakeupsKnown = isThere(record, pass, ProcessFields::Wakeups);
    if (!state_.wakeupsKnown) {
        return 0;
    }
    state_.idleWakeupsPrevious = known ? state_.idleWakeups : record.idleWakeups;
    state_.idleWakeups = record.idleWakeups;
    return growth(state_.idleWakeupsPrevious, state_.idleWakeups);
}

/// The mean of the scores that count, of this pass and the rows of the last half minute. By runs, so that a process at
/// rest is done in one or two steps.
void ProcessStatCollectorItem::updatePowerUsageAverage(const ProcessPass& pass)
{
    double sum = 0;
    std::uint32_t counted = 0;
    const auto add = [&](double power, std::uint32_t rows) {
        if (power >= scoreThatCounts) {
            sum += power * rows;
            counted += rows;
        }
    };
    add(state_.power, 1);
    std::uint32_t left = averagedRows - 1;
    rows_.forEachRun([&](const Row& row, std::uint32_t newestPass, std::uint32_t rows) {
        if (newestPass < pass.averagedFrom) {
            return false;
        }
        const std::uint32_t taken = std::min({rows, newestPass - pass.averagedFrom + 1, left});
        add(static_cast<double>(row.power), taken);
        left -= taken;
        return taken == rows && left > 0;
    });
    state_.powerScore = counted > 0 ? sum / counted : 0;
}

void ProcessStatCollectorItem::updateHistory(const ProcessPass& pass)
{
    if (pass.historyPass == 0) {
        return;
    }
    const Row row{
        .cpu = static_cast<float>(state_.cpu),
        .memory = static_cast<float>(state_.memory),
        .powerScore = static_cast<float>(state_.powerScore),
        .power = static_cast<float>(state_.power),
    };
    rows_.append(row, pass.historyPass);
}

ProcessHistoryRow ProcessStatCollectorItem::history(std::size_t row) const
{
    ProcessHistoryRow result;
    rows_.at(row, [&](const Row& kept, std::uint32_t pass) {
        result = {kept.cpu, kept.memory, kept.powerScore, shared_->times.wallTime(pass)};
    });
    return result;
}

ProcessPowerRow ProcessStatCollectorItem::powerHistory(std::size_t row) const
{
    ProcessPowerRow result;
    rows_.at(row, [&](const Row& kept, std::uint32_t pass) {
        result = {kept.power, shared_->times.wallTime(pass), 0};
    });
    return result;
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
