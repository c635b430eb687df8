// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"
#include "platform/formats/SMCService.h"
#include "platform/formats/SensorServices.h"

#include <memory>

namespace meridal {

/// The user client of the AppleSMC driver, which Intel and Apple-silicon Macs both have. Reading is for everybody, writing
/// for root.
std::unique_ptr<SMCService> makeAppleSMCService();

/// Sensors that drivers publish through the HID event system, as on Apple silicon. A client is kept for each question, and the
/// work, which is to have one thread, asks them all: a driver that hangs takes these sensors away until it answers, and holds
/// up nothing else.
std::unique_ptr<SensorServices> makeHIDSensorServices(std::shared_ptr<SlowWork> work);

} // namespace meridal
