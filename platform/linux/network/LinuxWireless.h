// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "platform/host/WirelessInterface.h"
#include "platform/linux/kernel/NetlinkSocket.h"
#include "platform/linux/network/Rfkill.h"
#include "platform/linux/network/WirelessMessages.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace meridal {

/// Wi-Fi by nl80211 and rfkill. An identity is kept until the kernel announces that one was joined or left, as some
/// drivers ask their firmware for each answer.
class LinuxWireless final : public WirelessInterface {
public:
    LinuxWireless(Runtime& runtime, const std::filesystem::path& root);

    std::optional<WirelessIdentity> identity(const std::string& interfaceName) override;
    Result<void> togglePower() override { return rfkill_.toggle(); }

private:
    struct Known {
        WirelessIdentity identity;
        double until = 0; ///< monotonic s
    };

    bool findFamily();
    nl80211::Association ask(std::uint32_t index, bool& complete);

    Runtime& runtime_;
    NetlinkSocket questions_;
    NetlinkSocket news_;
    Rfkill rfkill_;
    std::uint16_t family_ = 0;             ///< 0 until found: the wireless stack may be loaded later
    double nextSearch_ = 0;                ///< monotonic s
    std::map<std::uint32_t, Known> known_; ///< by index of the interface
};

} // namespace meridal
