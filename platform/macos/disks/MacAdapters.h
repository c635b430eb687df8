#pragma once

#include "platform/host/Disks.h"

#include <memory>

namespace meridal {

/// Disks as the I/O registry has them, read by the SMART plug-ins of their drivers.
std::unique_ptr<Disks> makeMacDisks();

} // namespace meridal
