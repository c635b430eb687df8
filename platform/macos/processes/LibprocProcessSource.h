#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/MachineInfo.h"
#include "platform/host/ProcessSource.h"

#include <vector>

namespace meridal {

/// The process table through libproc. A pass costs one proc_pidinfo a process; CPU, disk and wake-ups together one
/// proc_pid_rusage more, memory one task port and two task queries more. A pass over a table that has not grown allocates
/// nothing.
class LibprocProcessSource final : public ProcessSource {
public:
    LibprocProcessSource(SystemRelease release, Limitations& limitations);

    std::span<const ProcessRecord> readProcesses(ProcessFields wanted) override;
    ProcessFields alongWith(ProcessFields wanted) const override;
    std::optional<std::string> commandName(std::int32_t pid) override;
    double timeBase() const override { return timeBase_; }
    double cpuResolution() const override { return 0; }
    std::size_t nameLimit() const override { return 16; }
    std::optional<std::string> executablePath(std::int32_t pid, std::string_view name) override;
    std::optional<std::int32_t> responsiblePid(std::int32_t pid) override;
    std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit& unit) override;

private:
    using ResponsiblePid = std::int32_t (*)(std::int32_t);
    /// Room for one name of the table, which need not end in a NUL.
    struct NameBytes {
        char bytes[32];
    };

    std::span<const std::int32_t> listPids();
    bool readProcess(std::int32_t pid, ProcessFields wanted, NameBytes& name, ProcessRecord& record) const;
    void readUsage(ProcessFields wanted, ProcessRecord& record) const;

    const bool hasUsageVersion3_; ///< from 10.12 on
    const double timeBase_;
    const ResponsiblePid responsiblePid_;
    std::vector<std::int32_t> pids_;
    std::vector<NameBytes> names_; // one a row, in the same order; the rows' names are views into it
    std::vector<ProcessRecord> rows_;
};

} // namespace meridal
