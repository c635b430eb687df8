// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/GroupTable.h"

#include <algorithm>
#include <tuple>

namespace meridal {

namespace {

constexpr double longAbsent = 600;     ///< s without a process
constexpr double bytesPerSecond = 1e8; ///< that count as much as one of CPU time

} // namespace

GroupTable::GroupTable() : totals_(2), passCpu_(2), lastPresent_(2)
{
    totals_[other].kind = GroupKind::Other;
    totals_[other].identity = totals_[other].name = "other";
    totals_[kernel].number = kernel;
    totals_[kernel].kind = GroupKind::Kernel;
    totals_[kernel].identity = totals_[kernel].name = "kernel";
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

std::optional<std::uint32_t> GroupTable::placeOf(const std::string& identity) const
{
    const auto found = std::find_if(totals_.begin() + 2, totals_.end(),
        [&identity](const GroupTotals& group) { return group.identity == identity; });
    return found == totals_.end() ? std::nullopt : std::optional(static_cast<std::uint32_t>(found - totals_.begin()));
}

std::uint32_t GroupTable::placeFor(const GroupName& group, bool hasProcesses, double used)
{
    const std::string key = keyOf(group.identity, group.owner);
    if (const auto found = places_.find(key); found != places_.end()) {
        std::uint32_t& present = totals_[found->second].now.processes;
        present = std::max(present, hasProcesses ? 1U : 0U);
        return found->second;
    }
    if (totals_.size() >= mostGroups + 2) {
        const auto least = leastPlace(used);
        if (!least) {
            return other;
        }
        fold(*least);
    }
    const auto place = static_cast<std::uint32_t>(totals_.size());
    GroupTotals& made = totals_.emplace_back();
    made.number = ++lastNumber_;
    made.identity = group.identity;
    made.name = group.name;
    made.owner = group.owner;
    made.now.processes = hasProcesses ? 1 : 0; // until they are counted
    passCpu_.push_back(0);
    lastPresent_.push_back(now_);
    places_.emplace(key, place);
    return place;
}

/// Who has had no process for long goes first, then who has none, and last those that have used less than the newcomer.
std::optional<std::uint32_t> GroupTable::leastPlace(double used) const
{
    const auto rank = [this](std::uint32_t place) {
        const bool isPresent = totals_[place].now.processes > 0;
        const int presence = isPresent ? 2 : now_ - lastPresent_[place] < longAbsent ? 1 : 0;
        return std::tuple(presence, use(totals_[place].sums));
    };
    std::uint32_t least = kernel + 1;
    for (std::uint32_t place = least + 1; place < totals_.size(); ++place) {
        least = rank(place) < rank(least) ? place : least;
    }
    return rank(least) < std::tuple(2, used) ? std::optional(least) : std::nullopt;
}

/// The last one takes its place.
void GroupTable::fold(std::uint32_t place)
{
    totals_[other].sums += totals_[place].sums;
    passCpu_[other] += passCpu_[place];
    places_.erase(keyOf(totals_[place].identity, totals_[place].owner));
    moves_.emplace_back(place, other);
    const auto last = static_cast<std::uint32_t>(totals_.size() - 1);
    if (place != last) {
        totals_[place] = std::move(totals_[last]);
        passCpu_[place] = passCpu_[last];
        lastPresent_[place] = lastPresent_[last];
        places_[keyOf(totals_[place].identity, totals_[place].owner)] = place;
        moves_.emplace_back(last, place);
    }
    totals_.pop_back();
    passCpu_.pop_back();
    lastPresent_.pop_back();
}

void GroupTable::beginPass(double monotonicTime)
{
    now_ = monotonicTime;
    std::fill(passCpu_.begin(), passCpu_.end(), 0);
    for (GroupTotals& group : totals_) {
        group.now = {};
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
}

} // namespace meridal
