// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include "base/Text.h"
#include "base/Value.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/IORegistryObject.h"

#include <IOKit/IOKitKeys.h>
#include <fmt/format.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace meridal {

namespace {

/// The first of these entries that is there and not negative.
std::optional<double> firstFigure(const Value& statistics, std::initializer_list<const char*> keys)
{
    for (const char* key : keys) {
        if (const auto figure = number(statistics, key); figure && *figure >= 0) {
            return figure;
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> asBytes(std::optional<double> figure)
{
    return figure ? std::optional(static_cast<std::uint64_t>(*figure)) : std::nullopt;
}

/// Drivers publish what they measure anyway: reading it asks nothing of the hardware.
GraphicsRecord graphicsRecordOf(io_registry_entry_t accelerator, std::size_t number)
{
    GraphicsRecord record;
    record.name = fmt::format("gpu{}", number);
    const CFRef<CFTypeRef> driver(
        IORegistryEntryCreateCFProperty(accelerator, CFSTR("IOClass"), kCFAllocatorDefault, kNilOptions));
    record.driver = validUtf8(textOf(driver.get()).value_or(""));
    const CFRef<CFTypeRef> property(
        IORegistryEntryCreateCFProperty(accelerator, CFSTR("PerformanceStatistics"), kCFAllocatorDefault, kNilOptions));
    const Value statistics = valueOf(property.get());
    if (const auto busy = firstFigure(statistics, {"Device Utilization %", "GPU Activity(%)"})) {
        record.busyPercent = std::min(*busy, 100.0);
    }
    const auto used = firstFigure(statistics, {"vramUsedBytes", "inUseVidMemoryBytes"});
    const auto unused = firstFigure(statistics, {"vramFreeBytes"});
    record.memoryUsed = asBytes(used ? used : firstFigure(statistics, {"In use system memory"}));
    if (used && unused) {
        record.memoryTotal = asBytes(*used + *unused);
    }
    return record;
}

template <typename Function>
void forEachAccelerator(Function function)
{
    io_iterator_t found = IO_OBJECT_NULL;
    if (IOServiceGetMatchingServices(MACH_PORT_NULL, IOServiceMatching("IOAccelerator"), &found) != KERN_SUCCESS) {
        return;
    }
    const IOObjectOwner iterator(found);
    while (const IOObjectOwner accelerator{IOIteratorNext(iterator.get())}) {
        function(accelerator.get());
    }
}

class MacGraphics final : public GraphicsUnits {
public:
    const std::vector<GraphicsRecord>& read(double) override
    {
        records_.clear();
        forEachAccelerator([this](io_registry_entry_t accelerator) {
            records_.push_back(graphicsRecordOf(accelerator, records_.size()));
        });
        return records_;
    }

private:
    std::vector<GraphicsRecord> records_;
};

/// "pid 402, WindowServer".
std::optional<std::int32_t> creatorOf(const IORegistryObject& client)
{
    const Value creator = client.property(kIOUserClientCreatorKey);
    std::int32_t pid = 0;
    const bool isPid = creator.is_string()
        && std::sscanf(creator.get_ref<const std::string&>().c_str(), "pid %" SCNd32, &pid) == 1 && pid > 0;
    return isPid ? std::optional(pid) : std::nullopt;
}

/// Apple's own processors publish what each client had them do, by queue of commands; others publish nothing of the kind.
std::optional<std::uint64_t> busyNsOf(const IORegistryObject& client)
{
    std::optional<std::uint64_t> sum;
    for (const Value& usage : client.property("AppUsage")) {
        if (const auto ns = number(usage, "accumulatedGPUTime"); ns && *ns >= 0) {
            sum = sum.value_or(0) + static_cast<std::uint64_t>(*ns);
        }
    }
    return sum;
}

class MacGraphicsClients final : public GraphicsClients {
public:
    std::span<const GraphicsClient> read(std::span<const std::int32_t>, double) override
    {
        clients_.clear();
        forEachAccelerator([this](io_registry_entry_t accelerator) { readClientsOf(accelerator); });
        return clients_;
    }

private:
    void readClientsOf(io_registry_entry_t accelerator)
    {
        io_iterator_t found = IO_OBJECT_NULL;
        if (IORegistryEntryGetChildIterator(accelerator, kIOServicePlane, &found) != KERN_SUCCESS) {
            return;
        }
        const IOObjectOwner iterator(found);
        while (IOObjectOwner next{IOIteratorNext(iterator.get())}) {
            const IORegistryObject child(std::move(next));
            const auto pid = creatorOf(child);
            const auto busy = pid ? busyNsOf(child) : std::nullopt;
            std::uint64_t identifier = 0;
            if (busy && IORegistryEntryGetRegistryEntryID(child.native(), &identifier) == KERN_SUCCESS) {
                clients_.push_back({.pid = *pid, .client = identifier, .busyNs = *busy});
            }
        }
    }

    std::vector<GraphicsClient> clients_;
};

} // namespace

std::unique_ptr<GraphicsClients> makeMacGraphicsClients() { return std::make_unique<MacGraphicsClients>(); }

std::unique_ptr<GraphicsUnits> makeMacGraphics() { return std::make_unique<MacGraphics>(); }

} // namespace meridal
