// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/GroupTable.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double longAbsent = 600;     ///< s without a process
constexpr double bytesPerSecond = 1e8; ///< that count as much as one of CPU time

} // namespace

GroupTable::GroupTable() : totals_(2), passCpu_(2), lastPresent_(2), brought_(2)
{
    totals_[other.index].kind = GroupKind::Other;
    totals_[other.index].identity = totals_[other.index].name = "other";
    totals_[kernel.index].number = kernel.number;
    totals_[kernel.index].kind = GroupKind::Kernel;
    totals_[kernel.index].identity = totals_[kernel.index].name = "kernel";
}

double GroupTable::use(const GroupSums& sums)
{
    const auto bytes = sums.bytesRead + sums.bytesWritten + sums.bytesReceived + sums.bytesSent;
    return sums.cpuSeconds() + static_cast<double>(bytes) / bytesPerSecond;
}

/// No identity holds a zero byte: they come from names and paths.
std::string GroupTable::keyOf(const std::string& identity, const std::optional<std::uint32_t>& owner)
{
    return identity + '\0' + (owner ? std::to_string(*owner) : std::string());
}

std::optional<GroupPlace> GroupTable::placeOf(const std::string& identity) const
{
    const auto found = std::find_if(totals_.begin() + 2, totals_.end(),
        [&identity](const GroupTotals& group) { return group.identity == identity; });
    return found == totals_.end()
        ? std::nullopt
        : std::optional(GroupPlace{static_cast<std::uint32_t>(found - totals_.begin()), found->number});
}

GroupPlace GroupTable::placeFor(const GroupName& group, bool hasProcesses, double used)
{
    const std::string key = keyOf(group.identity, group.owner);
    if (const auto found = indices_.find(key); found != indices_.end()) {
        GroupTotals& known = totals_[found->second];
        known.now.processes = std::max(known.now.processes, hasProcesses ? 1U : 0U);
        return {found->second, known.number};
    }
    auto index = static_cast<std::uint32_t>(totals_.size());
    if (index < mostGroups + 2) {
        totals_.emplace_back();
        passCpu_.push_back(0);
        lastPresent_.push_back(0);
        brought_.push_back(0);
    } else if (const auto least = leastIndex(used)) {
        index = *least;
        fold(index);
    } else {
        return other;
    }
    GroupTotals& made = totals_[index];
    made.number = ++lastNumber_;
    made.identity = group.identity;
    made.name = group.name;
    made.owner = group.owner;
    made.now.processes = hasProcesses ? 1 : 0; // until they are counted
    lastPresent_[index] = now_;
    brought_[index] = used;
    indices_.emplace(key, index);
    return {index, made.number};
}

/// Who has had no process for long goes first, then who has none, and last those that have used less than the newcomer.
GroupTable::Rank GroupTable::rankOf(std::uint32_t index) const
{
    const bool isPresent = totals_[index].now.processes > 0;
    const int presence = isPresent ? 2 : now_ - lastPresent_[index] < longAbsent ? 1 : 0;
    return {presence, std::max(use(totals_[index].sums), brought_[index])};
}

/// Ranks only rise in a pass: of the many who have used little most need not be compared with everybody.
std::optional<std::uint32_t> GroupTable::leastIndex(double used)
{
    const Rank newcomer(2, used);
    if (leastRank_ && *leastRank_ >= newcomer) {
        return std::nullopt;
    }
    std::uint32_t least = kernel.index + 1;
    leastRank_ = rankOf(least);
    for (std::uint32_t index = least + 1; index < totals_.size(); ++index) {
        if (const Rank rank = rankOf(index); rank < *leastRank_) {
            least = index;
            leastRank_ = rank;
        }
    }
    return *leastRank_ < newcomer ? std::optional(least) : std::nullopt;
}

void GroupTable::fold(std::uint32_t index)
{
    totals_[other.index].sums += totals_[index].sums;
    passCpu_[other.index] += std::exchange(passCpu_[index], 0);
    indices_.erase(keyOf(totals_[index].identity, totals_[index].owner));
    totals_[index] = {};
}

void GroupTable::beginPass(double monotonicTime)
{
    now_ = monotonicTime;
    leastRank_.reset();
    std::fill(passCpu_.begin(), passCpu_.end(), 0);
    for (GroupTotals& group : totals_) {
        group.now = {.processes = group.now.processes};
    }
}

void GroupTable::notePeaks()
{
    for (std::size_t place = 0; place < totals_.size(); ++place) {
        GroupTotals& group = totals_[place];
        group.peak.residentBytes = std::max(group.peak.residentBytes, group.now.residentBytes);
        group.peak.footprintBytes = std::max(group.peak.footprintBytes, group.now.footprintBytes);
        group.peak.processes = std::max(group.peak.processes, group.now.processes);
        if (group.now.processes > 0) {
            lastPresent_[place] = now_;
        }
    }
    leastRank_.reset(); // who has lost its last process ranks lower from here on
}

} // namespace meridal
