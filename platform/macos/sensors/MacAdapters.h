// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/SMCService.h"
#include "platform/formats/SensorServices.h"

#include <memory>

namespace meridal {

/// The user client of the AppleSMC driver, which Intel and Apple-silicon Macs both have. Reading is for everybody, writing
/// for root.
std::unique_ptr<SMCService> makeAppleSMCService();

/// Sensors that drivers publish through the HID event system, as on Apple silicon. One client is kept, on a thread of its own: a
/// driver that hangs holds up nobody else.
std::unique_ptr<SensorServices> makeHIDSensorServices();

} // namespace meridal
