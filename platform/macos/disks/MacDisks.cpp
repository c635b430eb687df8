// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/RegistryDisks.h"
#include "platform/macos/disks/MacAdapters.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/IORegistryObject.h"
#include "platform/macos/kernel/SystemCallback.h"

#include <dispatch/dispatch.h>

#include <array>
#include <utility>

namespace meridal {

namespace {

/// {"IOPropertyMatch": {property: true}}; whoever is given it consumes it.
CFDictionaryRef matchingTrue(std::string_view property)
{
    const CFRef<CFStringRef> name = stringOf(property);
    if (!name) {
        return nullptr;
    }
    const void* key = name.get();
    const void* value = kCFBooleanTrue;
    const CFRef<CFDictionaryRef> properties(CFDictionaryCreate(
        kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const void* matchKey = CFSTR(kIOPropertyMatchKey);
    const void* matchValue = properties.get();
    return CFDictionaryCreate(kCFAllocatorDefault, &matchKey, &matchValue, 1, &kCFTypeDictionaryKeyCallBacks,
        &kCFTypeDictionaryValueCallBacks);
}

void drain(io_iterator_t iterator)
{
    while (IOObjectOwner(IOIteratorNext(iterator))) { }
}

class DiskObservation final : public Disks::Observation {
public:
    explicit DiskObservation(std::function<void()> changed)
        : changed_(std::move(changed)), port_(IONotificationPortCreate(MACH_PORT_NULL))
    {
        if (!port_) {
            return;
        }
        IONotificationPortSetDispatchQueue(port_, dispatch_get_main_queue());
        watch(0, kIOPublishNotification, "IOBlockStorageDriver");
        watch(1, kIOTerminatedNotification, "IOBlockStorageDriver");
        watch(2, kIOPublishNotification, "IOMedia");
    }
    ~DiskObservation() override
    {
        if (port_) {
            IONotificationPortDestroy(port_);
        }
    }
    DiskObservation(const DiskObservation&) = delete;
    DiskObservation& operator=(const DiskObservation&) = delete;

private:
    /// An iterator each: one that served three would leak two. It tells nothing until what is there has been taken.
    void watch(std::size_t place, const char* event, const char* serviceClass)
    {
        CFMutableDictionaryRef matching = IOServiceMatching(serviceClass); // consumed
        if (matching
            && IOServiceAddMatchingNotification(
                   port_, event, matching, &DiskObservation::happened, this, iterators_[place].receive())
                == KERN_SUCCESS) {
            drain(iterators_[place].get());
        }
    }

    static void happened(void* self, io_iterator_t iterator)
    {
        drain(iterator);
        runCallback(static_cast<DiskObservation*>(self)->changed_);
    }

    std::function<void()> changed_;
    IONotificationPortRef port_;
    std::array<IOObjectOwner, 3> iterators_;
};

class MacDisks final : public Disks {
public:
    explicit MacDisks(std::shared_ptr<Limitations> limitations) : limitations_(std::move(limitations)) { }

    std::vector<DiskRecord> disks() override;
    std::optional<std::int64_t> requests(const DiskRecord& disk) override;
    std::unique_ptr<SMARTDevice> device(const DiskRecord& disk) override;
    /// Block storage drivers that come and go, and media that come.
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;

private:
    std::shared_ptr<Limitations> limitations_;
};

} // namespace

std::vector<DiskRecord> MacDisks::disks()
{
    std::vector<DiskRecord> found;
    for (const SMARTKind kind : {SMARTKind::ATA, SMARTKind::NVMe}) {
        IOObjectOwner iterator;
        const CFDictionaryRef matching = matchingTrue(capabilityOf(kind));
        if (!matching || IOServiceGetMatchingServices(MACH_PORT_NULL, matching, iterator.receive()) != KERN_SUCCESS) {
            continue;
        }
        while (IOObjectOwner service{IOIteratorNext(iterator.get())}) {
            const IORegistryObject entry(std::move(service));
            found.push_back(registryDisk(entry, kind));
            found.back().path = entry.path();
        }
    }
    return found;
}

std::optional<std::int64_t> MacDisks::requests(const DiskRecord& disk)
{
    return registryRequests(IORegistryObject::atPath(disk.path));
}

std::unique_ptr<SMARTDevice> MacDisks::device(const DiskRecord& disk)
{
    IORegistryObject entry = IORegistryObject::atPath(disk.path);
    return entry.native() == IO_OBJECT_NULL ? nullptr : makeMacSMARTDevice(std::move(entry), disk.kind, limitations_);
}

std::unique_ptr<Disks::Observation> MacDisks::observe(std::function<void()> changed)
{
    return std::make_unique<DiskObservation>(std::move(changed));
}

std::unique_ptr<Disks> makeMacDisks(std::shared_ptr<Limitations> limitations)
{
    return std::make_unique<MacDisks>(std::move(limitations));
}

} // namespace meridal
