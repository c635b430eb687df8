// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcessUnits.h"

#include "platform/linux/processes/ProcFigures.h"

#include <algorithm>
#include <limits>
#include <unordered_set>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint8_t settled = 8;       // readings
constexpr std::uint64_t longestGap = 128; // passes; plus up to as many by pid, so that not all are read at once
constexpr std::uint64_t young = 10;       // s
constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();
/// Of who would be seen moving: an address that stands for control groups may be given out again.
constexpr std::uint64_t longestGapOfKnown = 4096;
constexpr std::size_t usualUnits = 4096;
constexpr std::size_t few = 64; // processes

} // namespace

ProcessUnits::ProcessUnits(ProcFolder& folder, std::shared_ptr<CgroupUnits> units, const std::filesystem::path& root)
    : folder_(&folder)
    , units_(units ? std::move(units) : std::make_shared<CgroupUnits>(root))
    , ticksPerSecond_(proc::clockTicksPerSecond())
    , mostUnits_(usualUnits)
{
}

void ProcessUnits::fill(std::span<ProcessRecord> rows, std::span<const Place> places)
{
    ++pass_;
    units_->beginPass();
    if (std::exchange(generation_, units_->generation()) != units_->generation()) {
        members_.clear(); // another reader made room
    }
    const std::vector<Member> previous =
        std::exchange(members_, {}); // given back with the pass: there may be thousands
    members_.reserve(rows.size());
    std::uint64_t newest = 0; // start of the youngest process
    for (const ProcessRecord& row : pass_ == 1 ? rows : std::span<ProcessRecord>()) {
        newest = std::max(newest, row.startIdentity);
    }
    auto known = previous.cbegin();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        ProcessRecord& row = rows[i];
        const Place place = i < places.size() ? places[i] : Place{};
        while (known != previous.cend() && known->pid < row.pid) {
            ++known;
        }
        const bool same = known != previous.cend() && known->pid == row.pid && known->start == row.startIdentity;
        members_.push_back(same ? *known : Member{.pid = row.pid, .start = row.startIdentity});
        Member& member = members_.back();
        if (!same || member.place != place || pass_ >= member.next) {
            // What ran long before the first pass has been moved long ago.
            const bool isOld = pass_ == 1 && row.startIdentity + young * ticksPerSecond_ < newest;
            member.readings = isOld ? settled : member.readings;
            member.place = place;
            look(member);
        }
        row.unit = member.unit;
    }
    // Who reads a few beside another one leaves it to that.
    if (units_->size() > mostUnits_ && members_.size() > few) {
        forgetUnused();
    }
}

void ProcessUnits::look(Member& member)
{
    if (const auto known = member.place.unified != 0 ? units_->ofCgroup(member.place.unified) : std::nullopt) {
        member.unit = *known;
        member.next = never;
        return;
    }
    const auto reading = units_->read(*folder_, member.pid, member.place.unified);
    if (reading) {
        member.unit = reading->unit;
    }
    const std::uint64_t longest = reading && member.place.all != 0 ? longestGapOfKnown : longestGap;
    const std::uint64_t gap = member.readings < settled && longest == longestGap
        ? std::uint64_t(1) << member.readings++
        : longest + static_cast<std::uint32_t>(member.pid) % longest;
    member.next = reading && reading->ofCgroup ? never : pass_ + gap;
}

/// Transient scopes come and go.
void ProcessUnits::forgetUnused()
{
    std::unordered_set<std::uint32_t> used;
    for (const Member& member : members_) {
        used.insert(member.unit.number);
    }
    units_->keepOnly(used);
    generation_ = units_->generation();
    mostUnits_ = std::max(usualUnits, 2 * units_->size());
}

} // namespace meridal
