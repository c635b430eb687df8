#pragma once

#include "platform/host/SensorChannels.h"

namespace meridal {

/// A Mac's SMC tells nothing of its keys beyond type and size: their names are the clients' own.
class NoSensorChannels final : public SensorChannels {
public:
    std::vector<SensorChannel> channels() override { return {}; }
    std::uint64_t generation() override { return 0; }
    std::map<std::string, SensorFlags> flags() override { return {}; }
};

} // namespace meridal
