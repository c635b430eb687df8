// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Registry.h"

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"

#include <IOKit/IOKitKeys.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace meridal::test {

namespace {

void collect(const Registry::NodePtr& node, std::vector<Registry::NodePtr>& all)
{
    all.push_back(node);
    for (const auto& child : node->children) {
        collect(child, all);
    }
}

std::vector<Registry::NodePtr> withAllBelow(const Registry::NodePtr& node)
{
    std::vector<Registry::NodePtr> all;
    collect(node, all);
    return all;
}

bool hasEqual(const RegistryNode& node, CFTypeRef key, CFTypeRef wanted)
{
    const auto found = node.properties.find(textIn(key));
    if (found == node.properties.end()) {
        return false;
    }
    CFTypeRef property = objectOf(*found);
    const bool isEqual = CFEqual(property, wanted) != 0;
    CFRelease(property);
    return isEqual;
}

} // namespace

bool matches(const RegistryNode& node, CFTypeRef dictionary)
{
    if (CFTypeRef name = entryOf(dictionary, kIOProviderClassKey); name && !node.isA(textIn(name))) {
        return false;
    }
    if (CFTypeRef key = entryOf(dictionary, kIOPropertyExistsMatchKey); key && !node.properties.contains(textIn(key))) {
        return false;
    }
    if (CFTypeRef number = entryOf(dictionary, kIORegistryEntryIDKey);
        number && static_cast<std::uint64_t>(objectAt(number).integer) != node.identifier) {
        return false;
    }
    CFTypeRef wanted = entryOf(dictionary, kIOPropertyMatchKey);
    return !wanted
        || std::all_of(objectAt(wanted).entries.begin(), objectAt(wanted).entries.end(),
            [&node](const auto& each) { return hasEqual(node, each.first, each.second); });
}

Registry& Registry::current()
{
    static Registry registry;
    return registry;
}

Registry::NodePtr Registry::find(std::string_view name) const
{
    const auto all = withAllBelow(root_);
    const auto found = std::find_if(all.begin(), all.end(), [name](const NodePtr& node) { return node->name == name; });
    if (found == all.end()) {
        throw std::out_of_range("the registry has no " + std::string(name));
    }
    return *found;
}

bool Registry::has(std::string_view name) const
{
    const auto all = withAllBelow(root_);
    return std::any_of(all.begin(), all.end(), [name](const NodePtr& node) { return node->name == name; });
}

RegistryNode& Registry::at(std::string_view name) { return *find(name); }

void Registry::plug(std::string_view text, std::string_view below)
{
    const NodePtr parent = below.empty() ? root_ : find(below);
    for (const NodePtr& node : parseRegistry(text)) {
        node->parent = parent.get();
        parent->children.push_back(node);
        for (const NodePtr& each : withAllBelow(node)) {
            publish(each);
        }
    }
}

void Registry::publish(const NodePtr& node)
{
    node->identifier = node->identifier == 0 ? ++lastIdentifier_ : node->identifier;
    tell(kIOPublishNotification, node);
    tell(kIOFirstMatchNotification, node);
}

void Registry::unplug(std::string_view name)
{
    const NodePtr node = find(name);
    std::erase(node->parent->children, node);
    node->parent = nullptr;
    for (const NodePtr& each : withAllBelow(node)) {
        tell(kIOTerminatedNotification, each);
    }
}

/// Hands the entry to whoever waits for such. One whose iterator was not taken empty is not called again.
void Registry::tell(const std::string& event, const NodePtr& node)
{
    for (Notification& each : notifications) {
        Handle* iterator = each.event == event && matches(*node, each.matching) ? handleAt(each.iterator) : nullptr;
        if (!iterator) {
            continue;
        }
        iterator->pending.insert(iterator->pending.begin(), node);
        if (std::exchange(each.isArmed, false)) {
            Ledger::current().post(
                each.port, [callback = each.callback, context = each.context, handle = each.iterator] {
                    callback(context, handle);
                });
        }
    }
}

io_object_t Registry::open(Handle handle, const std::string& what)
{
    Ledger::current().opened(what);
    handles_.emplace(++lastHandle_, std::pair(std::move(handle), what));
    return lastHandle_;
}

Registry::Handle* Registry::handleAt(io_object_t object)
{
    const auto found = handles_.find(object);
    return found == handles_.end() ? nullptr : &found->second.first;
}

void Registry::close(io_object_t object, const std::string& what)
{
    const auto found = handles_.find(object);
    if (found == handles_.end()) {
        Ledger::misuse(what + " of something that was not given out, or was given back already");
        return;
    }
    Ledger::current().closed(found->second.second);
    handles_.erase(found);
}

std::vector<Registry::NodePtr> Registry::matching(CFTypeRef dictionary) const
{
    auto all = withAllBelow(root_);
    std::erase_if(all, [&](const NodePtr& node) { return node == root_ || !matches(*node, dictionary); });
    return all;
}

io_iterator_t Registry::iterate(std::vector<NodePtr> nodes)
{
    std::reverse(nodes.begin(), nodes.end());
    return open({.pending = std::move(nodes), .isIterator = true}, "iterator");
}

void Registry::drained(io_iterator_t iterator)
{
    for (Notification& each : notifications) {
        each.isArmed = each.isArmed || each.iterator == iterator;
    }
}

void Registry::removeNotifications(IONotificationPortRef port)
{
    for (const Notification& each : notifications) {
        if (each.port == port) {
            CFRelease(each.matching);
        }
    }
    std::erase_if(notifications, [port](const Notification& each) { return each.port == port; });
    Ledger::current().forget(port);
}

void Registry::reset()
{
    root_->children.clear();
    clients.clear();
    disks.clear();
}

} // namespace meridal::test
