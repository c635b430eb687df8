// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/processes/MacAdapters.h"

#include "platform/formats/ProcArgs.h"
#include "platform/macos/kernel/KernelLayouts.h"
#include "platform/macos/kernel/SystemSettings.h"
#include "platform/macos/processes/ArgumentArea.h"
#include "platform/macos/processes/TaskMemory.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <tuple>
#include <type_traits>
#include <vector>

namespace meridal {

namespace {

static_assert(std::is_same_v<pid_t, std::int32_t>);

/// What one proc_pid_rusage tells.
constexpr ProcessFields usageGroups = ProcessFields::Cpu | ProcessFields::Disk | ProcessFields::Wakeups;

bool isAtLeast(const SystemRelease& release, int major, int minor)
{
    return std::tie(release.major, release.minor) >= std::tie(major, minor);
}

/// No header declares the function, and no file holds the library: since macOS 11 system libraries live in the loader's
/// shared cache, where opening by path still finds them. The handle stays open with the daemon.
void* findResponsiblePidFunction()
{
    void* library = dlopen("/usr/lib/system/libquarantine.dylib", RTLD_LAZY);
    return library ? dlsym(library, "responsibility_get_pid_responsible_for_pid") : nullptr;
}

/// The long name, which is the better one, or else the command name. A full field has no NUL.
std::string_view copyName(const proc_bsdinfo& info, std::span<char, sizeof(info.pbi_name)> room)
{
    std::size_t length = strnlen(info.pbi_name, sizeof(info.pbi_name));
    const char* field = info.pbi_name;
    if (length == 0) {
        length = strnlen(info.pbi_comm, sizeof(info.pbi_comm));
        field = info.pbi_comm;
    }
    std::memcpy(room.data(), field, length);
    return {room.data(), length};
}

RunState runStateOf(const proc_taskallinfo& info)
{
    if (info.pbsd.pbi_status == SSTOP) {
        return RunState::Stopped;
    }
    return info.ptinfo.pti_numrunning > 0 ? RunState::Running : RunState::Sleeping;
}

/// Fills the groups wanted; leaves them out when the kernel refuses.
template <typename Usage>
void readUsageRecord(int flavour, ProcessFields wanted, ProcessRecord& record)
{
    Usage usage{};
    // The declared parameter type is a pointer to a pointer; what the call wants is the record's address.
    if (proc_pid_rusage(record.pid, flavour, reinterpret_cast<rusage_info_t*>(&usage)) != 0) {
        return;
    }
    record.cpuTime = usage.ri_user_time + usage.ri_system_time;
    record.cpuUser = usage.ri_user_time;
    record.diskBytesRead = usage.ri_diskio_bytesread;
    record.diskBytesWritten = usage.ri_diskio_byteswritten;
    record.idleWakeups = usage.ri_pkg_idle_wkups;
    record.present |= wanted;
}

void fillMemory(const TaskMemory& memory, ProcessRecord& record)
{
    record.physFootprint = memory.physFootprint;
    record.anonymous = memory.anonymous;
    record.purgeableVolatile = memory.purgeableVolatile;
    record.compressed = memory.compressed;
    record.residentSize = memory.residentSize;
    record.present |= ProcessFields::Memory;
}

class LibprocProcessSource final : public ProcessSource {
public:
    LibprocProcessSource(SystemRelease release, Limitations& limitations);

    std::span<const ProcessRecord> readProcesses(ProcessFields wanted) override;
    ProcessFields alongWith(ProcessFields wanted) const override;
    std::optional<std::string> commandName(std::int32_t pid) override;
    double timeBase() const override { return timeBase_; }
    double cpuResolution() const override { return 0; }
    double startTime(std::uint64_t startIdentity) const override { return static_cast<double>(startIdentity) / 1e6; }
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

} // namespace

LibprocProcessSource::LibprocProcessSource(SystemRelease release, Limitations& limitations)
    : hasUsageVersion3_(isAtLeast(release, 10, 12))
    , timeBase_(static_cast<double>(systemSettingInteger("hw.tbfrequency").value_or(0)))
    , responsiblePid_(reinterpret_cast<ResponsiblePid>(findResponsiblePidFunction()))
{
    if (timeBase_ == 0) {
        limitations.set("cpu", "the system does not tell its CPU time base (hw.tbfrequency)");
    }
    if (!responsiblePid_) {
        limitations.set("responsible-pid", "the system has no look-up of responsible processes");
    }
}

std::span<const ProcessRecord> LibprocProcessSource::readProcesses(ProcessFields wanted)
{
    const std::span<const std::int32_t> pids = listPids();
    rows_.clear();
    rows_.reserve(pids.size());
    if (names_.size() < pids.size()) {
        names_.resize(pids.size()); // before the pass: the rows hold views into it
    }
    for (const std::int32_t pid : pids) {
        ProcessRecord record;
        if (readProcess(pid, wanted, names_[rows_.size()], record)) {
            rows_.push_back(record);
        }
    }
    return rows_;
}

std::span<const std::int32_t> LibprocProcessSource::listPids()
{
    const int estimate = proc_listallpids(nullptr, 0); // the number of processes and 20 more
    if (estimate <= 0) {
        return {};
    }
    pids_.resize(std::max(pids_.size(), static_cast<std::size_t>(estimate)));
    // A full buffer may have cut the table: processes were born since the estimate.
    constexpr std::size_t mostPids = std::numeric_limits<int>::max() / sizeof(std::int32_t) / 2;
    while (true) {
        const int written = proc_listallpids(pids_.data(), static_cast<int>(pids_.size() * sizeof(std::int32_t)));
        if (written <= 0) {
            return {};
        }
        const auto count = std::min(pids_.size(), static_cast<std::size_t>(written));
        if (count < pids_.size() || pids_.size() > mostPids) {
            return std::span(pids_).first(count);
        }
        pids_.resize(pids_.size() * 2);
    }
}

bool LibprocProcessSource::readProcess(
    std::int32_t pid, ProcessFields wanted, NameBytes& name, ProcessRecord& record) const
{
    proc_taskallinfo info{};
    if (proc_pidinfo(pid, PROC_PIDTASKALLINFO, 0, &info, sizeof(info)) < taskAllInfoBytes) {
        return false; // it ended since the list was made
    }
    record.pid = pid;
    record.parentPid = static_cast<std::int32_t>(info.pbsd.pbi_ppid);
    record.status = info.pbsd.pbi_status == SZOMB ? ProcessStatus::Zombie : ProcessStatus::Alive;
    record.startIdentity = info.pbsd.pbi_start_tvsec * 1'000'000 + info.pbsd.pbi_start_tvusec;
    record.name = copyName(info.pbsd, name.bytes);
    record.isKernelThread = pid == 0; // kernel_task
    record.nice = static_cast<std::int8_t>(info.pbsd.pbi_nice);
    record.user = info.pbsd.pbi_uid;
    if (record.status == ProcessStatus::Zombie) {
        return true; // it has no task left to ask
    }
    record.state = runStateOf(info);
    record.threads = static_cast<std::uint32_t>(info.ptinfo.pti_threadnum);
    readUsage(wanted, record);
    if (has(wanted, ProcessFields::Memory)) {
        if (const auto memory = readTaskMemory(pid)) {
            fillMemory(*memory, record);
        }
    }
    return true;
}

void LibprocProcessSource::readUsage(ProcessFields wanted, ProcessRecord& record) const
{
    const auto ofUsage = wanted & usageGroups;
    if (ofUsage == ProcessFields::None) {
        return;
    }
    if (hasUsageVersion3_) {
        readUsageRecord<rusage_info_v3>(RUSAGE_INFO_V3, ofUsage, record);
    } else {
        readUsageRecord<rusage_info_v2>(RUSAGE_INFO_V2, ofUsage, record);
    }
}

ProcessFields LibprocProcessSource::alongWith(ProcessFields wanted) const
{
    return (wanted & usageGroups) == ProcessFields::None ? wanted : wanted | usageGroups;
}

std::optional<std::string> LibprocProcessSource::commandName(std::int32_t pid)
{
    proc_bsdinfo info{};
    if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof(info)) < bsdInfoBytes || info.pbi_status == SZOMB) {
        return std::nullopt;
    }
    NameBytes name{};
    return std::string(copyName(info, name.bytes));
}

std::optional<std::string> LibprocProcessSource::executablePath(std::int32_t pid, std::string_view)
{
    const auto area = readArgumentArea(pid);
    const auto path = executablePathOfProcArgs(area.text);
    return path ? std::optional<std::string>(*path) : std::nullopt;
}

std::optional<std::int32_t> LibprocProcessSource::responsiblePid(std::int32_t pid)
{
    if (!responsiblePid_) {
        return std::nullopt;
    }
    const std::int32_t responsible = responsiblePid_(pid);
    return responsible > 0 ? std::optional(responsible) : std::nullopt;
}

std::optional<std::string> LibprocProcessSource::bundleLocation(std::int32_t pid, const ProcessUnit&)
{
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> path;
    const int length = proc_pidpath(pid, path.data(), path.size());
    if (length <= 0) {
        return std::nullopt; // it ended, or is the kernel
    }
    return std::string(applicationOfProgram({path.data(), static_cast<std::size_t>(length)}));
}

std::unique_ptr<ProcessSource> makeLibprocProcessSource(const SystemRelease& release, Limitations& limitations)
{
    return std::make_unique<LibprocProcessSource>(release, limitations);
}

} // namespace meridal
