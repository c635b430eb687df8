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
#include <cerrno>
#include <cstring>
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

/// Room for one name of the table, which need not end in a NUL.
using NameBytes = std::array<char, sizeof(proc_bsdinfo::pbi_name)>;
/// Bytes at which the kernel cuts the two names. The last byte of the long one is always a NUL.
constexpr std::size_t commandLimit = MAXCOMLEN;
constexpr std::size_t longNameLimit = sizeof(proc_bsdinfo::pbi_name) - 1;

template <std::size_t Size>
std::string_view copyName(const char (&field)[Size], NameBytes& room)
{
    const std::size_t length = strnlen(field, std::min(Size, room.size()));
    std::memcpy(room.data(), field, length);
    return {room.data(), length};
}

std::uint64_t startOf(const kinfo_proc& entry)
{
    const timeval& start = entry.kp_proc.p_starttime;
    return static_cast<std::uint64_t>(start.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(start.tv_usec);
}

/// What the kernel's table has, which everybody may read.
void fillIdentity(const kinfo_proc& entry, NameBytes& name, ProcessRecord& record)
{
    record.pid = entry.kp_proc.p_pid;
    record.parentPid = entry.kp_eproc.e_ppid;
    record.status = entry.kp_proc.p_stat == SZOMB ? ProcessStatus::Zombie : ProcessStatus::Alive;
    record.startIdentity = startOf(entry);
    record.name = copyName(entry.kp_proc.p_comm, name);
    record.isKernelThread = record.pid == 0; // kernel_task
    record.state = entry.kp_proc.p_stat == SSTOP ? RunState::Stopped : RunState::Unknown;
    record.nice = static_cast<std::int8_t>(entry.kp_proc.p_nice);
    record.user = entry.kp_eproc.e_ucred.cr_uid;
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

/// Absent when it ended, or is the kernel.
std::optional<std::string> pathOf(std::int32_t pid)
{
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> path;
    const int length = proc_pidpath(pid, path.data(), path.size());
    return length > 0 ? std::optional(std::string(path.data(), static_cast<std::size_t>(length))) : std::nullopt;
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
    bool mayBeCut(std::size_t nameBytes) const override
    {
        return nameBytes == commandLimit || nameBytes == longNameLimit;
    }
    std::optional<std::string> executablePath(std::int32_t pid, std::string_view name) override;
    std::optional<std::int32_t> responsiblePid(std::int32_t pid) override;
    std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit& unit) override;

private:
    using ResponsiblePid = std::int32_t (*)(std::int32_t);

    std::span<const kinfo_proc> listProcesses();
    bool readProcess(const kinfo_proc& entry, ProcessFields wanted, NameBytes& name, ProcessRecord& record) const;
    void readUsage(ProcessFields wanted, ProcessRecord& record) const;

    const bool hasUsageVersion3_; ///< from 10.12 on
    const double timeBase_;
    const ResponsiblePid responsiblePid_;
    std::vector<kinfo_proc> table_; ///< kept for its memory
    std::vector<NameBytes> names_;  // one a row, in the same order; the rows' names are views into it
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
    const std::span<const kinfo_proc> table = listProcesses();
    rows_.clear();
    rows_.reserve(table.size());
    if (names_.size() < table.size()) {
        names_.resize(table.size()); // before the pass: the rows hold views into it
    }
    for (const kinfo_proc& entry : table) {
        ProcessRecord record;
        if (readProcess(entry, wanted, names_[rows_.size()], record)) {
            rows_.push_back(record);
        }
    }
    return rows_;
}

/// The kernel's own table, and not a list of pids to ask for: an ordinary user is refused other users' processes one by one.
std::span<const kinfo_proc> LibprocProcessSource::listProcesses()
{
    std::array<int, 3> name = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    constexpr int mostAttempts = 8;
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        std::size_t bytes = 0;
        if (sysctl(name.data(), name.size(), nullptr, &bytes, nullptr, 0) != 0) {
            return {};
        }
        // As many as the kernel says now, and a few more each time, but no multiple: the error may have another cause.
        const std::size_t toSpare = std::size_t{1} << attempt;
        table_.resize(std::max(table_.size(), bytes / sizeof(kinfo_proc) + toSpare));
        bytes = table_.size() * sizeof(kinfo_proc);
        if (sysctl(name.data(), name.size(), table_.data(), &bytes, nullptr, 0) == 0) {
            return std::span(table_).first(bytes / sizeof(kinfo_proc));
        }
        if (errno != ENOMEM) {
            return {};
        } // else processes were born since the estimate
    }
    return {};
}

bool LibprocProcessSource::readProcess(
    const kinfo_proc& entry, ProcessFields wanted, NameBytes& name, ProcessRecord& record) const
{
    fillIdentity(entry, name, record);
    if (record.status == ProcessStatus::Zombie) {
        return true; // it has no task left to ask
    }
    proc_taskallinfo info{};
    if (proc_pidinfo(record.pid, PROC_PIDTASKALLINFO, 0, &info, sizeof(info)) < taskAllInfoBytes) {
        return errno
            == EPERM; // another user's, of which there is no more to be had; else it ended since the list was made
    }
    if (info.pbsd.pbi_name[0] != '\0') {
        record.name = copyName(info.pbsd.pbi_name, name); // the better one
    }
    record.state = runStateOf(info);
    record.threads = static_cast<std::uint32_t>(info.ptinfo.pti_threadnum);
    readUsage(wanted, record);
    if (has(wanted, ProcessFields::Memory)) {
        if (const auto memory = readTaskMemory(record.pid)) {
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
    std::array<int, 4> question = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    kinfo_proc entry{};
    std::size_t bytes = sizeof(entry);
    if (sysctl(question.data(), question.size(), &entry, &bytes, nullptr, 0) != 0 || bytes < sizeof(entry)
        || entry.kp_proc.p_stat == SZOMB) {
        return std::nullopt;
    }
    NameBytes name{};
    proc_bsdinfo info{};
    if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof(info)) >= bsdInfoBytes && info.pbi_name[0] != '\0') {
        return std::string(copyName(info.pbi_name, name));
    }
    return std::string(copyName(entry.kp_proc.p_comm, name));
}

/// As it was given to exec; else as the kernel knows it, which it also tells of other users' processes.
std::optional<std::string> LibprocProcessSource::executablePath(std::int32_t pid, std::string_view)
{
    const auto area = readArgumentArea(pid);
    if (const auto path = executablePathOfProcArgs(area.text)) {
        return std::string(*path);
    }
    return pathOf(pid);
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
    const auto path = pathOf(pid);
    return path ? std::optional(std::string(applicationOfProgram(*path))) : std::nullopt;
}

std::unique_ptr<ProcessSource> makeLibprocProcessSource(const SystemRelease& release, Limitations& limitations)
{
    return std::make_unique<LibprocProcessSource>(release, limitations);
}

} // namespace meridal
