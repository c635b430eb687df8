#include "collectors/sensors/SensorStatCollectorItemMac.h"

#include <cmath>

namespace meridal {

namespace {

constexpr std::size_t prefixLength = 2; // of a fan's keys: "F0"

} // namespace

SensorStatCollectorItemMac::SensorStatCollectorItemMac(Context& context, SensorSMCController& smc, SMCOrigin origin)
    : SensorStatCollectorItem(context), smc_(smc), origin_(origin)
{
}

void SensorStatCollectorItemMac::loadAlternateKey()
{
    std::string codes;
    for (const char character : key().value_or("")) {
        codes.insert(0, std::to_string(static_cast<unsigned char>(character)));
    }
    setAlternateKey(codes);
}

float SensorStatCollectorItemMac::limit(const char* suffix)
{
    SMCKeyValue data;
    smc_.dataForKey(key().value_or("").substr(0, prefixLength) + suffix, data);
    return convertData(data, origin_);
}

void SensorStatCollectorItemMac::loadMinimumValue()
{
    if (const float value = limit("Mn"); std::isfinite(value)) {
        setLow(value);
    }
}

void SensorStatCollectorItemMac::loadMaximumValue()
{
    if (const float value = limit("Mx"); std::isfinite(value) && value > 0 && value > high()) {
        setHigh(value);
    }
}

} // namespace meridal
