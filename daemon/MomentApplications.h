// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "daemon/MomentRecord.h"

namespace meridal {

/// Adds "applications", the largest first, and "processes" of the minute.
void addApplications(const MomentRecord& record, Value& answer);
/// Adds the applications that began or ceased to take much around the moment.
void addApplicationChanges(const MomentRecord& record, Value& changes);

} // namespace meridal
