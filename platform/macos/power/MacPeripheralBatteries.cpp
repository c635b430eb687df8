// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/power/MacAdapters.h"

#include "platform/formats/PowerDictionaries.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/IORegistryObject.h"

#include <IOKit/ps/IOPowerSources.h>
#include <dlfcn.h>

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr const char* logitechClass = "com_Logitech_DiskJockeyDevice";

/// Adds a battery unless one of that key is there already.
void add(std::vector<PeripheralBattery>& batteries, std::optional<PeripheralBattery> found)
{
    const bool isNew = found && std::none_of(batteries.begin(), batteries.end(), [&](const PeripheralBattery& each) {
        return each.key == found->key;
    });
    if (isNew) {
        batteries.push_back(std::move(*found));
    }
}

/// Adds the batteries of all services that match. The look-up consumes the dictionary.
void addMatching(std::vector<PeripheralBattery>& batteries, CFMutableDictionaryRef matching)
{
    IOObjectOwner services;
    if (!matching || IOServiceGetMatchingServices(MACH_PORT_NULL, matching, services.receive()) != KERN_SUCCESS) {
        return;
    }
    while (const IOObjectOwner service{IOIteratorNext(services.get())}) {
        CFMutableDictionaryRef properties = nullptr;
        if (IORegistryEntryCreateCFProperties(service.get(), &properties, kCFAllocatorDefault, 0) == KERN_SUCCESS) {
            const CFRef<CFMutableDictionaryRef> owned(properties);
            add(batteries, registryBattery(valueOf(owned.get())));
        }
    }
}

/// Lets the kernel search for services that publish a property, which costs far less than to walk the registry here.
CFMutableDictionaryRef servicesWith(CFStringRef property)
{
    CFMutableDictionaryRef matching = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    if (matching) {
        CFDictionarySetValue(matching, CFSTR(kIOPropertyExistsMatchKey), property);
    }
    return matching;
}

/// The accessories among the power sources. The call is in no public header, hence looked up by name; 0 asks for sources
/// of all kinds, of which the accessories are picked out by their type.
void addAccessories(std::vector<PeripheralBattery>& batteries)
{
    using CopyByType = CFTypeRef (*)(int);
    const auto copyByType = reinterpret_cast<CopyByType>(::dlsym(RTLD_DEFAULT, "IOPSCopyPowerSourcesByType"));
    const CFRef<CFTypeRef> snapshot(copyByType ? copyByType(0) : nullptr);
    if (!snapshot) {
        return;
    }
    const CFRef<CFArrayRef> list(IOPSCopyPowerSourcesList(snapshot.get()));
    for (CFIndex i = 0; list && i < CFArrayGetCount(list.get()); ++i) {
        // Owned by the snapshot.
        const Value source =
            valueOf(IOPSGetPowerSourceDescription(snapshot.get(), CFArrayGetValueAtIndex(list.get(), i)));
        add(batteries, accessoryBattery(source));
    }
}

class MacPeripheralBatteries final : public PeripheralBatteries {
public:
    void bluetooth(Reply reply) override;
    std::vector<PeripheralBattery> logitech() override;
};

} // namespace

void MacPeripheralBatteries::bluetooth(Reply reply)
{
    std::vector<PeripheralBattery> batteries;
    addAccessories(batteries);
    addMatching(batteries, servicesWith(CFSTR("BatteryPercent")));
    addMatching(batteries, servicesWith(CFSTR("Battery Level")));
    reply(std::move(batteries));
}

std::vector<PeripheralBattery> MacPeripheralBatteries::logitech()
{
    std::vector<PeripheralBattery> batteries;
    addMatching(batteries, IOServiceMatching(logitechClass));
    return batteries;
}

std::unique_ptr<PeripheralBatteries> makeMacPeripheralBatteries() { return std::make_unique<MacPeripheralBatteries>(); }

} // namespace meridal
