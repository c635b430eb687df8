// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/power/MacAdapters.h"

#include "platform/formats/FollowedPowerSources.h"
#include "platform/formats/PowerDictionaries.h"
#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"
#include "platform/macos/kernel/ServiceEntry.h"
#include "platform/macos/kernel/SystemCallback.h"

#include <IOKit/ps/IOPowerSources.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dispatch/dispatch.h>

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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

/// A session with the dynamic store, on the main queue.
class StoreSession {
public:
    explicit StoreSession(FollowedPowerSources& followed) : followed_(followed)
    {
        SCDynamicStoreContext context = {
            .version = 0, .info = this, .retain = nullptr, .release = nullptr, .copyDescription = nullptr};
        store_ = CFRef<SCDynamicStoreRef>(
            SCDynamicStoreCreate(kCFAllocatorDefault, sessionName().get(), &StoreSession::changed, &context));
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
    ~StoreSession()
    {
        if (store_) {
            SCDynamicStoreSetDispatchQueue(store_.get(), nullptr);
        }
    }
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

private:
    static void changed(SCDynamicStoreRef, CFArrayRef keys, void* self)
    {
        runCallback([keys, self] {
            std::vector<std::string> names;
            for (CFIndex i = 0; keys && i < CFArrayGetCount(keys); ++i) {
                names.push_back(textOf(CFArrayGetValueAtIndex(keys, i)).value_or(""));
            }
            static_cast<StoreSession*>(self)->followed_.changed(names);
        });
    }

    FollowedPowerSources& followed_;
    CFRef<SCDynamicStoreRef> store_;
};

std::vector<PowerSourceRecord> readPowerSources()
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

class MacPowerSources final : public PowerSources {
public:
    explicit MacPowerSources(Runtime& runtime) : followed_(runtime, readPowerSources) { }
    std::vector<PowerSourceRecord> sources() override { return followed_.sources(); }
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;

private:
    FollowedPowerSources followed_;
    std::optional<StoreSession> session_; ///< from the first one on who follows them
};

} // namespace

std::unique_ptr<PowerSources::Observation> MacPowerSources::observe(std::function<void()> changed)
{
    if (!session_) {
        session_.emplace(followed_);
    }
    return followed_.observe(std::move(changed));
}

std::unique_ptr<PowerSources> makeMacPowerSources(Runtime& runtime)
{
    return std::make_unique<MacPowerSources>(runtime);
}

} // namespace meridal
