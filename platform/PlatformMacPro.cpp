// SPDX-License-Identifier: Apache-2.0
#include "platform/PlatformMacPro.h"

namespace meridal {

PlatformMacPro::PlatformMacPro(Context& context) : PlatformMac(context) { ignoreGraphicsControl_ = true; }

} // namespace meridal
