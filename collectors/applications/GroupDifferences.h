// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/applications/ApplicationCells.h"

#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace meridal {

/// The applications that are in use, one object each, by identity and owner.
class Applications {
public:
    /// Its name becomes that which is given, unless that is empty.
    ApplicationPtr find(const std::string& identity, std::int64_t owner, const std::string& name, GroupKind kind);
    const ApplicationPtr& other() const { return other_; }

private:
    void forgetUnused();

    std::map<std::pair<std::string, std::int64_t>, ApplicationPtr> all_;
    std::size_t forgetAt_ = 64;
    const ApplicationPtr other_ = find("other", Application::nobody, "other", GroupKind::Other);
};

/// Makes differences of totals that only grow. What is new counts from 0. A group that is no longer there has been folded
/// into "other", whose growth by that is nobody's use.
class GroupDifferences {
public:
    struct Part {
        ApplicationPtr application;
        WholeSums sums;     ///< since the last call; no figure is below 0
        GroupLevels levels; ///< now
    };

    explicit GroupDifferences(Applications& applications) : applications_(applications) { }

    /// Valid until the next call.
    const std::vector<Part>& take(std::span<const GroupTotals> totals);
    /// The group of that number at the latest call; null when there was none.
    ApplicationPtr ofNumber(std::uint32_t number) const;

private:
    struct Base {
        ApplicationPtr application;
        WholeSums sums; ///< the most that it had
        std::uint64_t round = 0;
    };
    Base& baseOf(const GroupTotals& group);
    WholeSums removeGone();

    Applications& applications_;
    std::unordered_map<std::uint32_t, Base> bases_; ///< by number
    std::vector<Part> parts_;
    WholeSums gone_; ///< of groups whose number is another's now
    std::uint64_t round_ = 0;
};

} // namespace meridal
