// SPDX-License-Identifier: Apache-2.0
// What is added to the sums of groups: growth of counters, what processes have used by their end, interrupts, energy.

#include "collectors/process/GroupAccumulator.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <numeric>
#include <thread>
#include <utility>

namespace meridal {

/// A counter of one process never begins anew. One that is less than it was is a reading of less exactness, as after a change
/// from one way to read to another, and the counter stands still until it has caught up.
std::uint64_t GroupAccumulator::takeGrowth(std::uint64_t& mark, std::uint64_t now)
{
    return now > mark ? now - std::exchange(mark, now) : 0;
}

void GroupAccumulator::add(const GroupPlace& place, const Marks& growth)
{
    GroupSums& sums = groups_.at(place).sums;
    const double units = timeBase_ > 0 ? 1 / timeBase_ : 0;
    const double cpu = static_cast<double>(growth.cpu) * units;
    sums.cpuUserSeconds += static_cast<double>(growth.user) * units;
    sums.cpuSystemSeconds += static_cast<double>(growth.cpu - growth.user) * units;
    sums.bytesRead += growth.read;
    sums.bytesWritten += growth.written;
    sums.wakeups += growth.wakeups;
    sums.energyScore += processes_.energyScore(cpu, static_cast<double>(growth.wakeups));
    groups_.passCpu(place) += cpu;
}

void GroupAccumulator::addToMinute(Account& account, const Marks& growth) const
{
    account.minuteCpu += timeBase_ > 0 ? static_cast<float>(static_cast<double>(growth.cpu) / timeBase_) : 0;
    account.minuteDisk += static_cast<float>(growth.read + growth.written);
}

/// Most processes do nothing: only those are looked at of whom the pass told something new, as long as none was missed.
void GroupAccumulator::addGrowth()
{
    const bool knowsWhoMoved = !isTableNew_ && processes_.passNumber() == passNumber_ + 1;
    passNumber_ = processes_.passNumber();
    if (knowsWhoMoved) {
        for (const std::uint32_t place : ranPlaces_) {
            accounts_[place].ran = false;
        }
    }
    ranPlaces_.clear();
    if (knowsWhoMoved) {
        for (const std::uint32_t place : processes_.movedPlaces()) {
            addGrowthOf(place);
        }
        return;
    }
    for (std::uint32_t place = 0; place < accounts_.size(); ++place) {
        addGrowthOf(place);
    }
}

void GroupAccumulator::addGrowthOf(std::uint32_t place)
{
    const Item& item = *processes_.processes()[place];
    Account& account = accounts_[place];
    const Marks growth = growthOf(account, item);
    account.ran = growth.cpu > 0;
    if (account.ran) {
        ranPlaces_.push_back(place);
    }
    account.residentBytes = item.counters.residentSize;
    account.footprintBytes = static_cast<std::uint64_t>(item.figures.memoryFootprint.value_or(0));
    if (growth != Marks()) {
        addToMinute(account, growth);
        add(account.place, growth);
    }
    if (!knowsEnded_ && item.extras) { // else it has not waited for any
        add(account.place, growthOfChildren(account, item.children()));
    }
}

GroupAccumulator::Marks GroupAccumulator::growthOf(Account& account, const Item& item) const
{
    const ProcessCounters& counters = item.counters;
    Marks& marks = account.marks;
    const ProcessFields fresh = without(item.read, account.known);
    if (has(fresh, ProcessFields::Cpu)) {
        marks.cpu = counters.cpuTime;
        marks.user = counters.cpuUser;
        account.childCpu = item.children().cpuTime;
        account.childUser = item.children().cpuUser;
    }
    if (has(fresh, ProcessFields::Disk)) {
        marks.read = counters.diskReadTotal;
        marks.written = counters.diskWriteTotal;
    }
    if (has(fresh, ProcessFields::Wakeups)) {
        marks.wakeups = counters.idleWakeups;
    }
    account.known |= fresh;
    const Marks now = {
        counters.cpuTime, counters.cpuUser, counters.diskReadTotal, counters.diskWriteTotal, counters.idleWakeups};
    return now == marks ? Marks() : growthSince(marks, now);
}

/// Of all its marks at once.
GroupAccumulator::Marks GroupAccumulator::growthSince(Marks& marks, const Marks& now)
{
    Marks growth;
    growth.cpu = takeGrowth(marks.cpu, now.cpu);
    growth.user = std::min(growth.cpu, takeGrowth(marks.user, now.user));
    growth.read = takeGrowth(marks.read, now.read);
    growth.written = takeGrowth(marks.written, now.written);
    growth.wakeups = takeGrowth(marks.wakeups, now.wakeups);
    return growth;
}

/// Without what those of them that were in the table have been accounted for themselves.
GroupAccumulator::Marks GroupAccumulator::growthOfChildren(Account& account, const ChildCounters& children)
{
    Marks growth;
    growth.cpu = takeGrowth(account.childCpu, children.cpuTime);
    growth.user = takeGrowth(account.childUser, children.cpuUser);
    if (const auto inherited = inherited_.find(account.pid); inherited != inherited_.end() && growth.cpu > 0) {
        Inherited& known = inherited->second;
        growth.cpu -= std::exchange(known.cpu, known.cpu - std::min(known.cpu, growth.cpu)) - known.cpu;
        growth.user -= std::exchange(known.user, known.user - std::min(known.user, growth.user)) - known.user;
    }
    growth.user = std::min(growth.user, growth.cpu);
    return growth;
}

// Who has ended

GroupAccumulator::Marks GroupAccumulator::marksOf(const EndedRecord& record)
{
    return {record.cpuTime, record.cpuUser, record.diskBytesRead, record.diskBytesWritten, record.wakeups};
}

void GroupAccumulator::addEnded()
{
    if (!knowsEnded_) {
        return;
    }
    for (const EndedRecord& record : context_.host.processes->takeEnded()) {
        if (Account* account = accountOf(record)) {
            addFinal(*account, record);
        } else if (
            !record.isItself) { // else it was counted by nobody, and for how much of its life it should be is unknown
            addUnmet(record);
        }
    }
}

/// Of somebody whom a pass has met.
GroupAccumulator::Account* GroupAccumulator::accountOf(const EndedRecord& record)
{
    if (record.isItself) {
        return accountOf(record.known, record.knownStart);
    }
    return record.own != 0 ? accountOf(record.own, record.ownStart) : nullptr;
}

/// What has come since the pass.
void GroupAccumulator::addFinal(Account& account, const EndedRecord& record)
{
    const Marks growth = growthSince(account.marks, marksOf(record));
    account.isFinal = true;
    add(account.place, growth);
    addToMinute(account, growth);
    const auto gone = std::find_if(gone_.begin(), gone_.end(),
        [&account](const Gone& each) { return each.minute.pid == account.pid && each.start == account.start; });
    if (gone != gone_.end() && timeBase_ > 0) {
        gone->minute.cpuSeconds += static_cast<double>(growth.cpu) / timeBase_;
        gone->minute.diskBytes += growth.read + growth.written;
    }
}

void GroupAccumulator::addUnmet(const EndedRecord& record)
{
    const GroupPlace of = placeOfUnmet(record);
    GroupSums& sums = groups_.at(of).sums;
    sums.processesStarted += record.processes;
    sums.processesEnded += record.processes;
    Marks none;
    add(of, growthSince(none, marksOf(record)));
}

/// Where it would have stood if a pass had met it.
GroupPlace GroupAccumulator::placeOfUnmet(const EndedRecord& record)
{
    if (record.isRest) {
        return GroupTable::other;
    }
    if (record.isKernelThread) {
        return GroupTable::kernel;
    }
    if (const auto unit = record.unit ? naming_.ofUnit(*record.unit, record.user) : std::nullopt) {
        const auto known = groups_.placeOf(unit->identity); // one that root heads has others' processes, too
        return known ? *known : groups_.placeFor(*unit, false, 0);
    }
    const Account* account = accountOf(record.known, record.knownStart);
    const Item* item = processes_.processForPid(record.known);
    if (item && item->startIdentity != record.knownStart) {
        item = nullptr;
    }
    if (const auto head = headAmong(record, account, item)) {
        return groups_.placeFor(naming_.ofEnded(record.names.at(*head), record.user), false, 0);
    }
    return account->place;
}

/// The nearest of itself and its ancestors, up to right under the known one, that heads a group; absent where all are in that of
/// the known one.
std::optional<std::size_t> GroupAccumulator::headAmong(
    const EndedRecord& record, const Account* known, const Item* item) const
{
    std::size_t count = 0;
    while (count < record.names.size() && !record.names.at(count).empty()) {
        ++count;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const bool isTopmost = i + 1 == count;
        const bool byParent = isTopmost ? item && (item->isLaunchd || item->startsCommands)
                                        : traitsOfName(record.names.at(i + 1)).startsCommands;
        if (byParent || traitsOfName(record.names.at(i)).standsAlone) {
            return i;
        }
    }
    return known || count == 0 ? std::nullopt : std::optional(count - 1);
}

// The kernel and the packages

void GroupAccumulator::addInterrupts()
{
    if (!interruptsApart_) {
        return;
    }
    const ProcessorReading* reading = context_.host.machineCounters->processors();
    const auto now = reading ? reading->all.interruptNs : std::nullopt;
    if (now && interruptNs_ && *now > *interruptNs_) {
        const double seconds = static_cast<double>(*now - *interruptNs_) / 1e9;
        groups_.at(GroupTable::kernel).sums.cpuSystemSeconds += seconds;
        groups_.passCpu(GroupTable::kernel) += seconds;
    }
    interruptNs_ = now ? now : interruptNs_;
}

/// A package takes power for being there at all, which is nobody's. How much shows when next to nothing runs: no more than the
/// least that was ever seen, nor than the part of the time in which its processors were idle. The rest goes by CPU time.
void GroupAccumulator::shareEnergy()
{
    const auto joules = context_.host.packageEnergy->joules();
    const auto before = std::exchange(packageJoules_, joules);
    if (!joules || !before || !(interval_ > 0) || !(*joules >= *before)) {
        return;
    }
    const auto cpu = groups_.allPassCpu();
    const double busy = std::accumulate(cpu.begin(), cpu.end(), 0.0);
    const double used = *joules - *before;
    const double power = used / interval_;
    leastPower_ = leastPower_ > 0 ? std::min(leastPower_, power) : power;
    const double processors = std::max(1U, std::thread::hardware_concurrency());
    const double idlePart = std::max(0.0, 1 - busy / (interval_ * processors));
    const double idle = busy > 0 ? std::min(leastPower_, power * idlePart) * interval_ : used;
    idleJoules_ = idleJoules_.value_or(0) + idle;
    for (std::size_t index = 0; index < cpu.size() && busy > 0; ++index) {
        auto& share = groups_.all()[index].sums.joules;
        share = share.value_or(0) + (used - idle) * cpu[index] / busy;
    }
}

} // namespace meridal
