#pragma once

#include "platform/formats/SMCDataTypes.h"

#include <string>
#include <vector>

namespace meridal {

/// The keys of an SMC that are sensors by their looks: the first letter of temperatures, voltages, currents or powers, a
/// type with a fraction, and a reading other than 0. For when nobody tells what there is; asks for every key there is,
/// which takes a moment.
std::vector<std::string> sensorKeysByLooks(SensorSMCController& smc, SMCOrigin origin);

} // namespace meridal
