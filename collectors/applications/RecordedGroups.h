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
    GroupLevels levels; ///< of memory the mean over the time it was there, of processes the most
};

/// What the record has of one moment.
struct RecordedMoment {
    double from = 0;  ///< s since 1970; what the groups' sums are of
    double until = 0; ///< exclusive. Both 0: nothing is recorded there
    std::vector<RecordedGroup> groups;
    std::vector<ProcessMinute> processes; ///< of the minute; empty when that is not kept any more
};

} // namespace meridal
