#include "platform/PlatformMacPro.h"

namespace meridal {

PlatformMacPro::PlatformMacPro(Context& context) : PlatformMac(context) { ignoreGraphicsControl_ = true; }

} // namespace meridal
