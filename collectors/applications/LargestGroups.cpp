// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/LargestGroups.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace meridal {

namespace {

enum GrowthColumn : std::size_t {
    UserSeconds,
    SystemSeconds,
    ReadBytes,
    WrittenBytes,
    ReceivedBytes,
    SentBytes,
    WakeupCount,
    ScoreSeconds,
    Joules,
    GraphicsSeconds,
    StartedCount,
    EndedCount,
};

/// By what groups are compared. What all together use less of a second is nothing to have a large share of.
struct ShareColumns {
    GrowthColumn one;
    GrowthColumn other;
    double least;
};
constexpr std::array<ShareColumns, 4> shareColumns = {{{UserSeconds, SystemSeconds, 0.01},
    {ReadBytes, WrittenBytes, 16'384}, {ReceivedBytes, SentBytes, 1024}, {ScoreSeconds, ScoreSeconds, 1}}};

std::uint64_t heldBytes(const GroupLevels& levels)
{
    return levels.footprintBytes > 0 ? levels.footprintBytes : levels.residentBytes;
}

void addLevels(GroupLevels& sum, const GroupLevels& more)
{
    sum.residentBytes += more.residentBytes;
    sum.footprintBytes += more.footprintBytes;
    sum.processes += more.processes;
    if (more.graphicsBytes) {
        sum.graphicsBytes = sum.graphicsBytes.value_or(0) + *more.graphicsBytes;
    }
}

/// No identity holds a zero byte.
std::string accountKey(const GroupTotals& group)
{
    return group.identity + '\0' + (group.owner ? std::to_string(*group.owner) : std::string());
}

std::uint64_t counted(double count) { return static_cast<std::uint64_t>(std::llround(std::max(count, 0.0))); }

} // namespace

LargestGroups::Figures LargestGroups::Figures::of(const GroupSums& sums)
{
    const auto count = [](std::uint64_t figure) { return static_cast<double>(figure); };
    Figures figures;
    figures.counts = {sums.cpuUserSeconds, sums.cpuSystemSeconds, count(sums.bytesRead), count(sums.bytesWritten),
        count(sums.bytesReceived), count(sums.bytesSent), count(sums.wakeups), sums.energyScore,
        sums.joules.value_or(0), sums.graphicsSeconds.value_or(0), count(sums.processesStarted),
        count(sums.processesEnded)};
    figures.knowsJoules = sums.joules.has_value();
    figures.knowsGraphics = sums.graphicsSeconds.has_value();
    return figures;
}

GroupSums LargestGroups::Figures::groupSums() const
{
    GroupSums sums;
    sums.cpuUserSeconds = counts[UserSeconds];
    sums.cpuSystemSeconds = counts[SystemSeconds];
    sums.bytesRead = counted(counts[ReadBytes]);
    sums.bytesWritten = counted(counts[WrittenBytes]);
    sums.bytesReceived = counted(counts[ReceivedBytes]);
    sums.bytesSent = counted(counts[SentBytes]);
    sums.wakeups = counted(counts[WakeupCount]);
    sums.energyScore = counts[ScoreSeconds];
    sums.joules = knowsJoules ? std::optional(counts[Joules]) : std::nullopt;
    sums.graphicsSeconds = knowsGraphics ? std::optional(counts[GraphicsSeconds]) : std::nullopt;
    sums.processesStarted = counted(counts[StartedCount]);
    sums.processesEnded = counted(counts[EndedCount]);
    return sums;
}

LargestGroups::Figures& LargestGroups::Figures::operator+=(const Figures& other)
{
    for (std::size_t column = 0; column < counts.size(); ++column) {
        counts[column] += other.counts[column];
    }
    knowsJoules = knowsJoules || other.knowsJoules;
    knowsGraphics = knowsGraphics || other.knowsGraphics;
    return *this;
}

LargestGroups::Figures LargestGroups::Figures::takeGrowth(Figures& base) const
{
    Figures growth = *this;
    for (std::size_t column = 0; column < counts.size(); ++column) {
        growth.counts[column] = std::max(0.0, counts[column] - base.counts[column]);
        base.counts[column] = std::max(base.counts[column], counts[column]);
    }
    return growth;
}

// What each has used since the last time

/// What was in the table and is not there any more, or again from 0, has moved into its "other", where it is no growth.
void LargestGroups::takeGrowth(std::span<const GroupTotals* const> totals)
{
    Figures moved;
    const GroupTotals* other = nullptr;
    ++round_;
    present_.clear();
    kernel_.group = nullptr;
    kernel_.growth = {};
    for (const GroupTotals* group : totals) {
        if (group->kind == GroupKind::Other) {
            other = group;
            continue;
        }
        const bool isKernel = group->kind == GroupKind::Kernel;
        Account& account = isKernel ? kernel_ : accounts_[accountKey(*group)];
        if (std::exchange(account.number, group->number) != group->number) {
            moved += std::exchange(account.base, {});
        }
        account.group = group;
        account.round = round_;
        account.growth = Figures::of(group->sums).takeGrowth(account.base);
        if (!isKernel) {
            present_.push_back(&account);
        }
    }
    if (present_.size() < accounts_.size()) {
        takeGone(moved);
    }
    otherNow_ = other ? other->now : GroupLevels{};
    otherBase_ += moved;
    otherGrowth_ = other ? Figures::of(other->sums).takeGrowth(otherBase_) : Figures{};
}

/// Of those that are not in the table any more only what they were told to have is wanted, should they come again.
void LargestGroups::takeGone(Figures& moved)
{
    std::vector<std::pair<double, std::string>> away;
    for (auto each = accounts_.begin(); each != accounts_.end();) {
        Account& account = each->second;
        if (account.round == round_) {
            ++each;
            continue;
        }
        moved += std::exchange(account.base, {});
        account.group = nullptr;
        account.number = 0;
        account.score = 0;
        account.isNamed = false;
        account.aheadSince.reset();
        if (account.wasNamed) {
            away.emplace_back(account.lastNamed, each->first);
            ++each;
        } else {
            each = accounts_.erase(each);
        }
    }
    if (away.size() > mostKept) {
        std::sort(away.begin(), away.end());
        away.resize(away.size() - mostKept);
        for (const auto& [time, key] : away) {
            accounts_.erase(key);
        }
    }
}

// Who is the largest

/// A share of an interval counts by its length, so that a peak weighs no more than the time that it took.
void LargestGroups::score(double now, double age)
{
    const bool isFirst = !lastTime_;
    const double seconds = isFirst ? std::max(age, 0.0) : std::max(now - *lastTime_, 0.0);
    const double weight = isFirst ? 1 : 1 - std::exp(-seconds / memory);
    lastTime_ = now;
    std::array<double, shareColumns.size()> sums = {};
    double held = 0;
    for (const Account* account : present_) {
        for (std::size_t share = 0; share < sums.size(); ++share) {
            const auto& [one, another, least] = shareColumns.at(share);
            sums.at(share) += account->growth.counts.at(one) + account->growth.counts.at(another);
        }
        held += static_cast<double>(heldBytes(account->group->now));
    }
    for (Account* account : present_) {
        double shares = held > 0 ? static_cast<double>(heldBytes(account->group->now)) / held : 0;
        for (std::size_t share = 0; share < sums.size(); ++share) {
            const auto& [one, another, least] = shareColumns.at(share);
            const double used = account->growth.counts.at(one) + account->growth.counts.at(another);
            const double all = std::max(sums.at(share), least * seconds);
            shares += all > 0 ? used / all : 0;
        }
        account->score += weight * (shares - account->score);
    }
}

bool LargestGroups::isLarger(const Account* a, const Account* b)
{
    return a->score != b->score ? a->score > b->score : a->number < b->number;
}

void LargestGroups::name(Account& account, double now)
{
    account.isNamed = account.wasNamed = true;
    account.lastNamed = now;
    account.aheadSince.reset();
}

void LargestGroups::fillRoom(double now)
{
    Candidates others;
    std::size_t named = 0;
    for (Account* account : present_) {
        if (account->isNamed) {
            ++named;
            account->lastNamed = now;
        } else {
            others.push_back(account);
        }
    }
    if (named < count_) {
        std::sort(others.begin(), others.end(), isLarger);
        for (std::size_t next = 0; next < others.size() && named < count_; ++next, ++named) {
            name(*others[next], now);
        }
    }
}

void LargestGroups::attribute()
{
    otherTold_ += otherGrowth_;
    for (Account* account : present_) {
        (account->isNamed ? account->told : otherTold_) += account->growth;
    }
    kernel_.told += kernel_.growth;
}

/// The largest of the others against the least of the named ones, the second against the second, and so on.
void LargestGroups::exchange(double now)
{
    Candidates named;
    std::copy_if(
        present_.begin(), present_.end(), std::back_inserter(named), [](const Account* each) { return each->isNamed; });
    std::sort(named.begin(), named.end(), [](const Account* a, const Account* b) { return isLarger(b, a); });
    Candidates ahead;
    for (Account* each : present_) {
        if (each->isNamed) {
            continue;
        }
        if (!named.empty() && each->score > clearlyMore * named[0]->score && each->group->now.processes > 0) {
            ahead.push_back(each);
        } else {
            each->aheadSince.reset();
        }
    }
    std::sort(ahead.begin(), ahead.end(), isLarger);
    for (std::size_t pair = 0; pair < ahead.size(); ++pair) {
        Account& comes = *ahead[pair];
        if (pair >= named.size() || comes.score <= clearlyMore * named[pair]->score) {
            comes.aheadSince.reset();
        } else if (!comes.aheadSince) {
            comes.aheadSince = now;
        } else if (now - *comes.aheadSince >= aheadFor) {
            name(comes, now);
            named[pair]->isNamed = false;
        }
    }
}

void LargestGroups::answer()
{
    answer_.clear();
    GroupTotals other{
        .kind = GroupKind::Other, .identity = "other", .name = "other", .owner = {}, .sums = {}, .now = {}, .peak = {}};
    other.sums = otherTold_.groupSums();
    other.now = otherNow_;
    const auto add = [this](const Account& account) {
        answer_.push_back(*account.group);
        answer_.back().sums = account.told.groupSums();
    };
    for (const Account* account : present_) {
        if (account->isNamed) {
            add(*account);
        } else {
            addLevels(other.now, account->group->now);
        }
    }
    if (kernel_.group) {
        add(kernel_);
    }
    otherPeak_.residentBytes = std::max(otherPeak_.residentBytes, other.now.residentBytes);
    otherPeak_.footprintBytes = std::max(otherPeak_.footprintBytes, other.now.footprintBytes);
    otherPeak_.processes = std::max(otherPeak_.processes, other.now.processes);
    other.peak = otherPeak_;
    answer_.push_back(std::move(other));
    std::sort(
        answer_.begin(), answer_.end(), [](const GroupTotals& a, const GroupTotals& b) { return a.number < b.number; });
}

const std::vector<GroupTotals>& LargestGroups::take(std::span<const GroupTotals* const> totals, double now, double age)
{
    takeGrowth(totals);
    score(now, age);
    fillRoom(now);
    exchange(now);
    attribute(); // to whom is named now: what somebody whose name goes has used since would never be told
    answer();
    return answer_;
}

void LargestGroups::startOver()
{
    otherBase_ = {};
    for (auto& [key, account] : accounts_) {
        account.number = 0;
        account.base = {};
    }
    kernel_.base = {};
}

// Whose

LargestGroups& LargestGroupsByAsker::of(const Asker& asker, double now)
{
    forgetIdle(now);
    auto found = states_.find(asker);
    if (found == states_.end()) {
        if (states_.size() >= mostStates) {
            makeRoom();
        }
        found = states_.emplace(asker, State{LargestGroups(std::get<2>(asker)), now}).first;
    }
    found->second.lastAsked = now;
    return found->second.groups;
}

void LargestGroupsByAsker::makeRoom()
{
    std::map<std::optional<std::uint32_t>, std::size_t> held;
    for (const auto& [asker, state] : states_) {
        ++held[std::get<0>(asker)];
    }
    const auto idle = [](const auto& entry) { return -entry.second.lastAsked; };
    const auto gone = std::max_element(states_.begin(), states_.end(), [&](const auto& a, const auto& b) {
        return std::pair(held[std::get<0>(a.first)], idle(a)) < std::pair(held[std::get<0>(b.first)], idle(b));
    });
    states_.erase(gone);
}

void LargestGroupsByAsker::forgetIdle(double now)
{
    std::erase_if(states_, [now](const auto& entry) { return now - entry.second.lastAsked > idleFor; });
}

void LargestGroupsByAsker::startOver()
{
    for (auto& [asker, state] : states_) {
        state.groups.startOver();
    }
}

} // namespace meridal
