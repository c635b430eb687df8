// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/GroupAccumulator.h"

#include "base/Runtime.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostAway = 4096;
/// Passes for which a parent may be late to wait for a child, where only parents tell.
constexpr std::uint32_t patienceWithParents = 4;

} // namespace

GroupAccumulator::GroupAccumulator(Context& context, ProcessStatCollector& processes)
    : context_(context)
    , processes_(processes)
    , naming_(context, processes)
    , timeBase_(processes.timebaseFrequency())
    , knowsEnded_(context.host.processes->keepEnded(true))
    , interruptsApart_(context.host.processes->interruptsApart())
{
}

GroupAccumulator::~GroupAccumulator() { context_.host.processes->keepEnded(false); }

void GroupAccumulator::update()
{
    const double now = context_.runtime.monotonicTime();
    interval_ = pass_ == 0 ? 0 : now - now_;
    now_ = now;
    if (++pass_ == 1) {
        since_ = context_.runtime.wallTime();
    }
    groups_.beginPass(now_);
    alignAccounts();
    assignGroups();
    addGrowth();
    addEnded();
    addInterrupts();
    shareEnergy();
    addGraphics();
    sumLevels();
    forgetDeparted();
}

// The table and the accounts side by side

/// Both keep the order of first sight, so that one walk brings them together: those who stay move up, and after the first
/// who is new all are. On most machines most passes find the same table, and then nothing is to be done.
void GroupAccumulator::alignAccounts()
{
    const std::uint32_t before = std::exchange(tableNumber_, processes_.tableNumber());
    isTableNew_ = before != tableNumber_ || pass_ == 1;
    if (!isTableNew_) {
        return;
    }
    const std::vector<Item*>& items = processes_.processes();
    auto known = accounts_.cbegin();
    std::size_t aligned = 0;
    for (; aligned < items.size(); ++aligned) {
        const Item& item = *items[aligned];
        const auto same =
            std::find_if(known, accounts_.cend(), [&item](const Account& account) { return account.pid == item.pid; });
        if (same == accounts_.cend()) {
            break;
        }
        std::for_each(known, same, [this](const Account& account) { depart(account); });
        known = same + 1;
        if (same->start == item.startIdentity) {
            accounts_[aligned] = *same;
        } else {
            depart(*same);
            accounts_[aligned] = begunFor(item);
        }
    }
    std::for_each(known, accounts_.cend(), [this](const Account& account) { depart(account); });
    accounts_.resize(aligned);
    accounts_.reserve(items.size());
    std::for_each(items.begin() + static_cast<std::ptrdiff_t>(aligned), items.end(),
        [this](const Item* item) { accounts_.push_back(begunFor(*item)); });
}

GroupAccumulator::Account GroupAccumulator::begunFor(const Item& item) const
{
    Account account;
    account.pid = item.pid;
    account.parent = item.parentPid;
    account.start = item.startIdentity;
    account.known = pass_ == 1 ? ProcessFields::None : ProcessFields::All;
    return account;
}

void GroupAccumulator::depart(const Account& account)
{
    ++groups_.at(account.place).sums.processesEnded;
    keepForMinute(account);
    if (!knowsEnded_) {
        Inherited& inherited = inherited_[account.parent];
        inherited.cpu += account.marks.cpu + account.childCpu;
        inherited.user += account.marks.user + account.childUser;
        inherited.pass = pass_;
    }
    if (departed_.size() < mostAway) {
        departed_.emplace(account.pid, Departed{account, pass_});
    }
}

void GroupAccumulator::forgetDeparted()
{
    const std::uint32_t longest = knowsEnded_ ? longestAway : patienceWithParents;
    std::erase_if(departed_, [&](const auto& entry) {
        return pass_ - entry.second.pass >= (entry.second.account.isFinal ? awayAfterEnd : longest);
    });
    std::erase_if(inherited_, [&](const auto& entry) { return pass_ - entry.second.pass >= patienceWithParents; });
}

// Who is in which group

void GroupAccumulator::assignGroups()
{
    if (isTableNew_) { // room is made where nobody is left
        countProcesses();
    }
    haveMoved_ = false;
    assignHeads();
    if (isTableNew_ || haveMoved_) {
        assignMembers();
    }
}

void GroupAccumulator::countProcesses()
{
    for (GroupTotals& group : groups_.all()) {
        group.now.processes = 0;
    }
    for (const Account& account : accounts_) {
        groups_.at(account.place).now.processes += account.age > 0 ? 1 : 0;
    }
}

/// Where the table is the same, only those that are to be looked up again.
void GroupAccumulator::assignHeads()
{
    const auto& items = processes_.processes();
    for (std::size_t i = 0; i < items.size(); ++i) {
        Account& account = accounts_[i];
        if (isTableNew_ ? items[i]->root() : account.name != 0 && isDue(account)) {
            const GroupPlace before = account.place;
            assignHead(*items[i], account);
            haveMoved_ = haveMoved_ || account.place != before;
        }
        account.age = account.age + 1 < circleEnd ? static_cast<std::uint8_t>(account.age + 1) : circleStart;
    }
}

void GroupAccumulator::assignMembers()
{
    const auto& items = processes_.processes();
    for (std::size_t i = 0; i < items.size(); ++i) {
        const Item* item = items[i];
        Account& account = accounts_[i];
        const Item* head = item;
        while (head->controller) {
            head = head->controller;
        }
        account.place = accounts_[head->place].place;
        if (account.age == 1 && pass_ > 1) {
            ++groups_.at(account.place).sums.processesStarted;
        }
        account.name = item->root() ? account.name : 0;
    }
}

/// Most processes of a table have been in it from the first pass on. What is to be done now and then is done for some of them in each
/// pass, and not for all in one.
bool GroupAccumulator::comesRound(const Account& account)
{
    constexpr int circle = circleEnd - circleStart;
    return account.age >= circleStart && account.age - circleStart == account.pid % circle;
}

bool GroupAccumulator::isDue(const Account& account) const
{
    return account.age == firstLook || account.age == secondLook
        || (comesRound(account) && groups_.isOther(account.place));
}

void GroupAccumulator::assignHead(Item& head, Account& account)
{
    const std::size_t name = std::hash<std::string_view>{}(head.commandName);
    if (account.name == name && account.unit == head.unit.number && !isDue(account)) {
        return;
    }
    account.name = name;
    account.unit = head.unit.number;
    if (head.isKernelThread) {
        account.place = GroupTable::kernel;
        return;
    }
    const double used = timeBase_ > 0 ? static_cast<double>(head.counters.cpuTime) / timeBase_ : 0;
    account.place = groups_.placeFor(naming_.of(head), true, used);
}

GroupAccumulator::Account* GroupAccumulator::accountOf(std::int32_t pid, std::uint64_t start)
{
    const Item* item = processes_.processForPid(pid);
    if (item && item->startIdentity == start && item->place < accounts_.size() && accounts_[item->place].pid == pid) {
        return &accounts_[item->place];
    }
    const auto [first, last] = departed_.equal_range(pid);
    const auto found =
        std::find_if(first, last, [start](const auto& entry) { return entry.second.account.start == start; });
    return found == last ? nullptr : &found->second.account;
}

/// Of somebody who may have ended, and whom no pass may have met.
GroupPlace GroupAccumulator::placeOf(const Item& item)
{
    const Item* at = &item;
    while (true) {
        if (const Account* account = accountOf(at->pid, at->startIdentity)) {
            return account->place;
        }
        if (!at->controller) {
            return groups_.placeFor(naming_.ofEnded(at->commandName, std::nullopt), false, 0);
        }
        at = at->controller;
    }
}

void GroupAccumulator::addTraffic(const ProcessTable& table, std::uint64_t kernelReceived, std::uint64_t kernelSent)
{
    for (const auto& items : {table.processes, table.ended}) {
        for (const Item* item : items) {
            const double received = item->activity().networkDownload.value_or(0);
            const double sent = item->activity().networkUpload.value_or(0);
            if (!(received + sent > 0)) {
                continue;
            }
            GroupSums& sums = groups_.at(placeOf(*item)).sums;
            sums.bytesReceived += static_cast<std::uint64_t>(received);
            sums.bytesSent += static_cast<std::uint64_t>(sent);
            if (Account* account = accountOf(item->pid, item->startIdentity)) {
                account->minuteNetwork += static_cast<float>(received + sent);
            }
        }
    }
    GroupSums& kernel = groups_.at(GroupTable::kernel).sums;
    kernel.bytesReceived += kernelReceived;
    kernel.bytesSent += kernelSent;
}

// What is held now

void GroupAccumulator::sumLevels()
{
    for (GroupTotals& group : groups_.all()) {
        group.now.processes = 0;
    }
    for (const Account& account : accounts_) {
        GroupLevels& now = groups_.at(account.place).now;
        ++now.processes;
        now.residentBytes += account.residentBytes;
        now.footprintBytes += account.footprintBytes;
    }
    groups_.notePeaks();
}

} // namespace meridal
