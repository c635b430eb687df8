// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace meridal {

/// What the system says about its own power, by the numbers of the kernel that has all three. A host may send others.
enum class PowerMessage : std::uint32_t {
    CanSystemSleep = 0xE0000270,     ///< it would like to sleep; to be allowed
    SystemWillSleep = 0xE0000280,    ///< it will sleep, once allowed
    SystemHasPoweredOn = 0xE0000300, ///< it is awake again; nothing to allow
};

/// The messages about sleep and wake, and the allowance that the first two wait for. Main queue only.
/// macOS: the root power domain (IORegisterForSystemPower). Linux: systemd-logind's PrepareForSleep, held back by a delay
/// inhibitor; nobody asks there whether the system can sleep.
class PowerMessages {
public:
    /// What an allowance is for; handed over with the message.
    using Token = std::int64_t;
    using Handler = std::function<void(PowerMessage message, Token token)>;
    /// Destroying it ends the registration.
    class Registration {
    public:
        virtual ~Registration() = default;
    };

    virtual ~PowerMessages() = default;
    /// One receiver at a time: each of them would have to allow.
    [[nodiscard]] virtual std::unique_ptr<Registration> receive(Handler handler) = 0;
    /// Lets the system go on. Without it the system waits, for some seconds (5 s with logind, 30 s on macOS).
    virtual void allow(Token token) = 0;
};

} // namespace meridal
