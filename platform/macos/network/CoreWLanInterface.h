#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/WirelessInterface.h"

#include <memory>
#include <utility>

namespace meridal {

/// The default Wi-Fi interface of CoreWLAN, whatever name is asked for. Newer systems withhold the network from a daemon,
/// which no user can give the consent to know a location: then the identity is there and empty.
class CoreWLanInterface final : public WirelessInterface {
public:
    explicit CoreWLanInterface(std::shared_ptr<Limitations> limitations) : limitations_(std::move(limitations)) { }

    std::optional<WirelessIdentity> identity(const std::string& interfaceName) override;
    Result<void> togglePower() override;

private:
    std::shared_ptr<Limitations> limitations_;
};

} // namespace meridal
