// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/PlatformMac.h"

namespace meridal {

/// A machine with graphics cards only: there is no built-in processor to switch to.
class PlatformMacPro : public PlatformMac {
public:
    explicit PlatformMacPro(Context& context);
};

} // namespace meridal
