#include "platform/linux/ResponsibleUnits.h"

#include <algorithm>

namespace meridal {

namespace {

constexpr std::uint64_t maximumAge = 16;   // passes; plus up to as many by pid, so that not all are read at once
constexpr std::size_t maximumUnits = 4096; // transient scopes come and go: beyond this, all is read afresh

} // namespace

std::optional<std::int32_t> ResponsibleUnits::responsiblePid(
    std::int32_t pid, std::span<const ProcessRecord> rows, std::uint64_t pass)
{
    if (pass != pass_) {
        bringUpToDate(rows, pass);
    }
    const auto member = std::lower_bound(members_.begin(), members_.end(), pid,
        [](const Member& each, std::int32_t wanted) { return each.pid < wanted; });
    if (member == members_.end() || member->pid != pid || member->unit == 0) {
        return std::nullopt;
    }
    return oldest_[member->unit].pid;
}

bool ResponsibleUnits::isStale(const Member& member, std::uint64_t pass) const
{
    return !member.settled || pass - member.readAt >= maximumAge + static_cast<std::uint32_t>(member.pid) % maximumAge;
}

void ResponsibleUnits::bringUpToDate(std::span<const ProcessRecord> rows, std::uint64_t pass)
{
    pass_ = pass;
    if (numbers_.size() > maximumUnits) {
        numbers_.clear();
        members_.clear();
    }
    std::swap(members_, previous_);
    members_.clear();
    auto known = previous_.begin();
    for (const ProcessRecord& row : rows) {
        while (known != previous_.end() && known->pid < row.pid) {
            ++known;
        }
        const bool same = known != previous_.end() && known->pid == row.pid && known->start == row.startIdentity;
        Member member = same ? *known : Member{.pid = row.pid, .start = row.startIdentity};
        if (!same || isStale(member, pass)) {
            member.unit = numberOf(readUnit_(row.pid));
            member.readAt = pass;
            member.settled = same;
        }
        members_.push_back(member);
    }

    oldest_.assign(numbers_.size() + 1, Oldest{});
    for (const Member& member : members_) {
        Oldest& oldest = oldest_[member.unit];
        if (oldest.pid == 0 || member.start < oldest.start) { // ascending pids: of equal starts the first stays
            oldest = {.pid = member.pid, .start = member.start};
        }
    }
}

ResponsibleUnits::UnitNumber ResponsibleUnits::numberOf(std::string_view unit)
{
    if (unit.empty()) {
        return 0;
    }
    return numbers_.try_emplace(std::string(unit), static_cast<UnitNumber>(numbers_.size() + 1)).first->second;
}

} // namespace meridal
