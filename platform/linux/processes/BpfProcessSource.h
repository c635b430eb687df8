// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/ProcessSource.h"
#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/processes/BpfEndedProcesses.h"
#include "platform/linux/processes/BpfProcessReader.h"
#include "platform/linux/processes/ProcFigures.h"
#include "platform/linux/processes/ProcProcessSource.h"
#include "platform/linux/processes/ProcessUnits.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// The process table as the kernel has it, out of a BPF program: no text, no file of a process, and all groups for the
/// price of one, but for Memory. Figures are those of /proc, with two differences: voluntary switches are those of all
/// threads of a process, ended ones included; and CPU time is not rounded to ticks. Full names and units still come from
/// /proc, once a process and once a cgroup.
class BpfProcessSource final : public ProcessSource {
public:
    /// `root` is the folder that holds proc and sys.
    BpfProcessSource(std::unique_ptr<BpfProcessReader> reader, const std::filesystem::path& root,
        std::shared_ptr<Limitations> limitations);

    std::span<const ProcessRecord> readProcesses(ProcessFields wanted) override;
    ProcessFields alongWith(ProcessFields wanted) const override;
    std::optional<std::string> commandName(std::int32_t pid) override;
    double timeBase() const override { return 1e9; }
    bool interruptsApart() const override { return proc::countsInterruptsApart(root_); }
    double cpuResolution() const override; ///< a thread that runs is brought up to date once a tick
    double startTime(std::uint64_t startIdentity) const override { return proc::startTime(startIdentity); }
    bool mayBeCut(std::size_t nameBytes) const override;
    std::optional<std::string> executablePath(std::int32_t pid, std::string_view name) override;
    std::string unitName(const ProcessUnit& unit) override { return units_.name(unit); }
    std::string unitIdentity(const ProcessUnit& unit) override { return units_.identity(unit); }
    std::optional<std::string> usualPath(std::string_view name) override { return units_.units()->programNamed(name); }
    /// Where the programs for that cannot be loaded the limitation "ended-processes" says why.
    bool keepEnded(bool wanted) override;
    std::span<const EndedRecord> takeEnded() override;
    std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit& unit) override
    {
        return units_.bundleLocation(pid, unit);
    }
    /// What the next pass uses; "proc" once the programs have failed several times in a row.
    std::string_view method() const override { return reader_ ? "bpf" : "proc"; }

    /// Why the latest pass had to do without the programs; empty when it did not.
    const std::string& problem() const { return problem_; }

    /// Forgets what figures were held at, as if the next pass were the first.
    void startAfresh() { kept_.clear(); }

    /// Processes that the kernel shows in /proc and keeps from BPF programs, ascending: they are read there. Hardened
    /// kernels have some.
    void setHidden(std::vector<std::int32_t> pids);

private:
    /// What is kept of a process from pass to pass.
    struct Kept {
        std::int32_t pid = 0;
        std::uint64_t start = 0;   ///< identity
        std::uint64_t cpuTime = 0; ///< highest figures given
        std::uint64_t cpuUser = 0;
        std::uint64_t written = 0;
    };

    /// The name of a kernel thread that does not fit into its record.
    struct ThreadName {
        std::uint64_t start = 0; ///< identity
        std::uint64_t pass = 0;  ///< the latest that it was there
        std::string name;
    };

    void sortByPid(std::span<const BpfProcess> processes);
    void addRow(const BpfProcess& process, const Kept* last, ProcessFields wanted);
    void addHidden(ProcessFields wanted);
    std::span<const ProcessRecord> readFiles(ProcessFields wanted);
    void noteFailure(const std::string& problem);
    std::string_view longNameOf(const BpfProcess& thread, std::uint64_t start);
    void forgetEndedThreads();

    std::span<const ProcessRecord> readRecords(ProcessFields wanted);
    bool isYoung(const ProcessRecord& row) const { return row.startIdentity >= bornBefore_ / tick_; }

    std::unique_ptr<BpfProcessReader> reader_; ///< null when it was given up
    std::filesystem::path root_;
    ProcFolder folder_;
    std::shared_ptr<Limitations> limitations_;
    std::unique_ptr<ProcProcessSource> hidden_; ///< null as a rule
    std::uint64_t tick_;                        ///< ns
    std::uint64_t bornBefore_;                  ///< ns since boot: who is younger is left to the next pass
    std::uint64_t pageSize_;                    ///< bytes
    std::uint64_t pass_ = 0;
    int failures_ = 0; ///< passes in a row without the programs
    std::string problem_;
    std::unique_ptr<ProcProcessSource> files_; ///< for those; null as a rule

    std::vector<const BpfProcess*> order_; ///< ascending by pid, as rows_ and kept_
    std::vector<ProcessRecord> rows_;
    std::vector<Kept> kept_;
    std::vector<ProcessUnits::Place> places_; ///< by row, before the hidden ones join in
    ProcessUnits units_;
    std::unique_ptr<BpfEndedProcesses> ended_;       ///< null unless wanted and to be had
    std::map<std::int32_t, ThreadName> threadNames_; ///< by pid
    std::size_t longNames_ = 0;                      ///< in the latest pass
};

} // namespace meridal
