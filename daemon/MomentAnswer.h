// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "daemon/MomentRecord.h"

namespace meridal {

/// What "moments.at" answers. Of bounded size whatever the record holds.
Value describeMoment(const MomentRecord& record);

} // namespace meridal
