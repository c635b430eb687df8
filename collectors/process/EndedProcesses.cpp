// SPDX-License-Identifier: Apache-2.0
// Processes that have ended and of whom something is still to be told: they stand in the lists of traffic until the next pass.

#include "base/Text.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace meridal {

/// Out of the table, as they were, until the next pass.
void ProcessStatCollector::keepDeparted()
{
    for (auto entry = byPid_.begin(); entry != byPid_.end();) {
        const auto next = std::next(entry);
        if (!entry->second.exists) {
            departed_.insert(byPid_.extract(entry));
        }
        entry = next;
    }
}

void ProcessStatCollector::forgetDeparted()
{
    ended_.clear();
    departed_.clear();
}

ProcessStatCollectorItem* ProcessStatCollector::departedItem(const ProcessIdentity& process)
{
    const auto [first, last] = departed_.equal_range(process.pid);
    const auto found = std::find_if(
        first, last, [&process](const auto& entry) { return entry.second.startIdentity == process.startIdentity; });
    return found == last ? nullptr : &found->second;
}

/// One of an earlier pass than the item.
ProcessStatCollectorItem* ProcessStatCollector::departedElder(const Item& item, std::int32_t pid)
{
    const auto [first, last] = departed_.equal_range(pid);
    const auto found =
        std::find_if(first, last, [&item](const auto& entry) { return entry.second.firstPass <= item.firstPass; });
    return found == last ? nullptr : &found->second;
}

ProcessStatCollectorItem* ProcessStatCollector::endedProcess(
    const ProcessIdentity& process, const std::string& name, std::span<const ProcessIdentity> ancestors)
{
    Item* item = departedItem(process);
    if (!item && name.empty()) {
        return nullptr;
    }
    if (!item) { // it came and went between two passes
        item = &departed_
                    .emplace(std::piecewise_construct, std::forward_as_tuple(process.pid),
                        std::forward_as_tuple(process.pid))
                    ->second;
        item->startAfresh(process.startIdentity, pass_.number);
        nameEnded(*item, name);
        placeEnded(*item, ancestors);
    }
    listEnded(*item);
    return item;
}

/// It cannot be asked any more: a name that may be cut is completed only by what is known of others of that name.
void ProcessStatCollector::nameEnded(Item& item, const std::string& name)
{
    item.commandName = name;
    std::string shown = validUtf8(name);
    const bool mayBeCut = context().host.processes->mayBeCut(name.size());
    item.setName(mayBeCut ? guessedName(std::move(shown)) : std::move(shown));
}

/// Under the nearest ancestor that is known. One that started and ended with it is passed over.
void ProcessStatCollector::placeEnded(Item& item, std::span<const ProcessIdentity> ancestors)
{
    item.controllingPid = item.pid;
    for (const ProcessIdentity& ancestor : ancestors) {
        const Item* known = processForPid(ancestor.pid);
        if (!known || known->startIdentity != ancestor.startIdentity) {
            known = departedItem(ancestor);
        }
        if (known) {
            item.parentPid = known->pid;
            item.controllingPid = known->isLaunchd ? item.pid : known->pid;
            return;
        }
    }
}

/// Puts it into the lists, and the heads of its groups with it that have ended, too. Any user may make a line of parents
/// that is as long as the machine allows: from some level on a group has no head.
void ProcessStatCollector::listEnded(Item& first)
{
    constexpr int mostLevels = 64;
    Item* item = &first;
    for (int level = 1; item; ++level) {
        item = listEndedAlone(*item, level < mostLevels);
    }
}

/// Answers the head of its group if that has ended and is not in the lists yet.
ProcessStatCollectorItem* ProcessStatCollector::listEndedAlone(Item& item, bool underEnded)
{
    if (item.temporary) {
        return nullptr;
    }
    item.temporary = true;
    item.loadedName = true;
    item.clearBandwidth(); // of the interval before
    item.place = static_cast<std::uint32_t>(processes_.size() + ended_.size());
    ended_.push_back(&item);
    const Item* parent = departedElder(item, item.parentPid);
    if (parent && parent->startsCommands && rules_.hasResponsibleProcess) {
        return nullptr;
    }
    Item* controller = controllerOf(item);
    if (!controller && item.controllingPid != item.pid && !isProcessExcludedFromHierarchy(item)) {
        controller = departedElder(item, item.controllingPid);
    }
    const bool hasEnded = controller && !controller->exists;
    if (hasEnded && !underEnded) {
        return nullptr;
    }
    for (const Item* above = controller; above; above = above->controller) {
        if (above == &item) {
            return nullptr; // each answers for the other
        }
    }
    item.controller = controller;
    return hasEnded ? controller : nullptr;
}

} // namespace meridal
