// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"
#include "platform/host/Limitations.h"
#include "platform/host/WirelessInterface.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

/// What CoreWLAN tells of the default Wi-Fi interface.
struct WirelessState {
    std::optional<std::string> bssid = {};     ///< withheld from programs that may not know where they are
    std::optional<std::string> ssidBytes = {}; ///< the network's name as it is, likewise
    std::optional<std::string> ssid = {};      ///< and where it is text
    bool powered = false;
    bool inService = false; ///< a network is joined
};

/// CoreWLAN's calls, which are Objective-C. Each goes to another process and waits for it.
struct CoreWLanCalls {
    std::function<std::optional<WirelessState>()> state; ///< absent where the machine has no Wi-Fi
    /// What went wrong, in the system's words, if something did.
    std::function<std::optional<std::string>(bool on)> setPower;
};

/// The default interface by these calls; its identity is asked for by `work`.
std::unique_ptr<WirelessInterface> makeCoreWLanInterface(
    CoreWLanCalls calls, std::shared_ptr<Limitations> limitations, std::shared_ptr<SlowWork> work);

} // namespace meridal
