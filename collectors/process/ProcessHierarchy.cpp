// SPDX-License-Identifier: Apache-2.0
// Groups: which process answers for which other one.

#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>
#include <vector>

namespace meridal {

void ProcessStatCollector::createHierarchy2()
{
    findOldestOfUnits();
    for (Item* item : processes_) {
        if (item->unit.number != 0) {
            item->controllingPid = controllingPidInUnits(*item);
        } else if (item->controllingPid < 0) {
            findControllingPid(*item);
        }
    }
    for (Item* item : processes_) {
        item->controller = controllerOf(*item);
    }
    breakCycles();
}

void ProcessStatCollector::findOldestOfUnits()
{
    oldest_.clear();
    for (const Item* item : processes_) {
        if (item->unit.kind != ProcessUnitKind::Shared) {
            const auto [entry, isFirst] = oldest_.try_emplace(item->unit.number, item);
            const Item* other = entry->second;
            if (!isFirst && std::pair(item->startIdentity, item->pid) < std::pair(other->startIdentity, other->pid)) {
                entry->second = item;
            }
        }
    }
}

/// Within one unit the parent. Who was started from another one is no part of that: a program that a desktop launched, a
/// container. It belongs to the first process of its own, as do those whose parent there has ended.
std::int32_t ProcessStatCollector::controllingPidInUnits(const Item& item) const
{
    const Item* parent = elder(item, item.parentPid);
    if (parent && !parent->isLaunchd && parent->unit == item.unit) {
        return parent->pid;
    }
    const auto oldest = oldest_.find(item.unit.number);
    return oldest == oldest_.end() ? item.pid : oldest->second->pid;
}

/// The parent, unless that is who starts services, for whom the system may know better.
void ProcessStatCollector::findControllingPid(Item& item) const
{
    const std::int32_t pid = isParentLaunchd(item) ? controllingPidForPid(item.pid) : item.parentPid;
    item.controllingPid = pid > 0 ? pid : item.pid;
}

std::int32_t ProcessStatCollector::controllingPidForPid(std::int32_t pid) const
{
    return rules_.hasResponsibleProcess ? context().host.processes->responsiblePid(pid).value_or(pid) : pid;
}

/// The process of that pid if it has been there at least as long as the item. A younger one only got the pid of a
/// parent that ended, and has nothing to do with it. Told by passes, since start times may come from a clock that steps.
const ProcessStatCollectorItem* ProcessStatCollector::elder(const Item& item, std::int32_t pid) const
{
    const Item* other = processForPid(pid);
    return other && other->firstPass <= item.firstPass ? other : nullptr;
}

bool ProcessStatCollector::isParentLaunchd(const Item& item) const
{
    const Item* parent = elder(item, item.parentPid);
    return parent && parent->isLaunchd;
}

bool ProcessStatCollector::isProcessExcludedFromHierarchy(const Item& item) const
{
    // What a shell starts in a container is as much part of that as the shell.
    if (!rules_.hasResponsibleProcess || item.unit.kind == ProcessUnitKind::Container) {
        return false;
    }
    const Item* parent = item.standsAlone ? nullptr : elder(item, item.parentPid);
    return item.standsAlone || (parent && parent->startsCommands);
}

ProcessStatCollectorItem* ProcessStatCollector::controllerOf(const Item& item)
{
    if (item.controllingPid == item.pid || isProcessExcludedFromHierarchy(item)) {
        return nullptr;
    }
    return elder(item, item.controllingPid) ? processForPid(item.controllingPid) : nullptr;
}

/// Two processes that answer for each other (a parent's pid taken by its own descendant) would both vanish from the
/// view: the one where the circle closes becomes a head.
void ProcessStatCollector::breakCycles()
{
    std::vector<std::uint32_t> walks(processes_.size()); // by place, the walk that came by; 0: none
    std::uint32_t walk = 0;
    for (Item* start : processes_) {
        ++walk;
        Item* item = start;
        while (item && walks[item->place] == 0) {
            walks[item->place] = walk;
            item = item->controller;
        }
        if (item && walks[item->place] == walk) {
            item->controller = nullptr;
        }
    }
}

} // namespace meridal
