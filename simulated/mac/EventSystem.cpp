// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/EventSystem.h"

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"

#include <IOKit/hidsystem/IOHIDEventSystemClient.h>
#include <IOKit/hidsystem/IOHIDServiceClient.h>

#include <cstddef>
#include <map>
#include <utility>

namespace meridal::test {

namespace {

/// What a client of the event system is restricted to, and what a reference to a service or an event stands for.
struct Seen {
    std::optional<std::pair<std::int64_t, std::int64_t>> usage{};
    const EventSystem::Service* service = nullptr;
};

std::map<CFTypeRef, Seen>& seen()
{
    static std::map<CFTypeRef, Seen> all;
    return all;
}

template <typename Ref>
Ref makeSeen(const char* what, Seen state)
{
    Object object{.kind = ObjectKind::Other, .text = what};
    const auto made = makeAs<Ref>(std::move(object));
    seen()[made] = std::move(state);
    objectAt(made).ended = [made] { seen().erase(made); };
    return made;
}

std::int64_t numberIn(CFTypeRef dictionary, const char* key)
{
    CFTypeRef number = entryOf(dictionary, key);
    return number ? objectAt(number).integer : -1;
}

} // namespace

EventSystem& EventSystem::current()
{
    static EventSystem system;
    return system;
}

} // namespace meridal::test

using namespace meridal::test;
using IOHIDEventRef = struct __IOHIDEvent*;

extern "C" {

IOHIDEventSystemClientRef IOHIDEventSystemClientCreate(CFAllocatorRef)
{
    const bool isRefused = Ledger::current().call("IOHIDEventSystemClientCreate") || !EventSystem::current().isThere;
    return isRefused ? nullptr : makeSeen<IOHIDEventSystemClientRef>("client of the event system", {});
}

int IOHIDEventSystemClientSetMatching(IOHIDEventSystemClientRef client, CFDictionaryRef matching)
{
    seen().at(client).usage = {numberIn(matching, "PrimaryUsagePage"), numberIn(matching, "PrimaryUsage")};
    return 0;
}

CFArrayRef IOHIDEventSystemClientCopyServices(IOHIDEventSystemClientRef client)
{
    const EventSystem& system = EventSystem::current();
    if (system.beforeAnswer) {
        system.beforeAnswer();
    }
    Object list{.kind = ObjectKind::Array};
    const auto wanted = seen().at(client).usage;
    if (!wanted) {
        Ledger::misuse("keyboards and mice are asked, too");
    }
    for (const EventSystem::Service& service : system.services) {
        if (wanted == std::pair(service.page, service.usage)) {
            list.items.push_back(makeSeen<CFTypeRef>("service of the event system", {.service = &service}));
        }
    }
    return list.items.empty() ? nullptr : makeAs<CFArrayRef>(std::move(list));
}

CFTypeRef IOHIDServiceClientCopyProperty(IOHIDServiceClientRef reference, CFStringRef key)
{
    const auto& product = seen().at(reference).service->product;
    return product && textIn(key) == "Product" ? stringObject(*product) : nullptr;
}

IOHIDEventRef IOHIDServiceClientCopyEvent(
    IOHIDServiceClientRef reference, std::int64_t type, std::int32_t, std::int64_t)
{
    const EventSystem::Service* service = seen().at(reference).service;
    const bool hasEvent = service->value && service->eventType == type;
    return hasEvent ? makeSeen<IOHIDEventRef>("event", {.service = service}) : nullptr;
}

double IOHIDEventGetFloatValue(IOHIDEventRef event, std::int32_t field)
{
    const EventSystem::Service* service = seen().at(event).service;
    constexpr int fieldsPerType = 16; // bits
    return field >> fieldsPerType == service->eventType ? service->value.value_or(0) : -1;
}
}
