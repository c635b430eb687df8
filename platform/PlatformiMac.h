// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/PlatformMac.h"

namespace meridal {

/// A machine whose processor has graphics that never drive the screen.
class PlatformiMac : public PlatformMac {
public:
    explicit PlatformiMac(Context& context);
};

} // namespace meridal
