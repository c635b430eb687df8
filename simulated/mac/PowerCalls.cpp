// SPDX-License-Identifier: Apache-2.0
#include <IOKit/ps/IOPowerSources.h>
#include <IOKit/pwr_mgt/IOPMLib.h>

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"
#include "simulated/mac/Power.h"
#include "simulated/mac/Registry.h"

#include <algorithm>
#include <string>
#include <utility>

namespace meridal::test {

namespace {

/// A snapshot holds the descriptions; the list that is made of it has handles, which say nothing by themselves.
CFTypeRef snapshotOfPower(bool withAccessories)
{
    Object snapshot{.text = "snapshot of power sources"};
    for (const Value& source : Power::current().sources) {
        if (withAccessories || !source.is_object() || source.value("Type", "") != "Accessory Source") {
            snapshot.items.push_back(objectOf(source));
        }
    }
    return make(std::move(snapshot));
}

CFTypeRef copyByType(int type)
{
    constexpr int all = 0;
    return Ledger::current().call("IOPSCopyPowerSourcesByType") ? nullptr : snapshotOfPower(type == all);
}

} // namespace

Power& Power::current()
{
    static Power power;
    return power;
}

void Power::send(std::uint32_t message, std::intptr_t token) const
{
    for (const Receiver& each : receivers) {
        if (!each.port->hasQueue) {
            Ledger::misuse("a message of the power domain whose port nobody serves");
        }
        Ledger::current().post(each.port, [each, message, token] {
            each.callback(each.context, each.rootDomain, message, reinterpret_cast<void*>(token));
        });
    }
}

void Power::reset()
{
    sources.clear();
    hasCallForAccessories = true;
    allowed.clear();
}

} // namespace meridal::test

using namespace meridal::test;

extern "C" {

CFTypeRef IOPSCopyPowerSourcesInfo()
{
    return Ledger::current().call("IOPSCopyPowerSourcesInfo") ? nullptr : snapshotOfPower(false);
}

CFArrayRef IOPSCopyPowerSourcesList(CFTypeRef snapshot)
{
    if (Ledger::current().call("IOPSCopyPowerSourcesList")) {
        return nullptr;
    }
    Object list{.kind = ObjectKind::Array};
    for (std::size_t i = 0; i < objectAt(snapshot).items.size(); ++i) {
        Object handle{.text = "handle of a power source"};
        handle.integer = static_cast<std::int64_t>(i);
        list.items.push_back(make(std::move(handle)));
    }
    return makeAs<CFArrayRef>(std::move(list));
}

CFDictionaryRef IOPSGetPowerSourceDescription(CFTypeRef snapshot, CFTypeRef source)
{
    CFTypeRef description = objectAt(snapshot).items.at(static_cast<std::size_t>(objectAt(source).integer));
    const bool hasGone = objectAt(description).kind == ObjectKind::Other;
    return hasGone ? nullptr : static_cast<CFDictionaryRef>(description);
}

io_connect_t IORegisterForSystemPower(
    void* context, IONotificationPortRef* port, IOServiceInterestCallback callback, io_object_t* notifier)
{
    *notifier = IO_OBJECT_NULL;
    if (Ledger::current().call("IORegisterForSystemPower")) {
        return IO_OBJECT_NULL;
    }
    Registry& registry = Registry::current();
    *port = IONotificationPortCreate(MACH_PORT_NULL);
    *notifier = registry.open({}, "notifier of the power domain");
    const io_connect_t rootDomain = registry.open({}, "connection to the power domain");
    Power::current().receivers.push_back({rootDomain, *notifier, *port, callback, context});
    ++(*port)->registrations;
    return rootDomain;
}

IOReturn IODeregisterForSystemPower(io_object_t* notifier)
{
    auto& receivers = Power::current().receivers;
    const auto found = std::find_if(receivers.begin(), receivers.end(),
        [notifier](const Power::Receiver& each) { return each.notifier == *notifier; });
    if (found == receivers.end()) {
        Ledger::misuse("IODeregisterForSystemPower of somebody who is not registered");
        return kIOReturnBadArgument;
    }
    if (!Registry::current().handleAt(found->rootDomain)) {
        Ledger::misuse("the connection to the power domain was closed before the registration ended");
    }
    --found->port->registrations;
    receivers.erase(found);
    return IOObjectRelease(std::exchange(*notifier, IO_OBJECT_NULL));
}

IOReturn IOAllowPowerChange(io_connect_t rootDomain, std::intptr_t token)
{
    if (!Registry::current().handleAt(rootDomain)) {
        Ledger::misuse("a power change is allowed by somebody who is not registered");
    }
    Power::current().allowed.push_back(token);
    return kIOReturnSuccess;
}
}

namespace meridal::test {

void* privatePowerCall(std::string_view symbol)
{
    const bool isKnown = Power::current().hasCallForAccessories && symbol == "IOPSCopyPowerSourcesByType";
    return isKnown ? reinterpret_cast<void*>(copyByType) : nullptr;
}

} // namespace meridal::test
