#include "platform/macos/power/MacAdapters.h"

#include "platform/formats/PowerDictionaries.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/ServiceEntry.h"

#include <IOKit/ps/IOPowerSources.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dispatch/dispatch.h>

#include <array>
#include <string>
#include <utility>

namespace meridal {

namespace {

/// The session's name: the bundle's identifier, or ours where the program is not in a bundle.
CFRef<CFStringRef> sessionName()
{
    const CFBundleRef bundle = CFBundleGetMainBundle();
    const CFStringRef identifier = bundle ? CFBundleGetIdentifier(bundle) : nullptr;
    return CFRef<CFStringRef>(CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("%@-powernotifier"),
        identifier ? identifier : CFSTR("org.meridal.daemon")));
}

/// One session with the dynamic store, on the main queue.
class StoreObservation final : public PowerSources::Observation {
public:
    explicit StoreObservation(std::function<void()> changed) : changed_(std::move(changed))
    {
        SCDynamicStoreContext context = {.version = 0, .info = this};
        store_ = CFRef<SCDynamicStoreRef>(SCDynamicStoreCreate(
            kCFAllocatorDefault, sessionName().get(),
            [](SCDynamicStoreRef, CFArrayRef, void* self) { static_cast<StoreObservation*>(self)->changed_(); },
            &context));
        if (!store_) {
            return;
        }
        std::array<const void*, 3> keys = {CFSTR("State:/IOKit/PowerAdapter"), CFSTR("State:/IOKit/PowerSources"),
            CFSTR("State:/IOKit/PowerManagement/SystemLoad/Detailed")};
        const CFRef<CFArrayRef> list(
            CFArrayCreate(kCFAllocatorDefault, keys.data(), keys.size(), &kCFTypeArrayCallBacks));
        SCDynamicStoreSetDispatchQueue(store_.get(), dispatch_get_main_queue());
        SCDynamicStoreSetNotificationKeys(store_.get(), list.get(), nullptr);
    }
    ~StoreObservation() override
    {
        if (store_) {
            SCDynamicStoreSetDispatchQueue(store_.get(), nullptr);
        }
    }
    StoreObservation(const StoreObservation&) = delete;
    StoreObservation& operator=(const StoreObservation&) = delete;

private:
    std::function<void()> changed_;
    CFRef<SCDynamicStoreRef> store_;
};

class MacPowerSources final : public PowerSources {
public:
    std::vector<Dictionary> descriptions() override;
    /// As the driver has it, but with capacities always in mAh. There is one at most.
    std::vector<Dictionary> smartBatteries() override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;
};

} // namespace

std::vector<Dictionary> MacPowerSources::descriptions()
{
    std::vector<Dictionary> sources;
    const CFRef<CFTypeRef> snapshot(IOPSCopyPowerSourcesInfo());
    if (!snapshot) {
        return sources;
    }
    const CFRef<CFArrayRef> list(IOPSCopyPowerSourcesList(snapshot.get()));
    for (CFIndex i = 0; list && i < CFArrayGetCount(list.get()); ++i) {
        // Owned by the snapshot.
        Value source = valueOf(IOPSGetPowerSourceDescription(snapshot.get(), CFArrayGetValueAtIndex(list.get(), i)));
        if (source.is_object()) {
            sources.push_back(percentDescription(std::move(source)));
        }
    }
    return sources;
}

std::vector<Dictionary> MacPowerSources::smartBatteries()
{
    Value battery = valueOf(ServiceEntry("AppleSmartBattery").properties().get());
    if (!battery.is_object()) {
        return {};
    }
    return {milliampereSmartBattery(std::move(battery))};
}

std::unique_ptr<PowerSources::Observation> MacPowerSources::observe(std::function<void()> changed)
{
    return std::make_unique<StoreObservation>(std::move(changed));
}

std::unique_ptr<PowerSources> makeMacPowerSources() { return std::make_unique<MacPowerSources>(); }

} // namespace meridal
