// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "daemon/Configuration.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

// What stands in [check] and [alerts]: how its values are written, and how `status` tells them. Functions that take a value
// answer what is wrong with it, and nothing when it is taken.

/// What a figure may be.
struct NumberBounds {
    double least;
    double most;
    std::string_view unit; ///< which may stand behind it
};

/// "90", "90 %", in small letters; `now` stays as it is when that is no such figure.
std::string takeNumber(std::string_view text, const NumberBounds& bounds, double& now);

constexpr std::size_t mostCheckedSensors = 256;
constexpr std::size_t mostIgnored = 256;

/// "TBCC 80 95", "Front fan <500 <300", "+12V <11.4 -": the key or name of a sensor, from where on to warn, and from where on
/// it is critical; "-" is no such limit. A sensor has one pair of limits above and one below, of which later lines win. Nothing
/// at all takes away all that came before.
std::string takeSensorLimits(std::string_view text, std::vector<Configuration::SensorLimits>& sensors);
/// A key or a name; nothing takes away all that came before.
std::string takeIgnored(std::string_view name, std::vector<std::string>& ignored);

bool isProgramPath(std::string_view text);
/// Whether a mail program can be handed it as an argument and in a header.
bool isMailAddress(std::string_view text);

Dictionary describeCheck(const Configuration::Check& check);
Dictionary describeAlerts(const Configuration::Alerts& alerts);

} // namespace meridal
