// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/BpfProcessSource.h"

#include "platform/linux/processes/ProcFigures.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

/// Passes in a row after which a reader is given up.
constexpr int mostFailures = 5;

bool isBefore(const BpfProcess* a, const BpfProcess* b) { return a->pid < b->pid; }

std::uint64_t pagesOf(std::int64_t sum) { return sum > 0 ? static_cast<std::uint64_t>(sum) : 0; }

std::string_view nameOf(const BpfProcess& process)
{
    return {process.name, ::strnlen(process.name, sizeof process.name)};
}

/// They come in order of birth: ascending, until pids start over.
void mergeRuns(std::vector<const BpfProcess*>& order)
{
    constexpr int mostRuns = 8; // more are sorted faster than merged one by one
    auto sorted = std::is_sorted_until(order.begin(), order.end(), isBefore);
    for (int run = 1; run < mostRuns && sorted != order.end(); ++run) {
        const auto end = std::is_sorted_until(sorted, order.end(), isBefore);
        std::inplace_merge(order.begin(), sorted, end, isBefore);
        sorted = end;
    }
    if (sorted != order.end()) {
        std::sort(order.begin(), order.end(), isBefore);
    }
}

} // namespace

BpfProcessSource::BpfProcessSource(std::unique_ptr<BpfProcessReader> reader, const std::filesystem::path& root,
    std::shared_ptr<Limitations> limitations)
    : reader_(std::move(reader))
    , root_(root)
    , folder_(root / "proc")
    , limitations_(std::move(limitations))
    , tick_(1'000'000'000 / proc::clockTicksPerSecond())
    , bornBefore_(std::numeric_limits<std::uint64_t>::max())
    , pageSize_(static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)))
    , units_(folder_, nullptr, root)
{
}

double BpfProcessSource::cpuResolution() const { return static_cast<double>(tick_) / 1e9; }

bool BpfProcessSource::mayBeCut(std::size_t nameBytes) const { return nameBytes == proc::nameLimit; }

void BpfProcessSource::setHidden(std::vector<std::int32_t> pids)
{
    hidden_.reset();
    if (!pids.empty()) {
        hidden_ = std::make_unique<ProcProcessSource>(root_, limitations_,
            ProcProcessOptions{.skipUnchanged = true, .only = std::move(pids), .units = units_.units()});
    }
}

bool BpfProcessSource::keepEnded(bool wanted)
{
    if (!wanted) {
        ended_.reset();
    } else if (!ended_) {
        auto ended = BpfEndedProcesses::attach(units_.units(), tick_);
        if (!ended) {
            limitations_->set("ended-processes",
                "what processes use that end between two looks is told by their parents only: "
                    + ended.error().message);
            return false;
        }
        ended_ = std::move(*ended);
    }
    return wanted;
}

std::span<const EndedRecord> BpfProcessSource::takeEnded()
{
    return ended_ ? ended_->take() : std::span<const EndedRecord>();
}

std::span<const ProcessRecord> BpfProcessSource::readProcesses(ProcessFields wanted)
{
    bornBefore_ = ended_ ? ended_->beginPass() : std::numeric_limits<std::uint64_t>::max();
    const auto rows = readRecords(wanted);
    if (ended_ && !rows.empty()) {
        ended_->endPass();
    }
    return rows;
}

std::span<const ProcessRecord> BpfProcessSource::readRecords(ProcessFields wanted)
{
    if (!reader_) {
        return readFiles(wanted);
    }
    const auto processes = reader_->read(has(wanted, ProcessFields::Memory));
    if (!processes) {
        noteFailure(processes.error().message);
        return readFiles(wanted);
    }
    if (failures_ > 0) {
        failures_ = 0;
        problem_.clear();
        files_.reset();
        limitations_->clear("process-source");
    }
    sortByPid(*processes);
    const std::vector<Kept> previous = std::exchange(kept_, {}); // given back with the pass: there may be thousands
    rows_.clear();
    places_.clear();
    kept_.reserve(order_.size());
    rows_.reserve(order_.size());
    places_.reserve(order_.size());
    longNames_ = 0;
    ++pass_;
    auto known = previous.cbegin();
    for (const BpfProcess* process : order_) {
        while (known != previous.cend() && known->pid < process->pid) {
            ++known;
        }
        const bool seen = known != previous.cend() && known->pid == process->pid;
        const bool isOnItsWayOut = process->flags & BPF_PROCESS_LEAVING && !(process->flags & BPF_PROCESS_ENDED);
        if (isOnItsWayOut && !(seen && known->start == process->start / tick_)) {
            continue; // its figures are whole at the next pass, if it is there: as a zombie
        }
        addRow(*process, seen ? &*known : nullptr, wanted);
        places_.push_back({.unified = process->cgroup, .all = process->cgroups});
    }
    units_.fill(rows_, places_);
    forgetEndedThreads();
    if (hidden_) {
        addHidden(wanted);
    }
    return rows_;
}

/// Without the programs, for one pass or for good.
std::span<const ProcessRecord> BpfProcessSource::readFiles(ProcessFields wanted)
{
    order_.clear();
    rows_.clear();
    if (!files_) {
        files_ = std::make_unique<ProcProcessSource>(
            root_, limitations_, ProcProcessOptions{.skipUnchanged = true, .only = {}, .units = units_.units()});
    }
    const auto rows = files_->readProcesses(wanted);
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(rows_),
        [this](const ProcessRecord& row) { return !isYoung(row); });
    return rows_;
}

void BpfProcessSource::sortByPid(std::span<const BpfProcess> processes)
{
    order_.clear();
    order_.reserve(processes.size());
    for (const BpfProcess& process : processes) {
        if (process.start < bornBefore_) {
            order_.push_back(&process);
        }
    }
    mergeRuns(order_);
    // While a thread other than the first one starts a program it takes the pid over, and both may be met.
    const auto same = [](const BpfProcess* a, const BpfProcess* b) { return a->pid == b->pid; };
    order_.erase(std::unique(order_.begin(), order_.end(), same), order_.end());
}

void BpfProcessSource::addRow(const BpfProcess& process, const Kept* last, ProcessFields wanted)
{
    Kept kept{.pid = process.pid, .start = process.start / tick_};
    if (last && last->start == kept.start) {
        kept = *last;
    }
    ProcessFields present = ProcessFields::Memory;
    if (!(process.flags & BPF_PROCESS_TORN)) {
        // Less: a thread that ended under our eyes was missed.
        kept.cpuTime = std::max<std::uint64_t>(kept.cpuTime, process.runTime);
        kept.cpuUser = std::max(kept.cpuUser, proc::userPartOf(kept.cpuTime, process.userTime, process.systemTime));
        kept.written = proc::bytesWritten(process.writtenBytes, process.cancelledBytes, kept.written);
        present |= ProcessFields::Cpu | ProcessFields::Wakeups;
        present |= process.flags & BPF_PROCESS_HAS_IO ? ProcessFields::Disk : ProcessFields::None;
    }
    const std::string_view name = nameOf(process);
    const bool mayBeCut = (process.flags & BPF_PROCESS_KERNEL_THREAD) != 0 && name.size() == proc::nameLimit;
    const std::uint64_t anonymous = pagesOf(process.anonymousPages);
    const std::uint64_t shared = pagesOf(process.sharedPages);
    const std::uint64_t swapped = pagesOf(process.swappedPages);
    rows_.push_back({
        .pid = process.pid,
        .parentPid = process.parent,
        .status = process.flags & BPF_PROCESS_ENDED ? ProcessStatus::Zombie : ProcessStatus::Alive,
        .present = present & wanted,
        .startIdentity = kept.start,
        .name = mayBeCut ? longNameOf(process, kept.start) : name,
        .isKernelThread = (process.flags & BPF_PROCESS_KERNEL_THREAD) != 0,
        .state = proc::runStateOf(std::uint32_t{process.state}),
        .nice = static_cast<std::int8_t>(process.nice),
        .threads = process.threads,
        .user = process.user,
        .cpuTime = kept.cpuTime,
        .cpuUser = kept.cpuUser,
        .physFootprint = (anonymous + shared + swapped) * pageSize_,
        .anonymous = anonymous * pageSize_,
        .compressed = swapped * pageSize_,
        .residentSize = (anonymous + shared + pagesOf(process.filePages)) * pageSize_,
        .diskBytesRead = process.readBytes,
        .diskBytesWritten = kept.written,
        .idleWakeups = process.voluntarySwitches,
    });
    kept_.push_back(kept);
}

/// Names of kernel threads are cut in records but not in /proc, where each is read once.
std::string_view BpfProcessSource::longNameOf(const BpfProcess& thread, std::uint64_t start)
{
    ThreadName& known = threadNames_[thread.pid];
    if (known.name.empty() || known.start != start) {
        const std::string_view name = nameOf(thread);
        known.name = proc::commandName(folder_, thread.pid).value_or(std::string(name));
        known.start = start;
    }
    known.pass = pass_;
    ++longNames_;
    return known.name;
}

void BpfProcessSource::forgetEndedThreads()
{
    if (threadNames_.size() > longNames_) {
        std::erase_if(threadNames_, [this](const auto& entry) { return entry.second.pass != pass_; });
    }
}

void BpfProcessSource::addHidden(ProcessFields wanted)
{
    for (const ProcessRecord& row : hidden_->readProcesses(wanted)) {
        const auto place = std::lower_bound(rows_.begin(), rows_.end(), row.pid,
            [](const ProcessRecord& each, std::int32_t pid) { return each.pid < pid; });
        if ((place == rows_.end() || place->pid != row.pid) && !isYoung(row)) {
            rows_.insert(place, row);
        }
    }
}

void BpfProcessSource::noteFailure(const std::string& problem)
{
    problem_ = problem;
    limitations_->set("process-source", "/proc is read instead of BPF's records: " + problem);
    if (++failures_
        == mostFailures) { // and be it that the next would succeed: each failure costs a load of the programs
        reader_.reset();
    }
}

ProcessFields BpfProcessSource::alongWith(ProcessFields wanted) const
{
    if (!reader_) {
        return files_ ? files_->alongWith(wanted) : wanted;
    }
    const bool none = wanted == ProcessFields::None;
    return none ? wanted : wanted | ProcessFields::Cpu | ProcessFields::Disk | ProcessFields::Wakeups;
}

std::optional<std::string> BpfProcessSource::commandName(std::int32_t pid) { return proc::commandName(folder_, pid); }

std::optional<std::string> BpfProcessSource::executablePath(std::int32_t pid, std::string_view name)
{
    return proc::executablePath(folder_, pid, name);
}

} // namespace meridal
