#pragma once

#include "platform/host/SMARTDevice.h"
#include "platform/macos/kernel/IORegistryObject.h"

#include <memory>

namespace meridal {

/// The disk of a service, by the SMART plug-in of its driver.
std::unique_ptr<SMARTDevice> makeMacSMARTDevice(IORegistryObject service, SMARTKind kind);

} // namespace meridal
