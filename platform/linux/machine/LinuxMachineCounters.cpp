// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxMachineCounters.h"

#include "base/Text.h"
#include "platform/linux/machine/MachineParsers.h"

#include <fmt/format.h>

#include <algorithm>
#include <unistd.h>

namespace meridal {

namespace {

constexpr std::uint64_t nsPerSecond = 1'000'000'000;
constexpr std::uint64_t hertzPerKilohertz = 1000;
constexpr std::uint64_t ownNumber = 1ULL << 63; ///< apart from those that the kernel gives

/// Of devices that hold what they have in memory, or in a file of another one.
bool isMemory(std::string_view name)
{
    return name.starts_with("loop") || name.starts_with("ram") || name.starts_with("zram");
}

bool isMapped(std::string_view name) { return name.starts_with("dm-") || name.starts_with("md"); }

} // namespace

LinuxMachineCounters::LinuxMachineCounters(Runtime& runtime, const std::filesystem::path& root)
    : root_(root)
    , tickNs_(nsPerSecond / static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK)))
    , pageSize_(static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)))
    , stat_(root / "proc/stat")
    , loads_(root / "proc/loadavg")
    , memoryInfo_(root / "proc/meminfo")
    , pageCounts_(root / "proc/vmstat")
    , processorStalls_(root / "proc/pressure/cpu")
    , memoryStalls_(root / "proc/pressure/memory")
    , storageStalls_(root / "proc/pressure/io")
    , disks_(root / "proc/diskstats")
    , killLog_(runtime, root)
{
}

const ProcessorReading* LinuxMachineCounters::processors()
{
    const auto text = stat_.read();
    if (!text || !proc::parseMachineStat(*text, tickNs_, processors_)) {
        return nullptr;
    }
    proc::parseLoadAverages(loads_.read().value_or(""), processors_);
    return &processors_;
}

std::optional<std::uint64_t> LinuxMachineCounters::frequencyHz(int processor)
{
    auto known = frequencies_.find(processor);
    if (known == frequencies_.end()) {
        const auto path = root_.path(fmt::format("sys/devices/system/cpu/cpu{}/cpufreq/scaling_cur_freq", processor));
        known = frequencies_.emplace(processor, KeptFile(path)).first;
    }
    const auto text = known->second.read();
    const auto kilohertz = leadingNumber(text.value_or(""));
    return kilohertz ? std::optional(*kilohertz * hertzPerKilohertz) : std::nullopt;
}

const MemoryReading* LinuxMachineCounters::memory()
{
    memory_ = {};
    const auto text = memoryInfo_.read();
    if (!text || !proc::parseMemoryInfo(*text, memory_)) {
        return nullptr;
    }
    proc::parsePageCounts(pageCounts_.read().value_or(""), pageSize_, memory_);
    readRamDisks();
    return &memory_;
}

void LinuxMachineCounters::readRamDisks()
{
    for (auto& [name, file] : ramDisks_) {
        proc::parseRamDisk(file.read().value_or(""), memory_);
    }
}

const PressureReading* LinuxMachineCounters::pressure()
{
    pressure_.processor = proc::parseStall(processorStalls_.read().value_or(""));
    pressure_.memory = proc::parseStall(memoryStalls_.read().value_or(""));
    pressure_.storage = proc::parseStall(storageStalls_.read().value_or(""));
    return pressure_ == PressureReading() ? nullptr : &pressure_;
}

const std::vector<BlockDeviceRecord>* LinuxMachineCounters::blockDevices()
{
    auto text = disks_.read();
    if (!text) {
        return nullptr;
    }
    blockDevices_.clear();
    for (auto& [number, device] : devices_) {
        device.isThere = false;
    }
    while (auto line = proc::nextDiskLine(*text)) {
        const Device& device = deviceFor(line->major, line->minor, line->name);
        BlockDeviceRecord& record = blockDevices_.emplace_back(std::move(line->figures));
        record.name = device.name;
        record.kind = device.kind;
        record.identity = device.identity;
    }
    std::erase_if(devices_, [](const auto& entry) { return !entry.second.isThere; });
    std::erase_if(ramDisks_, [this](const auto& entry) {
        return std::none_of(blockDevices_.begin(), blockDevices_.end(),
            [&](const BlockDeviceRecord& record) { return record.name == entry.first; });
    });
    return &blockDevices_;
}

const LinuxMachineCounters::Device& LinuxMachineCounters::deviceFor(
    std::uint32_t major, std::uint32_t minor, std::string_view name)
{
    Device& device = devices_[std::uint64_t{major} << 32 | minor];
    // One that was away for a whole reading may be another one under its number; one that was not is itself.
    if (device.name != name) {
        device = lookAt(name);
        if (device.identity == 0) {
            device.identity = ++devicesSeen_ | ownNumber;
        }
    }
    device.isThere = true;
    return device;
}

LinuxMachineCounters::Device LinuxMachineCounters::lookAt(std::string_view name)
{
    using enum BlockDeviceKind;
    const std::string folder = fmt::format("sys/class/block/{}/", name);
    Device device{.name = validUtf8(std::string(name)), .kind = Disk, .identity = 0, .isThere = true};
    device.kind = root_.exists(folder + "partition") ? Partition
        : isMapped(name)                             ? Mapped
        : isMemory(name)                             ? Memory
                                                     : Disk;
    if (name.starts_with("zram")) {
        ramDisks_.insert_or_assign(device.name, KeptFile(root_.path(fmt::format("sys/block/{}/mm_stat", name))));
    }
    // Counted up by the kernel with each device that comes: since Linux 5.15.
    device.identity = leadingNumber(root_.readLine(folder + "diskseq").value_or("")).value_or(0);
    return device;
}

} // namespace meridal
