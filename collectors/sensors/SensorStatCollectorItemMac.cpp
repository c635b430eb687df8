#include "collectors/sensors/SensorStatCollectorItemMac.h"

namespace meridal {

void SensorStatCollectorItemMac::loadAlternateKey()
{
    std::string codes;
    for (const char character : key().value_or("")) {
        codes.insert(0, std::to_string(static_cast<unsigned char>(character)));
    }
    setAlternateKey(codes);
}

} // namespace meridal
