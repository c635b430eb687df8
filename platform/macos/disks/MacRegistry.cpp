#include "platform/macos/disks/MacAdapters.h"

#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/IORegistryObject.h"

#include <dispatch/dispatch.h>

#include <array>

namespace meridal {

namespace {

/// {"IOPropertyMatch": {property: true}}; whoever is given it consumes it.
CFDictionaryRef matchingTrue(std::string_view property)
{
    const CFRef<CFStringRef> name(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(property.data()),
            static_cast<CFIndex>(property.size()), kCFStringEncodingUTF8, 0));
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

class DiskObservation final : public Registry::Observation {
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
        static_cast<DiskObservation*>(self)->changed_();
    }

    std::function<void()> changed_;
    IONotificationPortRef port_;
    std::array<IOObjectOwner, 3> iterators_;
};

class MacRegistry final : public Registry {
public:
    std::vector<RegistryEntryPtr> entriesWithTrue(std::string_view property) override;
    /// Block storage drivers that come and go, and media that come.
    std::unique_ptr<Observation> observeDisks(std::function<void()> changed) override;
};

} // namespace

std::vector<RegistryEntryPtr> MacRegistry::entriesWithTrue(std::string_view property)
{
    std::vector<RegistryEntryPtr> found;
    IOObjectOwner iterator;
    const CFDictionaryRef matching = matchingTrue(property);
    if (!matching || IOServiceGetMatchingServices(MACH_PORT_NULL, matching, iterator.receive()) != KERN_SUCCESS) {
        return found;
    }
    while (IOObjectOwner entry{IOIteratorNext(iterator.get())}) {
        found.push_back(std::make_shared<IORegistryObject>(std::move(entry)));
    }
    return found;
}

std::unique_ptr<Registry::Observation> MacRegistry::observeDisks(std::function<void()> changed)
{
    return std::make_unique<DiskObservation>(std::move(changed));
}

std::unique_ptr<Registry> makeMacRegistry() { return std::make_unique<MacRegistry>(); }

} // namespace meridal
