// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcessSourceChoice.h"

#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/processes/BpfProcessSource.h"
#include "platform/linux/processes/TaskStatistics.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint32_t firstCapacity = 1024; // processes
constexpr std::size_t mostHidden = 16;        // more of them, and it is another table

using Rows = std::vector<ProcessRecord>; // without names, which do not last

Rows copyOf(std::span<const ProcessRecord> rows)
{
    Rows copy(rows.begin(), rows.end());
    for (ProcessRecord& row : copy) {
        row.name = {};
    }
    return copy;
}

const ProcessRecord* rowOf(const Rows& rows, std::int32_t pid)
{
    const auto row = std::lower_bound(rows.begin(), rows.end(), pid,
        [](const ProcessRecord& each, std::int32_t wanted) { return each.pid < wanted; });
    return row == rows.end() || row->pid != pid ? nullptr : &*row;
}

/// This process and the two with most memory beside it, ascending.
std::vector<std::int32_t> witnesses(const Rows& rows)
{
    Rows largest = rows;
    const auto self = static_cast<std::int32_t>(::getpid());
    std::sort(largest.begin(), largest.end(), [self](const ProcessRecord& a, const ProcessRecord& b) {
        return std::pair(a.pid == self, a.residentSize) > std::pair(b.pid == self, b.residentSize);
    });
    std::vector<std::int32_t> pids{self};
    for (const ProcessRecord& row : largest) {
        if (row.pid != self && row.status == ProcessStatus::Alive && pids.size() < 3) {
            pids.push_back(row.pid);
        }
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

/// Whether a figure lies within those read before and after it, give or take.
bool isWithin(std::uint64_t figure, std::uint64_t before, std::uint64_t after, std::uint64_t slack)
{
    const auto [low, high] = std::minmax(before, after);
    return figure + slack >= low && figure <= high + slack;
}

/// What /proc says otherwise of a process than the records before and after; empty when they agree.
std::string difference(
    const ProcessRecord& proc, const ProcessRecord& before, const ProcessRecord& after, const ProcessSource& source)
{
    // Ticks: one of rounding in each part, one by which a thread that runs may lag. Pages: what processors hold back of
    // the four sums where /proc does not add it up, by the kernel's formula, and some.
    const auto ticks = static_cast<std::uint64_t>(source.cpuResolution() * source.timeBase() * 4);
    const std::uint64_t processors = possibleProcessors();
    const std::uint64_t batch = std::max<std::uint64_t>(32, 2 * processors) * processors * 4;
    const std::uint64_t bytes = batch * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    if (proc.startIdentity != before.startIdentity || proc.parentPid != before.parentPid) {
        return "who it is";
    }
    if (!isWithin(proc.cpuTime, before.cpuTime, after.cpuTime, ticks)) {
        return "its CPU time";
    }
    if (has(proc.present, ProcessFields::Memory)
        && (!isWithin(proc.residentSize, before.residentSize, after.residentSize, bytes)
            || !isWithin(proc.anonymous, before.anonymous, after.anonymous, bytes))) {
        return "its memory";
    }
    // Of several threads /proc may have what children did besides.
    if (has(proc.present, ProcessFields::Disk)
        && (!has(before.present, ProcessFields::Disk)
            || proc.diskBytesRead < std::min(before.diskBytesRead, after.diskBytesRead)
            || proc.diskBytesWritten < std::min(before.diskBytesWritten, after.diskBytesWritten))) {
        return "its storage traffic";
    }
    return {};
}

/// Compares one pass of the source, and one after it, with what /proc says in between. What is wrong with the source;
/// empty when nothing is. Processes that only /proc shows are added to `hidden`.
std::string lookForFault(BpfProcessSource& source, const std::filesystem::path& root, std::vector<std::int32_t>& hidden)
{
    const Rows before = copyOf(source.readProcesses(ProcessFields::All));
    if (!source.problem().empty()) {
        return source.problem();
    }
    ProcFolder folder(root / "proc");
    std::vector<std::int32_t> listed;
    folder.listPids(listed);
    ProcProcessSource plain(root, std::make_shared<Limitations>(), {.skipUnchanged = false, .only = witnesses(before)});
    const Rows proc = copyOf(plain.readProcesses(ProcessFields::All));
    source.readProcesses(ProcessFields::Cpu); // after which nobody's pages are taken over from the pass before
    const Rows after = copyOf(source.readProcesses(ProcessFields::All));
    if (!source.problem().empty()) {
        return source.problem();
    }

    for (const std::int32_t pid : witnesses(before)) {
        const ProcessRecord* first = rowOf(before, pid);
        const ProcessRecord* second = rowOf(after, pid);
        const ProcessRecord* said = rowOf(proc, pid);
        if (!first || !second || !said) {
            return fmt::format("process {} is missing from {}", pid, said ? "its records" : "/proc");
        }
        if (const std::string what = difference(*said, *first, *second, source); !what.empty()) {
            return fmt::format("it and /proc disagree about process {}: {}", pid, what);
        }
    }
    for (const std::int32_t pid : listed) { // born or ended meanwhile, it is in one of the others
        if (!rowOf(before, pid) && !rowOf(after, pid) && folder.exists(pid, "stat")) {
            hidden.push_back(pid);
        }
    }
    return hidden.size() <= mostHidden ? std::string()
                                       : fmt::format("it lacks {} of the processes in /proc", hidden.size());
}

Result<std::unique_ptr<ProcessSource>> tryOut(std::unique_ptr<BpfProcessReader> reader,
    const std::filesystem::path& root, std::shared_ptr<Limitations> limitations)
{
    auto source = std::make_unique<BpfProcessSource>(std::move(reader), root, std::move(limitations));
    constexpr int attempts = 3; // a process may have started another program right then, or dropped what it had written
    std::string fault;
    for (int i = 0; i < attempts; ++i) {
        std::vector<std::int32_t> hidden;
        source->startAfresh(); // as the reader of /proc that it is compared with
        fault = lookForFault(*source, root, hidden);
        if (fault.empty()) {
            source->setHidden(std::move(hidden));
            return std::unique_ptr<ProcessSource>(std::move(source));
        }
    }
    return unexpected(ErrorCode::Unavailable, fault);
}

} // namespace

BpfProcessLoaders bpfProcessLoaders()
{
    return {[] { return BpfProcessWalk::load(firstCapacity); }, [] { return BpfProcessDump::load(); }};
}

std::unique_ptr<ProcessSource> chooseProcessSource(const std::filesystem::path& root,
    std::shared_ptr<Limitations> limitations, ProcProcessOptions options, const BpfProcessLoaders& loaders)
{
    std::string why;
    for (const auto& load : loaders) {
        auto reader = load();
        auto source = reader ? tryOut(std::move(*reader), root, limitations)
                             : Result<std::unique_ptr<ProcessSource>>(Unexpected{reader.error()});
        if (source) {
            return std::move(*source);
        }
        if (why != source.error().message) { // the ways fail for one reason, as a rule
            why += (why.empty() ? "" : "; ") + source.error().message;
        }
    }
    limitations->set("process-source", "processes are read from /proc, one by one: " + why);
    return makeProcProcessSource(root, std::move(limitations), std::move(options));
}

std::unique_ptr<ProcessSource> makeProcProcessSource(
    const std::filesystem::path& root, std::shared_ptr<Limitations> limitations, ProcProcessOptions options)
{
    if (std::shared_ptr<TaskStatistics> statistics = root == "/" ? TaskStatistics::open() : nullptr) {
        options.runTimes = [statistics](auto pids, auto& sums) { return statistics->read(pids, sums); };
    }
    return std::make_unique<ProcProcessSource>(root, std::move(limitations), std::move(options));
}

} // namespace meridal
