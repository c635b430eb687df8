// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/AskedAside.h"
#include "platform/macos/network/CoreWLanCalls.h"

#include <utility>

namespace meridal {

namespace {

std::optional<WirelessIdentity> identityOf(std::optional<WirelessState> state, Limitations& limitations)
{
    if (!state) {
        return std::nullopt;
    }
    if (state->bssid) {
        limitations.clear("wifi-identity");
    } else if (state->powered && state->inService) {
        limitations.set("wifi-identity",
            "the system does not tell a daemon which Wi-Fi network this is; bandwidth is not divided by network");
    }
    // A name may be any bytes.
    return WirelessIdentity{
        .bssid = std::move(state->bssid), .ssid = std::move(state->ssidBytes ? state->ssidBytes : state->ssid)};
}

class CoreWLanInterface final : public WirelessInterface {
public:
    CoreWLanInterface(CoreWLanCalls calls, std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work)
        : calls_(std::move(calls))
        , identity_(std::move(work), [state = calls_.state, limitations = std::move(limitations)] {
            return identityOf(state(), *limitations);
        })
    {
    }

    /// Late, it says nothing of the network. That there is no Wi-Fi interface would end the network's record.
    std::optional<WirelessIdentity> identity(const std::string&) override
    {
        return identity_.ask().value_or(WirelessIdentity{});
    }
    Result<void> togglePower() override;

private:
    CoreWLanCalls calls_;
    AskedAside<std::optional<WirelessIdentity>> identity_;
};

} // namespace

Result<void> CoreWLanInterface::togglePower()
{
    const auto state = calls_.state();
    if (!state) {
        return unexpected(ErrorCode::NotFound, "this machine has no Wi-Fi");
    }
    if (const auto failure = calls_.setPower(!state->powered)) {
        return unexpected(ErrorCode::Unavailable, failure->empty() ? "Wi-Fi cannot be switched" : *failure);
    }
    return {};
}

std::unique_ptr<WirelessInterface> makeCoreWLanInterface(
    CoreWLanCalls calls, std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work)
{
    return std::make_unique<CoreWLanInterface>(std::move(calls), std::move(limitations), std::move(work));
}

} // namespace meridal
