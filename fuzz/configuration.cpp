// SPDX-License-Identifier: Apache-2.0
#include "daemon/Configuration.h"
#include "daemon/ConfigurationCheck.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

using namespace meridal;

namespace {

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

bool isSpan(double seconds) { return seconds >= 3600 && seconds <= Configuration::longestKept; }

} // namespace

/// Configuration files of any content, the second one after a byte 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t half = std::min(text.find('\0'), text.size());
    const auto [configuration, warnings] =
        parseConfiguration({{"a.conf", text.substr(0, half)}, {"b.conf", text.substr(half)}});
    const Configuration::Keep& keep = configuration.keep;
    require(isSpan(keep.applicationMinutes) && isSpan(keep.applicationQuarterHours) && isSpan(keep.applicationHours)
        && isSpan(keep.applicationDays) && isSpan(keep.longTerm));
    require(!configuration.passInterval || (*configuration.passInterval >= 2 && *configuration.passInterval <= 300));
    require(
        configuration.check.sensors.size() <= mostCheckedSensors && configuration.check.ignore.size() <= mostIgnored);
    for (const Configuration::SensorLimits& limits : configuration.check.sensors) {
        require(!limits.sensor.empty());
        require(limits.warningAbove || limits.criticalAbove || limits.warningBelow || limits.criticalBelow);
    }
    require(configuration.alerts.every >= 1 && configuration.alerts.after >= 1);
    require(warnings.size() <= mostConfigurationWarnings + 1);
    for (const ConfigurationWarning& warning : warnings) {
        require(lineOf(warning).find('\n') == std::string::npos && !warning.text.empty());
    }
    return 0;
}
