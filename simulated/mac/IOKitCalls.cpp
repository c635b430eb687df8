// SPDX-License-Identifier: Apache-2.0
#include <IOKit/IOKitLib.h>

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"
#include "simulated/mac/Registry.h"

#include <algorithm>
#include <utility>

using namespace meridal;
using namespace meridal::test;

namespace {

/// What a look-up gets; it consumes the dictionary, whatever comes of it.
std::vector<Registry::NodePtr> lookUp(const char* function, CFDictionaryRef matching, std::optional<int>& fault)
{
    fault = Ledger::current().call(function);
    auto found = fault ? std::vector<Registry::NodePtr>() : Registry::current().matching(matching);
    CFRelease(matching);
    return found;
}

Registry::NodePtr nodeAt(io_registry_entry_t entry)
{
    Registry::Handle* handle = Registry::current().handleAt(entry);
    if (!handle || !handle->node) {
        Ledger::misuse("a property is asked of something that is no entry");
        return nullptr;
    }
    return handle->node;
}

io_object_t entryFor(const Registry::NodePtr& node)
{
    return Registry::current().open({.node = node}, "entry " + node->name);
}

/// Of an entry, then of all below it.
const Value* searchBelow(const RegistryNode& node, const std::string& key)
{
    if (const auto found = node.properties.find(key); found != node.properties.end()) {
        return &*found;
    }
    for (const auto& child : node.children) {
        if (const Value* found = searchBelow(*child, key)) {
            return found;
        }
    }
    return nullptr;
}

CFMutableDictionaryRef matchingOf(const char* key, CFTypeRef value)
{
    const CFMutableDictionaryRef matching =
        CFDictionaryCreateMutable(nullptr, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(matching, constantString(key), value);
    CFRelease(value);
    return matching;
}

} // namespace

extern "C" {

kern_return_t IOObjectRelease(io_object_t object)
{
    Registry::current().close(object, "IOObjectRelease");
    return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator)
{
    Ledger::current().call("IOIteratorNext");
    Registry& registry = Registry::current();
    Registry::Handle* handle = registry.handleAt(iterator);
    if (iterator == IO_OBJECT_NULL) {
        return IO_OBJECT_NULL;
    }
    if (!handle || !handle->isIterator) {
        Ledger::misuse("IOIteratorNext of what is no iterator");
        return IO_OBJECT_NULL;
    }
    if (handle->pending.empty()) {
        registry.drained(iterator);
        return IO_OBJECT_NULL;
    }
    const Registry::NodePtr next = std::move(handle->pending.back());
    handle->pending.pop_back();
    return entryFor(next);
}

CFMutableDictionaryRef IOServiceMatching(const char* name)
{
    return Ledger::current().call("IOServiceMatching") ? nullptr : matchingOf(kIOProviderClassKey, stringObject(name));
}

CFMutableDictionaryRef IORegistryEntryIDMatching(std::uint64_t identifier)
{
    return matchingOf(kIORegistryEntryIDKey, objectOf(identifier));
}

io_service_t IOServiceGetMatchingService(mach_port_t, CFDictionaryRef matching)
{
    std::optional<int> fault;
    const auto found = lookUp("IOServiceGetMatchingService", matching, fault);
    return found.empty() ? IO_OBJECT_NULL : entryFor(found.front());
}

kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef matching, io_iterator_t* existing)
{
    std::optional<int> fault;
    auto found = lookUp("IOServiceGetMatchingServices", matching, fault);
    if (!fault) { // none are told by no iterator
        *existing = found.empty() ? IO_OBJECT_NULL : Registry::current().iterate(std::move(found));
    }
    return fault.value_or(KERN_SUCCESS);
}

IONotificationPortRef IONotificationPortCreate(mach_port_t)
{
    if (Ledger::current().call("IONotificationPortCreate")) {
        return nullptr;
    }
    Ledger::current().opened("notification port");
    return new IONotificationPort;
}

void IONotificationPortDestroy(IONotificationPortRef port)
{
    if (port->registrations != 0) {
        Ledger::misuse("a notification port ends before a registration that uses it");
    }
    Registry::current().removeNotifications(port);
    Ledger::current().closed("notification port");
    delete port;
}

void IONotificationPortSetDispatchQueue(IONotificationPortRef port, dispatch_queue_t queue)
{
    port->hasQueue = queue == dispatch_get_main_queue();
}

kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef port, const io_name_t event,
    CFDictionaryRef matching, IOServiceMatchingCallback callback, void* context, io_iterator_t* notification)
{
    Registry& registry = Registry::current();
    if (const auto fault = Ledger::current().call("IOServiceAddMatchingNotification")) {
        CFRelease(matching);
        return *fault;
    }
    if (!port->hasQueue) {
        Ledger::misuse("a notification whose port nobody serves");
    }
    // What is there already counts as come, and as nothing gone.
    auto there = event == std::string(kIOTerminatedNotification) ? std::vector<Registry::NodePtr>()
                                                                 : registry.matching(matching);
    *notification = registry.iterate(std::move(there));
    registry.notifications.push_back({.port = port,
        .event = event,
        .matching = matching,
        .callback = callback,
        .context = context,
        .iterator = *notification});
    return KERN_SUCCESS;
}

/// The nodes of the device tree are told by their last names here.
io_registry_entry_t IORegistryEntryFromPath(mach_port_t, const io_string_t path)
{
    const std::string whole = path;
    const std::string name = whole.substr(whole.rfind('/') + 1);
    return Registry::current().has(name) ? entryFor(Registry::current().find(name)) : IO_OBJECT_NULL;
}

kern_return_t IORegistryEntryGetRegistryEntryID(io_registry_entry_t entry, std::uint64_t* identifier)
{
    const auto node = nodeAt(entry);
    *identifier = node ? node->identifier : 0;
    return node ? KERN_SUCCESS : kIOReturnBadArgument;
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef, IOOptionBits)
{
    const auto node = nodeAt(entry);
    const bool isThere =
        !Ledger::current().call("IORegistryEntryCreateCFProperty") && node && node->properties.contains(textIn(key));
    return isThere ? objectOf(node->properties.at(textIn(key))) : nullptr;
}

kern_return_t IORegistryEntryCreateCFProperties(
    io_registry_entry_t entry, CFMutableDictionaryRef* properties, CFAllocatorRef, IOOptionBits)
{
    const auto node = nodeAt(entry);
    if (const auto fault = Ledger::current().call("IORegistryEntryCreateCFProperties"); fault || !node) {
        return fault.value_or(kIOReturnBadArgument);
    }
    *properties = static_cast<CFMutableDictionaryRef>(const_cast<void*>(objectOf(node->properties)));
    return KERN_SUCCESS;
}

CFTypeRef IORegistryEntrySearchCFProperty(
    io_registry_entry_t entry, const io_name_t, CFStringRef key, CFAllocatorRef, IOOptionBits options)
{
    const auto node = nodeAt(entry);
    if (options != kIORegistryIterateRecursively) {
        Ledger::misuse("a search in a direction that this registry does not know");
    }
    const Value* found = node ? searchBelow(*node, textIn(key)) : nullptr;
    return found ? objectOf(*found) : nullptr;
}

kern_return_t IORegistryEntryGetParentEntry(io_registry_entry_t entry, const io_name_t, io_registry_entry_t* parent)
{
    const auto node = nodeAt(entry);
    RegistryNode* const above = node ? node->parent : nullptr;
    if (!above || !above->parent) { // it hangs on the root, which is nobody's entry here
        return kIOReturnNotFound;
    }
    const auto& siblings = above->parent->children;
    *parent = entryFor(*std::find_if(
        siblings.begin(), siblings.end(), [above](const Registry::NodePtr& each) { return each.get() == above; }));
    return KERN_SUCCESS;
}

kern_return_t IORegistryEntryGetChildIterator(io_registry_entry_t entry, const io_name_t, io_iterator_t* iterator)
{
    const auto node = nodeAt(entry);
    if (const auto fault = Ledger::current().call("IORegistryEntryGetChildIterator"); fault || !node) {
        return fault.value_or(kIOReturnBadArgument);
    }
    *iterator = Registry::current().iterate(node->children);
    return KERN_SUCCESS;
}

kern_return_t IOServiceOpen(io_service_t service, task_port_t owner, std::uint32_t, io_connect_t* connection)
{
    const auto node = nodeAt(service);
    if (const auto fault = Ledger::current().call("IOServiceOpen"); fault || !node || owner != mach_task_self()) {
        return fault.value_or(kIOReturnBadArgument);
    }
    *connection = Registry::current().open({.client = node->name}, "connection to " + node->name);
    return KERN_SUCCESS;
}

kern_return_t IOServiceClose(io_connect_t connection)
{
    Registry::current().close(connection, "IOServiceClose");
    return Ledger::current().call("IOServiceClose").value_or(KERN_SUCCESS);
}

kern_return_t IOConnectCallScalarMethod(
    mach_port_t connection, std::uint32_t selector, const std::uint64_t*, std::uint32_t, std::uint64_t*, std::uint32_t*)
{
    return IOConnectCallStructMethod(connection, selector, nullptr, 0, nullptr, nullptr);
}

kern_return_t IOConnectCallStructMethod(mach_port_t connection, std::uint32_t selector, const void* input,
    std::size_t inputSize, void* output, std::size_t* outputSize)
{
    const Registry::Handle* handle = Registry::current().handleAt(connection);
    const auto client = handle ? Registry::current().clients.find(handle->client) : Registry::current().clients.end();
    if (client == Registry::current().clients.end()) {
        return kIOReturnNotOpen;
    }
    return client->second(selector, {static_cast<const std::uint8_t*>(input), inputSize},
        {static_cast<std::uint8_t*>(output), outputSize ? *outputSize : 0});
}
}
