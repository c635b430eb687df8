// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Disks.h"
#include "platform/host/Limitations.h"

#include <memory>

namespace meridal {

class IORegistryObject;

/// Disks as the I/O registry has them, read by the SMART plug-ins of their drivers.
std::unique_ptr<Disks> makeMacDisks(std::shared_ptr<Limitations> limitations);

/// One of them, by its service.
std::unique_ptr<SMARTDevice> makeMacSMARTDevice(
    IORegistryObject service, SMARTKind kind, std::shared_ptr<Limitations> limitations);

} // namespace meridal
