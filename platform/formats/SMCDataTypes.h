// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/SensorSMCController.h"

namespace meridal {

/// Whose SMC a key was read from: an emulated one means some types otherwise.
enum class SMCOrigin { Own, Emulated };

/// The bytes of a key as a number, by the key's four-character type. -1 for a type that is not known, and so for a key
/// that does not exist. May be any float, NaN included: the bytes of type "flt " are taken as they are.
float convertSMCData(const SMCKeyValue& data, SMCOrigin origin);

/// The same as the decimal number that was meant; what comes from other types than floats is exact already.
double smcDecimal(const SMCKeyValue& data, SMCOrigin origin);

} // namespace meridal
