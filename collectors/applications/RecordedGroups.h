// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/GroupSums.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// One application over a time, as the record has it.
struct RecordedGroup {
    std::string identity; ///< GroupTotals::identity
    std::string name;     ///< as it was last called
    std::optional<std::uint32_t> owner;
    GroupKind kind = GroupKind::Application;
    GroupSums sums;
    /// Of memory the mean over the time it was there (the footprint; resident where that is not known), in both members;
    /// of processes the most.
    GroupLevels levels;
    /// The most that it held. Of `Other` nobody knows: what its groups held at most, they held at different times.
    std::optional<std::uint64_t> memoryPeakBytes;
};

/// One process over a minute, as the record has it. `group` is the place of its group in RecordedMoment::groups; that of
/// `Other` when it is not there by itself.
struct RecordedProcess : ProcessMinute {
    std::string identity; ///< of its group; empty when that was not known
    std::string groupName;
};

/// What the record has of one moment.
struct RecordedMoment {
    double from = 0;  ///< s since 1970; what the groups' sums are of
    double until = 0; ///< exclusive. Both 0: nothing is recorded there
    std::vector<RecordedGroup> groups;
    std::vector<RecordedProcess> processes; ///< of the minute; empty when that is not kept any more
};

} // namespace meridal
