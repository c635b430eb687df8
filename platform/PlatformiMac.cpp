#include "platform/PlatformiMac.h"

namespace meridal {

PlatformiMac::PlatformiMac(Context& context) : PlatformMac(context) { hideIntergratedGraphics_ = true; }

} // namespace meridal
