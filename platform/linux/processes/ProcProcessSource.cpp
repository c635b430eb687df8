// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcProcessSource.h"

#include "platform/linux/processes/ProcFigures.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace meridal {

namespace {

constexpr std::uint64_t passesBetweenFullReadings = 16;
constexpr std::uint8_t changesOfBusyProcess = 4; // passes in a row
constexpr std::uint64_t busyPeriod = 8;          // passes, at two of which a busy process is asked
constexpr int mostUnanswered = 3;                // passes in a row, after which files are asked
constexpr ProcessFields statusGroups = ProcessFields::Memory | ProcessFields::Wakeups;

bool hasAny(ProcessFields set, ProcessFields any) { return (set & any) != ProcessFields::None; }

} // namespace

ProcProcessSource::ProcProcessSource(
    const std::filesystem::path& root, std::shared_ptr<Limitations> limitations, ProcProcessOptions options)
    : root_(root)
    , folder_(root / "proc")
    , limitations_(std::move(limitations))
    , options_(std::move(options))
    , ticksPerSecond_(proc::clockTicksPerSecond())
    , units_(folder_, options_.units, root)
{
}

std::span<const ProcessRecord> ProcProcessSource::readProcesses(ProcessFields wanted)
{
    if (!options_.only.empty()) {
        pids_ = options_.only;
    } else if (!folder_.listPids(pids_)) {
        return {};
    }
    ++pass_;
    wanted_ = wanted;
    takenOver_ = 0;
    std::swap(rows_, previousRows_);
    std::swap(states_, previousStates_);
    std::swap(names_, previousNames_);
    rows_.clear();
    states_.clear();
    names_.clear();
    askRunTimes();

    std::size_t known = 0;
    for (const std::int32_t pid : pids_) {
        while (known < previousRows_.size() && previousRows_[known].pid < pid) {
            ++known;
        }
        const bool seen = known < previousRows_.size() && previousRows_[known].pid == pid;
        const Process prior = seen ? Process{previousRows_[known], previousStates_[known]} : Process{};
        Process process;
        switch (readProcess(pid, seen ? &prior : nullptr, true, process)) {
        case Reading::Done:
            break;
        case Reading::Gone:
            continue;
        case Reading::Failed: // out of descriptors or memory: the process is not gone for that
            if (!seen) {
                continue;
            }
            process = prior;
            process.state.hasStamp = false;
            process.record.present = ProcessFields::None;
            keepName(previousName(prior.state), process.state);
            break;
        }
        rows_.push_back(process.record);
        states_.push_back(process.state);
    }
    readAgainWhereParentEnded();
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        rows_[i].name = std::string_view(names_).substr(states_[i].name, states_[i].nameSize);
    }
    units_.fill(rows_, {});
    return rows_;
}

ProcProcessSource::Reading ProcProcessSource::readProcess(
    std::int32_t pid, const Process* prior, bool mayTakeOver, Process& process)
{
    const auto stamp = prior && shouldAskRunTime(pid, prior->state) ? readStamp(*prior) : std::nullopt;
    const bool compared = stamp && prior->state.hasStamp;
    const bool ran = compared && (*stamp != prior->state.stamp || prior->state.running || stamp->slices == 0);
    const bool isDue = (pass_ + static_cast<std::uint32_t>(pid)) % passesBetweenFullReadings == 0;
    if (compared && !ran && mayTakeOver && !isDue) {
        return takeOver(*prior, process);
    }

    if (const Reading stat = readStat(pid, process); stat != Reading::Done) {
        return stat;
    }
    if (prior && prior->record.startIdentity == process.record.startIdentity) {
        process.state.writtenMark = prior->state.writtenMark;
        process.state.hasStamp = stamp.has_value();
        process.state.stamp = stamp.value_or(proc::Schedstat{});
        process.state.changes = prior->state.changes;
        if (compared) {
            constexpr auto most = std::numeric_limits<std::uint8_t>::max();
            process.state.changes = ran ? static_cast<std::uint8_t>(std::min(prior->state.changes + 1, +most)) : 0;
        }
    }
    return readGroups(wanted_, process);
}

bool ProcProcessSource::shouldAskRunTime(std::int32_t pid, const State& prior) const
{
    const bool canAsk = options_.runTimes || (schedstatWorks_ && prior.oneThread);
    if (!options_.skipUnchanged || !canAsk) {
        return false;
    }
    // Two passes one after another: the first gives something to compare with.
    return prior.changes < changesOfBusyProcess || (pass_ + static_cast<std::uint32_t>(pid)) % busyPeriod < 2;
}

void ProcProcessSource::askRunTimes()
{
    asked_.clear();
    nextAsked_ = 0;
    if (!options_.runTimes) {
        return;
    }
    for (std::size_t i = 0; i < previousRows_.size(); ++i) {
        if (shouldAskRunTime(previousRows_[i].pid, previousStates_[i])) {
            asked_.push_back(previousRows_[i].pid);
        }
    }
    if (options_.runTimes(asked_, runTimes_)) {
        unanswered_ = 0;
        return;
    }
    asked_.clear(); // all are read in full
    if (++unanswered_ == mostUnanswered) {
        options_.runTimes = nullptr;
    }
}

/// Only once in a pass: a row that is read again is read in full.
std::optional<proc::Schedstat> ProcProcessSource::runTimeOf(std::int32_t pid)
{
    while (nextAsked_ < asked_.size() && asked_[nextAsked_] < pid) {
        ++nextAsked_;
    }
    const bool isThere = nextAsked_ < asked_.size() && asked_[nextAsked_] == pid;
    return isThere ? std::optional(runTimes_[nextAsked_++]) : std::nullopt;
}

std::optional<proc::Schedstat> ProcProcessSource::readStamp(const Process& prior)
{
    if (options_.runTimes) {
        return runTimeOf(prior.record.pid);
    }
    const std::int32_t pid = prior.record.pid;
    std::string_view text;
    switch (folder_.read(pid, "schedstat", text)) {
    case ProcOutcome::Read:
        break;
    case ProcOutcome::Gone:
        schedstatWorks_ = folder_.exists(pid, "schedstat") || !folder_.exists(pid, "stat");
        return std::nullopt;
    case ProcOutcome::Denied:
    case ProcOutcome::Failed:
        return std::nullopt;
    }
    const auto stamp = proc::parseSchedstat(text);
    if (stamp == proc::Schedstat{} && prior.record.cpuTime > 0) {
        schedstatWorks_ = false; // the kernel was built without these figures
        return std::nullopt;
    }
    return stamp;
}

ProcProcessSource::Reading ProcProcessSource::takeOver(const Process& prior, Process& process)
{
    process = prior;
    process.state.takenOver = true;
    process.state.changes = 0;
    keepName(previousName(prior.state), process.state);
    ++takenOver_;
    return readGroups(without(wanted_, prior.state.tried), process);
}

ProcProcessSource::Reading ProcProcessSource::readStat(std::int32_t pid, Process& process)
{
    std::string_view text;
    switch (folder_.read(pid, "stat", text)) {
    case ProcOutcome::Read:
        break;
    case ProcOutcome::Failed:
        return Reading::Failed;
    case ProcOutcome::Gone:
    case ProcOutcome::Denied: // a hidden process: as if it were not there
        return Reading::Gone;
    }
    const auto stat = proc::parseStat(text);
    if (!stat) {
        return Reading::Gone;
    }
    const std::uint64_t tick = 1'000'000'000 / ticksPerSecond_; // ns
    process.record.pid = pid;
    process.record.parentPid = stat->parentPid;
    process.record.status = proc::hasEnded(*stat) ? ProcessStatus::Zombie : ProcessStatus::Alive;
    process.record.startIdentity = stat->startTicks;
    process.record.cpuTime = stat->cpuTicks * tick;
    process.record.cpuUser = stat->userTicks * tick;
    process.record.childCpuTime = stat->childTicks * tick;
    process.record.childCpuUser = stat->childUserTicks * tick;
    process.record.isKernelThread = proc::isKernelThread(*stat);
    process.record.state = proc::runStateOf(stat->state);
    process.record.nice = stat->nice;
    process.record.threads = stat->threads;
    process.state.oneThread = stat->threads == 1;
    process.state.hasWaited = stat->hasWaited;
    process.state.running = stat->state == 'R';
    process.state.lostMainThread = proc::hasLostMainThread(*stat);
    process.state.tried = ProcessFields::Cpu;
    process.state.available = ProcessFields::Cpu;
    keepName(proc::lastingName(stat->name, stat->flags), process.state);
    return Reading::Done;
}

ProcProcessSource::Reading ProcProcessSource::readGroups(ProcessFields groups, Process& process)
{
    if (hasAny(groups, statusGroups) && readStatus(process) == Reading::Gone) {
        return Reading::Gone;
    }
    if (has(groups, ProcessFields::Disk) && readIo(process) == Reading::Gone) {
        return Reading::Gone;
    }
    process.record.present = process.state.available & wanted_;
    return Reading::Done;
}

ProcProcessSource::Reading ProcProcessSource::readStatus(Process& process)
{
    const std::int32_t pid = process.record.pid;
    std::string file = process.state.lostMainThread ? folder_.fileOfAnotherThread(pid, "status") : std::string();
    if (file.empty()) {
        file = "status";
    }
    std::string_view text;
    switch (folder_.read(pid, file, text)) {
    case ProcOutcome::Read:
        break;
    case ProcOutcome::Gone:
        return Reading::Gone;
    case ProcOutcome::Denied:
    case ProcOutcome::Failed:
        return Reading::Failed;
    }
    const auto status = proc::parseStatus(text);
    if (!status) {
        return Reading::Failed;
    }
    process.state.tried |= statusGroups;
    process.state.available |= ProcessFields::Wakeups;
    process.record.idleWakeups = status->voluntarySwitches;
    process.record.user = status->user;
    if (status->hasMemory && !status->hasParts) {
        return Reading::Done; // a kernel before 4.5 does not tell private from file pages
    }
    process.state.available |= ProcessFields::Memory;
    process.record.residentSize = status->residentBytes;
    process.record.anonymous = status->anonymousBytes;
    process.record.compressed = status->swapBytes;
    process.record.physFootprint = status->anonymousBytes + status->sharedMemoryBytes + status->swapBytes;
    return Reading::Done;
}

ProcProcessSource::Reading ProcProcessSource::readIo(Process& process)
{
    const std::int32_t pid = process.record.pid;
    // A shell would have written what its commands wrote, and both would be counted. Of several threads some may have ended,
    // and are in that sum only.
    const std::string file = process.state.hasWaited && process.state.oneThread ? fmt::format("task/{}/io", pid) : "io";
    std::string_view text;
    const ProcOutcome outcome = ioMissing_ ? ProcOutcome::Denied : folder_.read(pid, file, text);
    if (outcome == ProcOutcome::Gone) {
        ioMissing_ = !folder_.exists(pid, "io") && folder_.exists(pid, "stat");
        if (!ioMissing_) {
            return Reading::Gone;
        }
        limitations_->set("disk", "this kernel does not account storage traffic to processes");
    }
    if (outcome == ProcOutcome::Failed) {
        return Reading::Failed;
    }
    process.state.tried |= ProcessFields::Disk;
    if (outcome == ProcOutcome::Denied && !ioMissing_ && !ioDenied_) {
        ioDenied_ = true;
        limitations_->set(
            "disk", "some processes refuse to have /proc/PID/io read: it takes root with the right to trace them");
    }
    const auto io = outcome == ProcOutcome::Read ? proc::parseIo(text) : std::nullopt;
    if (!io) {
        return Reading::Done;
    }
    process.state.writtenMark = proc::bytesWritten(io->writeBytes, io->cancelledWriteBytes, process.state.writtenMark);
    process.state.available |= ProcessFields::Disk;
    process.record.diskBytesRead = io->readBytes;
    process.record.diskBytesWritten = process.state.writtenMark;
    return Reading::Done;
}

std::string_view ProcProcessSource::previousName(const State& state) const
{
    return std::string_view(previousNames_).substr(state.name, state.nameSize);
}

void ProcProcessSource::keepName(std::string_view name, State& state)
{
    name = name.substr(0, std::numeric_limits<std::uint8_t>::max());
    state.name = static_cast<std::uint32_t>(names_.size());
    state.nameSize = static_cast<std::uint8_t>(name.size());
    names_ += name;
}

const ProcessRecord* ProcProcessSource::rowOf(std::int32_t pid) const
{
    const auto row = std::lower_bound(rows_.begin(), rows_.end(), pid,
        [](const ProcessRecord& each, std::int32_t wanted) { return each.pid < wanted; });
    return row == rows_.end() || row->pid != pid ? nullptr : &*row;
}

bool ProcProcessSource::hasLostParent(const ProcessRecord& row, const State& state) const
{
    if (row.parentPid == 0 || state.parentUnseen) {
        return false;
    }
    const ProcessRecord* parent = rowOf(row.parentPid);
    return !parent || parent->status == ProcessStatus::Zombie
        || parent->startIdentity > row.startIdentity; // another process under the parent's pid
}

void ProcProcessSource::readAgainWhereParentEnded()
{
    bool anyGone = false;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        if (!states_[i].takenOver || !hasLostParent(rows_[i], states_[i])) {
            continue;
        }
        Process again;
        const Process prior{rows_[i], states_[i]};
        switch (readProcess(prior.record.pid, &prior, false, again)) {
        case Reading::Done:
            rows_[i] = again.record;
            states_[i] = again.state;
            states_[i].parentUnseen = !rowOf(again.record.parentPid);
            break;
        case Reading::Gone:
            states_[i].gone = true;
            anyGone = true;
            break;
        case Reading::Failed: // better late than not at all
            states_[i].hasStamp = false;
            continue;
        }
        --takenOver_;
    }
    if (anyGone) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            if (!states_[i].gone) {
                rows_[kept] = rows_[i];
                states_[kept++] = states_[i];
            }
        }
        rows_.resize(kept);
        states_.resize(kept);
    }
}

ProcessFields ProcProcessSource::alongWith(ProcessFields wanted) const
{
    return hasAny(wanted, statusGroups) ? wanted | statusGroups : wanted;
}

std::optional<std::string> ProcProcessSource::commandName(std::int32_t pid) { return proc::commandName(folder_, pid); }

bool ProcProcessSource::mayBeCut(std::size_t nameBytes) const { return nameBytes == proc::nameLimit; }

std::optional<std::string> ProcProcessSource::usualPath(std::string_view name)
{
    return units_.units()->programNamed(name);
}

std::optional<std::string> ProcProcessSource::executablePath(std::int32_t pid, std::string_view name)
{
    return proc::executablePath(folder_, pid, name);
}

} // namespace meridal
