// SPDX-License-Identifier: Apache-2.0
// Who was among the largest in a minute.

#include "collectors/process/GroupAccumulator.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <set>

namespace meridal {

namespace {

constexpr std::ptrdiff_t listedByEach = 10;
constexpr std::size_t mostGone = 512; // beyond, only the largest of them stay

using MinuteUse = double (*)(const ProcessMinute&);
constexpr std::array<MinuteUse, 4> minuteFigures = {
    [](const ProcessMinute& of) { return of.cpuSeconds; },
    [](const ProcessMinute& of) { return static_cast<double>(of.memoryBytes); },
    [](const ProcessMinute& of) { return static_cast<double>(of.diskBytes); },
    [](const ProcessMinute& of) { return static_cast<double>(of.networkBytes); },
};

/// Which of them are among the largest by any figure, in their order.
template <typename Entry, typename Of>
std::vector<Entry> largestOf(std::vector<Entry>&& entries, Of minuteIn)
{
    std::set<std::size_t> chosen;
    std::vector<std::size_t> order(entries.size());
    for (const MinuteUse use : minuteFigures) {
        for (std::size_t i = 0; i < order.size(); ++i) {
            order[i] = i;
        }
        const auto end = order.begin() + std::min<std::ptrdiff_t>(listedByEach, std::ssize(order));
        std::partial_sort(order.begin(), end, order.end(),
            [&](std::size_t a, std::size_t b) { return use(minuteIn(entries[a])) > use(minuteIn(entries[b])); });
        std::copy_if(order.begin(), end, std::inserter(chosen, chosen.end()),
            [&](std::size_t i) { return use(minuteIn(entries[i])) > 0; });
    }
    std::vector<Entry> largest;
    for (const std::size_t i : chosen) {
        largest.push_back(std::move(entries[i]));
    }
    return largest;
}

} // namespace

ProcessMinute GroupAccumulator::minuteOf(const Account& account, const Item& item) const
{
    ProcessMinute minute;
    minute.pid = account.pid;
    minute.group = groups_.at(account.place).number;
    minute.cpuSeconds = static_cast<double>(account.minuteCpu);
    minute.memoryBytes = item.figures.memoryFootprint ? static_cast<std::uint64_t>(*item.figures.memoryFootprint)
                                                      : item.counters.residentSize;
    minute.diskBytes = static_cast<std::uint64_t>(account.minuteDisk);
    minute.networkBytes = static_cast<std::uint64_t>(account.minuteNetwork);
    return minute;
}

/// Its memory is no one's any more.
void GroupAccumulator::keepForMinute(const Account& account)
{
    Item* item = processes_.departedItem({.pid = account.pid, .startIdentity = account.start});
    if (!item || !(account.minuteCpu + account.minuteDisk + account.minuteNetwork > 0)) {
        return;
    }
    Gone gone{.minute = minuteOf(account, *item), .start = account.start};
    gone.minute.memoryBytes = 0;
    gone.minute.name = item->name();
    gone.minute.startTime = context_.host.processes->startTime(account.start);
    gone_.push_back(std::move(gone));
    if (gone_.size() > mostGone) {
        gone_ = largestOf(std::move(gone_), [](const Gone& each) -> const ProcessMinute& { return each.minute; });
    }
}

std::vector<ProcessMinute> GroupAccumulator::takeMinute()
{
    std::vector<ProcessMinute> all;
    all.reserve(accounts_.size() + gone_.size());
    for (const Item* item : processes_.processes()) {
        if (item->place < accounts_.size() && accounts_[item->place].pid == item->pid) {
            all.push_back(minuteOf(accounts_[item->place], *item));
        }
    }
    for (Account& account : accounts_) {
        account.minuteCpu = account.minuteDisk = account.minuteNetwork = 0;
    }
    for (Gone& gone : gone_) {
        all.push_back(std::move(gone.minute));
    }
    gone_.clear();
    auto largest = largestOf(std::move(all), [](const ProcessMinute& each) -> const ProcessMinute& { return each; });
    for (ProcessMinute& minute : largest) {
        if (!minute.name.empty()) {
            continue;
        }
        if (Item* item = processes_.processForPid(minute.pid)) {
            minute.name = processes_.sharingNameForProcess(*item, false);
            minute.startTime = context_.host.processes->startTime(item->startIdentity);
        }
    }
    return largest;
}

} // namespace meridal
