// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/ProcessSource.h"
#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/kernel/ProcParsers.h"
#include "platform/linux/processes/ProcFigures.h"
#include "platform/linux/processes/ProcessUnits.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// How long and how often processes ran, all threads of each, in the order of the pids; zeros of one that is gone. False when
/// there is no telling.
using RunTimesReader = std::function<bool(std::span<const std::int32_t> pids, std::vector<proc::Schedstat>& sums)>;

struct ProcProcessOptions {
    bool skipUnchanged = true;               ///< take over the rows of processes that did not run since the last pass
    std::vector<std::int32_t> only = {};     ///< ascending pids; empty reads all there are
    std::shared_ptr<CgroupUnits> units = {}; ///< shared with other sources; null for a table of its own
    RunTimesReader runTimes = {};            ///< of many processes at once, where the kernel tells; else file by file
};

/// The process table out of /proc: one listing, then per process the files that the wanted groups need: stat always
/// and for Cpu, status for Memory and Wakeups, io for Disk.
///
/// A process that did not run has the counters that it had, so its files need not be read again. Whether it ran is told
/// by its run time in ns and the times it was put on a processor: in one question for all, see TaskStatistics, or by its
/// schedstat file, which costs a sixth of the other three. When both are as before, the row of the last pass is taken
/// over. The rule's terms:
/// - The process has one thread where a file is asked, which tells of the main thread only. A process can gain a thread
///   only by running.
/// - They were read before the other files, and the main thread was not on a run queue while those were read. What it did
///   after that shows; the run time of a thread that is on a processor lags behind, by a tick as a rule: what another
///   thread has done within it is told with the next pass.
/// - Things that others do to a process (reclaim, swapping) move no counter of its own: each process is read anew every
///   16th pass, and when its parent ended, since it has another one then. So are nice values that others set.
/// - A pid in use again cannot pass for its predecessor: times in ns would have to agree. A process that never ran yet
///   could, so it is not taken over.
/// - Processes that ran at each of the last passes are asked only two passes of eight.
/// - A kernel without schedstat, or one whose figures are all 0, ends it for good.
/// In a steady pass nothing is allocated.
class ProcProcessSource final : public ProcessSource {
public:
    /// `root` is the folder that holds proc.
    ProcProcessSource(
        const std::filesystem::path& root, std::shared_ptr<Limitations> limitations, ProcProcessOptions options = {});

    std::span<const ProcessRecord> readProcesses(ProcessFields wanted) override;
    ProcessFields alongWith(ProcessFields wanted) const override;
    std::optional<std::string> commandName(std::int32_t pid) override;
    double timeBase() const override { return 1e9; }
    bool interruptsApart() const override { return proc::countsInterruptsApart(root_); }
    double cpuResolution() const override { return 1.0 / static_cast<double>(ticksPerSecond_); }
    double startTime(std::uint64_t startIdentity) const override { return proc::startTime(startIdentity); }
    bool mayBeCut(std::size_t nameBytes) const override;
    std::string_view method() const override { return "proc"; }
    std::optional<std::string> executablePath(std::int32_t pid, std::string_view name) override;
    std::string unitName(const ProcessUnit& unit) override { return units_.name(unit); }
    std::string unitIdentity(const ProcessUnit& unit) override { return units_.identity(unit); }
    std::optional<std::string> usualPath(std::string_view name) override;
    std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit& unit) override
    {
        return units_.bundleLocation(pid, unit);
    }

    /// How many rows of the last pass were taken over; for tests and benchmarks.
    std::size_t takenOver() const { return takenOver_; }

private:
    /// What is kept of a process beside its record.
    struct State {
        proc::Schedstat stamp;     ///< read before the files that the record was made of
        std::uint32_t name = 0;    ///< where it begins in names_
        std::uint8_t nameSize = 0; ///< bytes
        std::uint8_t changes = 0;  ///< at how many passes in a row it was found to have run
        bool hasStamp = false;
        bool oneThread = false;
        bool hasWaited = false;                    ///< for a child, see proc::Stat
        bool running = false;                      ///< on a run queue while it was read
        bool lostMainThread = false;               ///< whose files tell of no memory any more
        bool takenOver = false;                    ///< in the last pass
        bool parentUnseen = false;                 ///< its parent is hidden from us: that it is missing says nothing
        bool gone = false;                         ///< found so after it was taken over
        ProcessFields tried = ProcessFields::None; ///< groups read since the stamp, had or not
        ProcessFields available = ProcessFields::None; ///< of those, the ones that were had
        std::uint64_t writtenMark = 0;                 ///< highest figure given for diskBytesWritten
    };
    struct Process {
        ProcessRecord record;
        State state;
    };
    enum class Reading { Done, Gone, Failed };

    /// `prior` is what the last pass knows under that pid, null when nothing.
    Reading readProcess(std::int32_t pid, const Process* prior, bool mayTakeOver, Process& process);
    bool shouldAskRunTime(std::int32_t pid, const State& prior) const;
    void askRunTimes();
    std::optional<proc::Schedstat> runTimeOf(std::int32_t pid);
    std::optional<proc::Schedstat> readStamp(const Process& prior);
    Reading takeOver(const Process& prior, Process& process);
    Reading readStat(std::int32_t pid, Process& process);
    Reading readGroups(ProcessFields groups, Process& process);
    Reading readStatus(Process& process);
    Reading readIo(Process& process);
    std::string_view previousName(const State& state) const;
    void keepName(std::string_view name, State& state);
    const ProcessRecord* rowOf(std::int32_t pid) const;
    bool hasLostParent(const ProcessRecord& row, const State& state) const;
    void readAgainWhereParentEnded();

    std::filesystem::path root_;
    ProcFolder folder_;
    std::shared_ptr<Limitations> limitations_;
    ProcProcessOptions options_;
    std::uint64_t ticksPerSecond_;
    std::uint64_t pass_ = 0;
    ProcessFields wanted_ = ProcessFields::None;
    bool schedstatWorks_ = true;
    bool ioMissing_ = false; ///< the kernel keeps no such accounts
    bool ioDenied_ = false;  ///< and that was noted
    std::size_t takenOver_ = 0;

    std::vector<std::int32_t> asked_;       ///< for their run times, ascending
    std::vector<proc::Schedstat> runTimes_; ///< theirs
    std::size_t nextAsked_ = 0;             ///< those before are behind the pass
    int unanswered_ = 0;                    ///< passes in a row
    std::vector<std::int32_t> pids_;
    std::vector<ProcessRecord> rows_; ///< ascending by pid, as states_
    std::vector<State> states_;
    std::string names_;
    std::vector<ProcessRecord> previousRows_;
    std::vector<State> previousStates_;
    std::string previousNames_;
    ProcessUnits units_;
};

} // namespace meridal
