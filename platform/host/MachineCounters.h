// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// What processors have spent their time on since the boot, ns. A state that the system does not tell apart is absent.
struct ProcessorTimes {
    std::uint64_t userNs = 0; ///< guests of virtual machines included
    std::uint64_t niceNs = 0;
    std::uint64_t systemNs = 0;
    std::uint64_t idleNs = 0;
    std::optional<std::uint64_t> ioWaitNs = {}; ///< idle with a request to a disk under way; may go back a little
    std::optional<std::uint64_t> interruptNs = {};
    std::optional<std::uint64_t> stealNs = {}; ///< taken by other guests of the same host
    bool operator==(const ProcessorTimes&) const = default;
};

struct ProcessorRecord {
    int number = 0; ///< as the system counts them; one that is offline is missing
    ProcessorTimes times;
    bool operator==(const ProcessorRecord&) const = default;
};

struct ProcessorReading {
    ProcessorTimes all = {};
    std::vector<ProcessorRecord> each = {}; ///< by number
    // Means of the runnable and blocked over time
    std::optional<double> load1Minute = {};
    std::optional<double> load5Minutes = {};
    std::optional<double> load15Minutes = {};
    // Tasks now
    std::optional<std::uint32_t> runnableTasks = {};
    std::optional<std::uint32_t> blockedTasks = {}; ///< waiting for a disk
    // Since the boot
    std::optional<std::uint64_t> contextSwitches = {};
    std::optional<std::uint64_t> interrupts = {};
    std::optional<std::uint64_t> forks = {};
    bool operator==(const ProcessorReading&) const = default;
};

/// What the system itself says of how short memory is.
enum class MemoryPressureLevel { Normal, Warning, Critical };

/// Bytes unless said otherwise.
struct MemoryReading {
    std::uint64_t total = 0;
    std::uint64_t available = 0; ///< what programs could get without swapping
    std::uint64_t free = 0;      ///< used by nothing
    std::optional<std::uint64_t> buffers = {};
    std::optional<std::uint64_t> cached = {}; ///< file contents, those shared in memory included
    std::optional<std::uint64_t> shared = {}; ///< tmpfs and shared memory
    std::optional<std::uint64_t> slabReclaimable = {};
    std::optional<std::uint64_t> slabUnreclaimable = {};
    std::optional<std::uint64_t> dirty = {};
    std::optional<std::uint64_t> writeback = {};
    std::optional<std::uint64_t> wired = {};      ///< macOS: cannot be moved out
    std::optional<std::uint64_t> compressed = {}; ///< what the compressed store takes: zswap, macOS's compressor
    std::optional<std::uint64_t> compressedContents = {}; ///< what is in that store, as large as it was before
    std::optional<std::uint64_t> ramDisks = {};           ///< what compressed RAM disks (zram) take
    std::optional<std::uint64_t> ramDiskContents = {};
    std::optional<std::uint64_t> hugePages = {};     ///< set aside for them
    std::optional<std::uint64_t> hugePagesFree = {}; ///< of those, the ones that nobody uses
    std::optional<MemoryPressureLevel> pressureLevel = {};
    std::uint64_t swapTotal = 0;
    std::uint64_t swapUsed = 0;
    // Since the boot
    std::optional<std::uint64_t> swappedIn = {};
    std::optional<std::uint64_t> swappedOut = {};
    std::optional<std::uint64_t> outOfMemoryKills = {}; ///< processes
    bool operator==(const MemoryReading&) const = default;
};

/// A process that the kernel killed for want of memory.
struct MemoryKill {
    std::uint64_t number = 0; ///< grows with each: when the kernel told of it, µs since the boot
    double monotonicTime = 0; ///< s
    std::int32_t pid = 0;
    std::string name;                        ///< valid UTF-8, as short as the kernel keeps it
    std::optional<std::uint32_t> uid = {};   ///< its owner
    std::optional<std::string> cgroup = {};  ///< the control group that it was in, valid UTF-8
    std::optional<std::uint64_t> bytes = {}; ///< of memory that it held
    bool operator==(const MemoryKill&) const = default;
};

/// For how long tasks have waited for something since the boot, ns.
struct Stall {
    std::uint64_t someNs = 0;                 ///< at least one waited
    std::optional<std::uint64_t> fullNs = {}; ///< all that were not idle waited
    bool operator==(const Stall&) const = default;
};

struct PressureReading {
    std::optional<Stall> processor = {};
    std::optional<Stall> memory = {};
    std::optional<Stall> storage = {};
    bool operator==(const PressureReading&) const = default;
};

enum class BlockDeviceKind {
    Disk,
    Partition,
    Mapped, ///< made of others: device mapper, RAID
    Memory, ///< loop, RAM and compressed RAM disks
};

/// A block device and what it did since it is there.
struct BlockDeviceRecord {
    std::string name; ///< "nvme0n1"; valid UTF-8
    BlockDeviceKind kind = BlockDeviceKind::Disk;
    std::uint64_t identity = 0; ///< another one, when a device was replugged under the same name
    std::uint64_t reads = 0;    ///< requests done
    std::uint64_t readBytes = 0;
    std::uint64_t readNs = 0; ///< sum over requests, from queue to end
    std::uint64_t writes = 0;
    std::uint64_t writtenBytes = 0;
    std::uint64_t writeNs = 0;
    std::optional<std::uint64_t> underWay = {}; ///< requests now
    std::optional<std::uint64_t> busyNs = {};   ///< with at least one under way
    bool operator==(const BlockDeviceRecord&) const = default;
};

/// The machine's own figures, as cumulative as the system keeps them. A question that cannot be answered now is absent as
/// a whole; the next may be. What is returned is valid until the same question is asked again. Main queue only.
/// Linux: /proc/stat, loadavg, meminfo, vmstat, pressure, diskstats; cpufreq, zram; the kernel's log, its own or the journal's. macOS: host_processor_info,
/// host_statistics64, getloadavg, vm.swapusage, IOBlockStorageDriver.
class MachineCounters {
public:
    /// Is called on the main queue, at once or later.
    using Kills = std::function<void(std::vector<MemoryKill> kills)>;

    virtual ~MachineCounters() = default;
    virtual const ProcessorReading* processors() = 0;
    /// How fast one processor runs now. Asking may disturb one that rests, so for who asks and not for the record.
    virtual std::optional<std::uint64_t> frequencyHz(int processor) = 0;
    virtual const MemoryReading* memory() = 0;
    /// Who was killed for want of memory since the last question; at the first since the boot, as far as the system still
    /// knows. For when the count has moved, one question at a time. The system may write of a kill a little later than it
    /// counts it.
    virtual void memoryKills(Kills reply) = 0;
    /// Absent on systems that do not account for it.
    virtual const PressureReading* pressure() = 0;
    /// In an order that stays.
    virtual const std::vector<BlockDeviceRecord>* blockDevices() = 0;
};

} // namespace meridal
