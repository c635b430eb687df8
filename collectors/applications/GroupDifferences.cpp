// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/GroupDifferences.h"

#include <algorithm>

namespace meridal {

namespace {

/// Whether the sums have been started over: a figure of a sum that is worked out may go back a little, all of them by half
/// may not.
bool isStartedOver(const WholeSums& now, const WholeSums& before)
{
    bool hasFallen = false;
    for (std::size_t column = 0; column < now.figures.size(); ++column) {
        if (now.figures[column] > before.figures[column]) {
            return false;
        }
        hasFallen = hasFallen || now.figures[column] < before.figures[column] / 2;
    }
    return hasFallen;
}

/// What came since, and the base for the next time.
WholeSums grown(const WholeSums& now, WholeSums& base)
{
    WholeSums between;
    between.knowsJoules = now.knowsJoules;
    for (std::size_t column = 0; column < now.figures.size(); ++column) {
        between.figures[column] = std::max<std::int64_t>(0, now.figures[column] - base.figures[column]);
        base.figures[column] = std::max(base.figures[column], now.figures[column]);
    }
    return between;
}

void takeAway(WholeSums& sums, const WholeSums& part)
{
    for (std::size_t column = 0; column < sums.figures.size(); ++column) {
        sums.figures[column] = std::max<std::int64_t>(0, sums.figures[column] - part.figures[column]);
    }
}

} // namespace

ApplicationPtr Applications::find(
    const std::string& identity, std::int64_t owner, const std::string& name, GroupKind kind)
{
    ApplicationPtr& found = all_[{identity, owner}];
    if (!found) {
        found = std::make_shared<Application>(Application{identity, owner, name, kind});
        const ApplicationPtr made = found;
        forgetUnused();
        return made;
    }
    if (!name.empty() && found->name != name) {
        found->name = name;
    }
    return found;
}

/// Now and then, when there are twice as many as the last time: what made programs were called is no use for ever.
void Applications::forgetUnused()
{
    if (all_.size() < forgetAt_) {
        return;
    }
    std::erase_if(all_, [](const auto& entry) { return entry.second.use_count() == 1; });
    forgetAt_ = std::max<std::size_t>(64, 2 * all_.size());
}

GroupDifferences::Base& GroupDifferences::baseOf(const GroupTotals& group)
{
    const std::int64_t owner = group.owner ? std::int64_t{*group.owner} : Application::nobody;
    Base& base = bases_[group.number];
    if (base.application && (base.application->identity != group.identity || base.application->owner != owner)) {
        gone_ += base.sums;
        base = {};
    }
    if (!base.application) {
        base.application = applications_.find(group.identity, owner, group.name, group.kind);
    } else if (base.application->name != group.name) {
        base.application->name = group.name;
    }
    base.round = round_;
    return base;
}

WholeSums GroupDifferences::removeGone()
{
    WholeSums sums = std::exchange(gone_, {});
    std::erase_if(bases_, [&](const auto& entry) {
        const bool isGone = entry.second.round != round_;
        if (isGone) {
            sums += entry.second.sums;
        }
        return isGone;
    });
    return sums;
}

const std::vector<GroupDifferences::Part>& GroupDifferences::take(std::span<const GroupTotals> totals)
{
    ++round_;
    parts_.clear();
    std::size_t other = totals.size();
    bool otherStartedOver = false;
    for (const GroupTotals& group : totals) {
        Base& base = baseOf(group);
        const WholeSums now = WholeSums::of(group.sums);
        const bool startedOver = isStartedOver(now, base.sums);
        if (startedOver) { // it was folded, and has come again
            gone_ += base.sums;
            base.sums = {};
        }
        if (group.kind == GroupKind::Other) {
            other = parts_.size();
            otherStartedOver = startedOver;
        }
        parts_.push_back({base.application, grown(now, base.sums), group.now});
    }
    const WholeSums gone = removeGone();
    if (other < parts_.size() && !otherStartedOver) {
        takeAway(parts_[other].sums, gone);
    }
    return parts_;
}

ApplicationPtr GroupDifferences::ofNumber(std::uint32_t number) const
{
    const auto found = bases_.find(number);
    return found != bases_.end() ? found->second.application : nullptr;
}

} // namespace meridal
