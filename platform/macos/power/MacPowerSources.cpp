// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/power/MacAdapters.h"

#include "platform/formats/PowerDictionaries.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/ServiceEntry.h"
#include "platform/macos/kernel/SystemCallback.h"

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
        SCDynamicStoreContext context = {
            .version = 0, .info = this, .retain = nullptr, .release = nullptr, .copyDescription = nullptr};
        store_ = CFRef<SCDynamicStoreRef>(SCDynamicStoreCreate(
            kCFAllocatorDefault, sessionName().get(),
            [](SCDynamicStoreRef, CFArrayRef, void* self) {
                runCallback(static_cast<StoreObservation*>(self)->changed_);
            },
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
    std::vector<PowerSourceRecord> sources() override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;
};

} // namespace

std::vector<PowerSourceRecord> MacPowerSources::sources()
{
    const CFRef<CFTypeRef> snapshot(IOPSCopyPowerSourcesInfo());
    if (!snapshot) {
        return {};
    }
    std::vector<Dictionary> descriptions;
    const CFRef<CFArrayRef> list(IOPSCopyPowerSourcesList(snapshot.get()));
    for (CFIndex i = 0; list && i < CFArrayGetCount(list.get()); ++i) {
        // Owned by the snapshot.
        Value source = valueOf(IOPSGetPowerSourceDescription(snapshot.get(), CFArrayGetValueAtIndex(list.get(), i)));
        if (source.is_object()) {
            descriptions.push_back(std::move(source));
        }
    }
    return powerSourcesOf(descriptions, valueOf(ServiceEntry("AppleSmartBattery").properties().get()));
}

std::unique_ptr<PowerSources::Observation> MacPowerSources::observe(std::function<void()> changed)
{
    return std::make_unique<StoreObservation>(std::move(changed));
}

std::unique_ptr<PowerSources> makeMacPowerSources() { return std::make_unique<MacPowerSources>(); }

} // namespace meridal
