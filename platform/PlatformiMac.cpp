// SPDX-License-Identifier: Apache-2.0
#include "platform/PlatformiMac.h"

namespace meridal {

PlatformiMac::PlatformiMac(Context& context) : PlatformMac(context) { hideIntergratedGraphics_ = true; }

} // namespace meridal
