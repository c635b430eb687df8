// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "daemon/MomentRecord.h"

#include <optional>
#include <string>

namespace meridal {

/// Whether the machine ran at a moment, as far as the record of boots and sleeps tells.
struct MomentState {
    std::optional<bool> isOn;
    std::optional<bool> isAsleep;
    std::optional<double> since; ///< s since 1970: when it came to be so
    std::optional<double> until; ///< when that ended, if it did
    std::string why;             ///< why nothing can have been measured; empty: something can have been
};

MomentState momentState(const MomentRecord& record);
/// {"on", "asleep", "since"?, "until"?}
Value describe(const MomentState& state);
/// From when to when anything is recorded: {"from", "until"}, null where nothing is.
Value describeExtent(const MomentRecord& record);
/// Why there are no figures of the moment, for people.
std::string whyNothingIsKnown(const MomentRecord& record, const MomentState& state);
/// Adds starts, ends, sleeps and changes of the power source around the moment: {"time", "what"}.
void addEvents(const MomentRecord& record, Value& changes);

} // namespace meridal
