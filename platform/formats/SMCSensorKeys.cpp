#include "platform/formats/SMCSensorKeys.h"

#include <cmath>
#include <cstddef>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

/// Macs have a thousand or two, of which some hundred are sensors.
constexpr std::size_t mostKeys = 4096;
constexpr std::size_t mostSensors = 512;

/// What keys read whose sensor is not fitted lies outside, °C.
constexpr float coldest = 0;
constexpr float hottest = 130;

bool looksLikeSensor(SensorSMCController& smc, SMCOrigin origin, const std::string& key)
{
    constexpr std::string_view letters = "TVIP";
    if (key.empty() || letters.find(key.front()) == std::string_view::npos) {
        return false;
    }
    SMCKeyValue data;
    smc.dataForKey(key, data);
    const std::string_view type(data.dataType.data(), 4);
    if (!type.starts_with("sp") && !type.starts_with("fp") && type != "flt ") {
        return false; // counters, flags and settings
    }
    const float value = convertSMCData(data, origin);
    if (smc.lastReadFailed() || !std::isfinite(value) || value == 0) {
        return false;
    }
    return key.front() != 'T' || (value > coldest && value < hottest);
}

} // namespace

std::vector<std::string> sensorKeysByLooks(SensorSMCController& smc, SMCOrigin origin)
{
    std::vector<std::string> sensors;
    for (std::string& key : smc.keys(mostKeys)) {
        if (sensors.size() < mostSensors && looksLikeSensor(smc, origin, key)) {
            sensors.push_back(std::move(key));
        }
    }
    return sensors;
}

} // namespace meridal
