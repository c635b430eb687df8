#pragma once

#include "platform/host/Registry.h"
#include "platform/host/SMARTDevice.h"

#include <memory>

namespace meridal {

/// The I/O registry: entries are services, with the properties that their drivers publish.
std::unique_ptr<Registry> makeMacRegistry();

std::unique_ptr<SMARTDevices> makeMacSMARTDevices();

} // namespace meridal
