// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include "base/Text.h"
#include "base/Value.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/IORegistryObject.h"
#include "platform/macos/kernel/MachPort.h"
#include "platform/macos/kernel/SystemSettings.h"

#include <IOKit/IOBSD.h>
#include <IOKit/storage/IOBlockStorageDriver.h>
#include <mach/mach.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace meridal {

namespace {

constexpr std::uint64_t nsPerSecond = 1'000'000'000;

/// Gives back what a call has allocated in this task.
struct KernelArray {
    ~KernelArray()
    {
        if (words) {
            vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(words), count * sizeof(*words));
        }
    }
    processor_info_array_t words = nullptr;
    mach_msg_type_number_t count = 0;
};

void add(ProcessorTimes& sum, const ProcessorTimes& one)
{
    sum.userNs += one.userNs;
    sum.niceNs += one.niceNs;
    sum.systemNs += one.systemNs;
    sum.idleNs += one.idleNs;
}

/// What a processor has spent in each state, in ticks. The kernel's counts have 32 bits and start again after 497 days.
class LongTicks {
public:
    explicit LongTicks(const processor_cpu_load_info& load) : last_(load)
    {
        std::copy(std::begin(load.cpu_ticks), std::end(load.cpu_ticks), sums_.begin());
    }
    void follow(const processor_cpu_load_info& load)
    {
        for (std::size_t state = 0; state < sums_.size(); ++state) {
            // Signed: a count that is estimated may go back by a tick, too.
            sums_[state] += static_cast<std::int32_t>(load.cpu_ticks[state] - last_.cpu_ticks[state]);
        }
        last_ = load;
    }
    std::uint64_t in(int state) const { return static_cast<std::uint64_t>(sums_[static_cast<std::size_t>(state)]); }

private:
    processor_cpu_load_info last_;
    std::array<std::int64_t, CPU_STATE_MAX> sums_{};
};

/// The kernel's word of how short memory is: 1, 2 or 4.
std::optional<MemoryPressureLevel> pressureLevel()
{
    switch (systemSettingInteger("kern.memorystatus_vm_pressure_level").value_or(0)) {
    case 1:
        return MemoryPressureLevel::Normal;
    case 2:
        return MemoryPressureLevel::Warning;
    case 4:
        return MemoryPressureLevel::Critical;
    default:
        return std::nullopt;
    }
}

class MacMachineCounters final : public MachineCounters {
public:
    const ProcessorReading* processors() override;
    /// No interface of the system tells.
    std::optional<std::uint64_t> frequencyHz(int) override { return std::nullopt; }
    const MemoryReading* memory() override;
    /// The system asks programs to end, or ends them, and says who it was in its own reports only.
    void memoryKills(Kills reply) override { reply({}); }
    /// The system keeps no such account.
    const PressureReading* pressure() override { return nullptr; }
    const std::vector<BlockDeviceRecord>* blockDevices() override;

private:
    /// The host's port, a reference each time it is asked for.
    const MachPort host_{mach_host_self()};
    const std::uint64_t tickNs_ = nsPerSecond / static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    std::vector<LongTicks> ticks_; ///< by number
    ProcessorReading processors_;
    MemoryReading memory_;
    std::vector<BlockDeviceRecord> blockDevices_;
};

const ProcessorReading* MacMachineCounters::processors()
{
    natural_t count = 0;
    KernelArray array;
    if (host_processor_info(host_.name(), PROCESSOR_CPU_LOAD_INFO, &count, &array.words, &array.count)
        != KERN_SUCCESS) {
        return nullptr;
    }
    const auto* loads = reinterpret_cast<const processor_cpu_load_info*>(array.words);
    processors_ = {};
    for (natural_t number = 0; number < count; ++number) {
        if (number < ticks_.size()) {
            ticks_[number].follow(loads[number]);
        } else {
            ticks_.emplace_back(loads[number]);
        }
        const auto time = [&](int state) { return tickNs_ * ticks_[number].in(state); };
        ProcessorRecord& processor = processors_.each.emplace_back();
        processor.number = static_cast<int>(number);
        processor.times = {.userNs = time(CPU_STATE_USER),
            .niceNs = time(CPU_STATE_NICE),
            .systemNs = time(CPU_STATE_SYSTEM),
            .idleNs = time(CPU_STATE_IDLE)};
        add(processors_.all, processor.times);
    }
    std::array<double, 3> loadAverages{};
    if (getloadavg(loadAverages.data(), static_cast<int>(loadAverages.size())) == 3) {
        processors_.load1Minute = loadAverages[0];
        processors_.load5Minutes = loadAverages[1];
        processors_.load15Minutes = loadAverages[2];
    }
    return &processors_;
}

const MemoryReading* MacMachineCounters::memory()
{
    vm_statistics64_data_t pages{};
    mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
    const auto total = systemSettingInteger("hw.memsize");
    if (!total
        || host_statistics64(host_.name(), HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&pages), &count)
            != KERN_SUCCESS) {
        return nullptr;
    }
    const std::uint64_t pageSize = vm_kernel_page_size;
    memory_ = {};
    memory_.total = *total;
    memory_.free = (pages.free_count - std::min(pages.free_count, pages.speculative_count)) * pageSize;
    memory_.cached = (std::uint64_t{pages.external_page_count} + pages.purgeable_count) * pageSize;
    memory_.available = memory_.free + *memory_.cached;
    memory_.wired = pages.wire_count * pageSize;
    memory_.compressed = pages.compressor_page_count * pageSize;
    memory_.compressedContents = pages.total_uncompressed_pages_in_compressor * pageSize;
    memory_.pressureLevel = pressureLevel();
    memory_.swappedIn = pages.swapins * pageSize;
    memory_.swappedOut = pages.swapouts * pageSize;
    xsw_usage swap{};
    std::size_t size = sizeof swap;
    if (sysctlbyname("vm.swapusage", &swap, &size, nullptr, 0) == 0 && size == sizeof swap) {
        memory_.swapTotal = swap.xsu_total;
        memory_.swapUsed = swap.xsu_used;
    }
    return &memory_;
}

/// A driver's account of one disk; its times are in ns.
BlockDeviceRecord recordOf(io_registry_entry_t driver)
{
    BlockDeviceRecord record;
    IORegistryEntryGetRegistryEntryID(driver, &record.identity);
    const CFRef<CFTypeRef> name(IORegistryEntrySearchCFProperty(
        driver, kIOServicePlane, CFSTR(kIOBSDNameKey), kCFAllocatorDefault, kIORegistryIterateRecursively));
    record.name = validUtf8(textOf(name.get()).value_or(""));
    const CFRef<CFTypeRef> property(IORegistryEntryCreateCFProperty(
        driver, CFSTR(kIOBlockStorageDriverStatisticsKey), kCFAllocatorDefault, kNilOptions));
    const Value statistics = valueOf(property.get());
    const auto figure = [&](const char* key) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(integer(statistics, key).value_or(0), 0));
    };
    record.reads = figure(kIOBlockStorageDriverStatisticsReadsKey);
    record.readBytes = figure(kIOBlockStorageDriverStatisticsBytesReadKey);
    record.readNs = figure(kIOBlockStorageDriverStatisticsTotalReadTimeKey);
    record.writes = figure(kIOBlockStorageDriverStatisticsWritesKey);
    record.writtenBytes = figure(kIOBlockStorageDriverStatisticsBytesWrittenKey);
    record.writeNs = figure(kIOBlockStorageDriverStatisticsTotalWriteTimeKey);
    return record;
}

const std::vector<BlockDeviceRecord>* MacMachineCounters::blockDevices()
{
    io_iterator_t found = IO_OBJECT_NULL;
    if (IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching(kIOBlockStorageDriverClass), &found)
        != KERN_SUCCESS) {
        return nullptr;
    }
    const IOObjectOwner iterator(found);
    blockDevices_.clear();
    while (const IOObjectOwner driver{IOIteratorNext(iterator.get())}) {
        BlockDeviceRecord record = recordOf(driver.get());
        if (!record.name.empty()) { // a card reader without a card
            blockDevices_.push_back(std::move(record));
        }
    }
    std::sort(blockDevices_.begin(), blockDevices_.end(),
        [](const auto& first, const auto& second) { return first.name < second.name; });
    return &blockDevices_;
}

} // namespace

std::unique_ptr<MachineCounters> makeMacMachineCounters() { return std::make_unique<MacMachineCounters>(); }

} // namespace meridal
