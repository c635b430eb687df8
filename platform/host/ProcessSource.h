// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/EndedProcesses.h"
#include "platform/host/ProcessUnit.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace meridal {

/// Groups of figures in a ProcessRecord. Identity and names are always filled.
enum class ProcessFields : std::uint8_t {
    None = 0,
    Cpu = 1,
    Memory = 2,
    Disk = 4,
    Wakeups = 8,
    All = 15,
};

constexpr ProcessFields operator|(ProcessFields a, ProcessFields b)
{
    return static_cast<ProcessFields>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr ProcessFields operator&(ProcessFields a, ProcessFields b)
{
    return static_cast<ProcessFields>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
constexpr ProcessFields& operator|=(ProcessFields& a, ProcessFields b) { return a = a | b; }
constexpr ProcessFields without(ProcessFields set, ProcessFields removed)
{
    return static_cast<ProcessFields>(static_cast<std::uint32_t>(set) & ~static_cast<std::uint32_t>(removed));
}
constexpr bool has(ProcessFields set, ProcessFields wanted) { return (set & wanted) == wanted; }

enum class ProcessStatus : std::uint8_t { Alive, Zombie };

/// What a process does, by its main thread, as far as the host tells.
enum class RunState : std::uint8_t {
    Unknown,
    Running,  ///< on a processor, or waiting for one
    Sleeping, ///< until something happens
    DiskWait, ///< likewise, and no signal wakes it: mostly storage
    Idle,     ///< a kernel thread without work
    Stopped,  ///< by a signal
    Traced,   ///< by a debugger
};

/// One process as the kernel reports it. Counters are cumulative since it started. Bytes unless said otherwise.
struct ProcessRecord {
    std::int32_t pid = 0;
    std::int32_t parentPid = 0;
    ProcessStatus status = ProcessStatus::Alive;
    ProcessFields present = ProcessFields::None; ///< which groups below were read; the others are to be ignored
    std::uint64_t startIdentity = 0; ///< the kernel's start time in its own unit; with pid, the identity of the process
    std::string_view name;           ///< raw bytes, possibly cut or empty; valid until the next pass
    ProcessUnit unit = {};           ///< as of this pass: processes are moved
    bool isKernelThread = false;     ///< or the kernel itself, where that is a process
    RunState state = RunState::Unknown;
    std::int8_t nice = 0;                             ///< from -20, served first, to 19
    std::uint32_t threads = 0;                        ///< 0 where it was not told
    std::optional<std::uint32_t> user = std::nullopt; ///< whose rights it has; absent where this pass did not read it

    // Cpu
    std::uint64_t cpuTime = 0; ///< units of ProcessSource::timeBase(), ended threads included
    std::uint64_t cpuUser = 0; ///< of it, what was not spent in the kernel; as exact as the system tells them apart
    std::uint64_t childCpuTime = 0; ///< of children that it has waited for and of theirs; 0 where nobody needs it
    std::uint64_t childCpuUser = 0; ///< likewise
    // Memory
    std::uint64_t physFootprint = 0;     ///< what the process costs in memory, as the system itself counts it
    std::uint64_t anonymous = 0;         ///< resident private memory without a file behind it
    std::uint64_t purgeableVolatile = 0; ///< of that, what the system may drop; 0 where there is no such thing
    std::uint64_t compressed = 0;        ///< moved out of memory: the compressor (macOS), swap (Linux)
    std::uint64_t residentSize = 0;
    // Disk
    std::uint64_t diskBytesRead = 0;
    std::uint64_t diskBytesWritten = 0;
    // Wakeups
    std::uint64_t idleWakeups = 0; ///< package idle wake-ups (macOS), voluntary context switches (Linux)
};

/// The process table of this host. Used on one queue at a time.
/// macOS: kern.proc.all, proc_pidinfo, proc_pid_rusage, task_info. Linux: /proc.
class ProcessSource {
public:
    virtual ~ProcessSource() = default;

    /// One pass over all processes; only the groups wanted cost anything. Rows and the names in them stay valid until
    /// the next call. A process that vanishes meanwhile is left out; one whose group could not be read lacks that group
    /// in `present`. Empty when the table itself could not be read: a host always has at least one process.
    virtual std::span<const ProcessRecord> readProcesses(ProcessFields wanted) = 0;

    /// These groups, and those that a pass gets at no further cost when it reads them.
    virtual ProcessFields alongWith(ProcessFields wanted) const { return wanted; }

    /// What the table would give as the name of a process, asked for by itself: for one that is younger than the latest
    /// pass. Absent when there is none, or when it has ended.
    virtual std::optional<std::string> commandName(std::int32_t pid) = 0;

    /// Units of CPU time in one second; 0 when the host does not tell.
    virtual double timeBase() const = 0;
    /// Seconds of CPU time by which the counters move at least (a clock tick); 0 when they are exact. Two readings
    /// closer together than a few of these say nothing about the rate between them.
    virtual double cpuResolution() const = 0;
    /// When a process started, s since 1970; 0 when that cannot be told.
    virtual double startTime(std::uint64_t) const { return 0; }
    /// Whether the kernel may have cut a name of so many bytes: one of 15 on Linux; on macOS of 16 (command names) and 31.
    virtual bool mayBeCut(std::size_t nameBytes) const = 0;

    /// A path whose last component is the full name of the program that a process runs. `name` is what the table says.
    /// Raw bytes. Absent when the process is gone, has no such thing (kernel threads) or may not be asked.
    virtual std::optional<std::string> executablePath(std::int32_t pid, std::string_view name) = 0;

    /// The process that the system holds responsible for this one: the app of a helper. Absent when the host has no
    /// such notion or does not know. macOS: responsibility_get_pid_responsible_for_pid. Linux: ProcessRecord::unit
    /// tells more.
    virtual std::optional<std::int32_t> responsiblePid(std::int32_t) { return std::nullopt; }

    /// What people call a unit: the name or short id of a container, the application of a sandbox. Valid UTF-8. Empty where
    /// the name of its first process is as good.
    virtual std::string unitName(const ProcessUnit&) { return {}; }

    /// What a unit is known by over restarts and reboots: "unit:getty@.service", "app:firefox", "container:web". Valid UTF-8.
    /// Empty where it has no such name: the path of its program is as good.
    virtual std::string unitIdentity(const ProcessUnit&) { return {}; }

    /// Where an application that a process belongs to is to be found. macOS: the path of the outermost ".app" around its
    /// program. Linux: the name of its .desktop file, where its unit tells one. Elsewhere the path of the program. Raw
    /// bytes; absent when it cannot be told.
    virtual std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit& unit) = 0;

    /// Path of a program that nobody runs any more, by the name that a pass would give its process: where the system keeps
    /// programs. Absent when there is none of that name.
    virtual std::optional<std::string> usualPath(std::string_view) { return std::nullopt; }

    /// Begins or ends to keep what processes have used by their end. Answers whether this host can: where not, nothing is
    /// kept, and records tell of waited-for children.
    virtual bool keepEnded(bool) { return false; }
    /// What has been kept since the last call, after each pass. Valid until the next call or pass.
    virtual std::span<const EndedRecord> takeEnded() { return {}; }

    /// Which way of several that the host has this is, in a word for `status`: "proc", "bpf". Empty where there is one.
    virtual std::string_view method() const { return {}; }

    /// Whether time spent in interrupts is nobody's CPU time. Where not, it is that of whom they interrupted.
    virtual bool interruptsApart() const { return true; }
};

} // namespace meridal
