#pragma once

#include "platform/host/NetworkConfiguration.h"

namespace meridal {

/// SystemConfiguration: configd is told to refresh an interface; a set becomes current in the system's preferences.
class MacNetworkConfiguration final : public NetworkConfiguration {
public:
    Result<void> refreshLease(const std::string& interfaceName) override;
    /// A set that does not exist is refused: written all the same, it would leave the machine without a current one.
    Result<void> setNetworkSet(const std::string& identifier) override;
};

} // namespace meridal
