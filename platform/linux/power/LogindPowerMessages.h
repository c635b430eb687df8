// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "platform/host/Limitations.h"
#include "platform/host/PowerMessages.h"
#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/kernel/SystemBus.h"

#include <memory>
#include <string>

struct sd_bus_message;
struct sd_bus_slot;

namespace meridal {

/// Sleep and wake from systemd-logind (or elogind): the signal PrepareForSleep of org.freedesktop.login1.Manager. A delay
/// inhibitor, held while awake, makes logind wait before a sleep until its descriptor is closed, which is the
/// allowance; InhibitDelayMaxSec (5 s) bounds the wait. Without a bus or logind there are no messages, which is a
/// limitation; logind is taken up whenever it appears. An inhibitor that it refuses is asked for again every 30 s.
class LogindPowerMessages final : public PowerMessages {
public:
    LogindPowerMessages(Runtime& runtime, std::shared_ptr<SystemBus> bus, std::shared_ptr<Limitations> limitations);
    ~LogindPowerMessages() override;
    LogindPowerMessages(const LogindPowerMessages&) = delete;
    LogindPowerMessages& operator=(const LogindPowerMessages&) = delete;

    std::unique_ptr<Registration> receive(Handler handler) override;
    void allow(Token token) override;

    bool holdsInhibitor() const { return static_cast<bool>(inhibitor_); }

private:
    class Receiver;

    void connected(sd_bus& bus);
    void inhibit();
    void dropSlots();
    void takeInhibitor(sd_bus_message& reply);
    void retryLater(const std::string& reason);
    void prepareForSleep(bool sleeping);
    void deliver(PowerMessage message);
    void ownerChanged(sd_bus_message& message);

    Runtime& runtime_;
    std::shared_ptr<SystemBus> bus_;
    std::shared_ptr<Limitations> limitations_;
    std::shared_ptr<Handler> handler_ = std::make_shared<Handler>();
    Descriptor inhibitor_;
    bool wanted_ =
        true; ///< false from an allowance until the wake or a new logind: an inhibitor that comes meanwhile is let go
    Token token_ = 0; ///< of the latest message
    sd_bus_slot* sleepMatch_ = nullptr;
    sd_bus_slot* ownerMatch_ = nullptr;
    sd_bus_slot* call_ = nullptr; ///< Inhibit, until it is answered
    std::unique_ptr<Timer> retry_;
    std::unique_ptr<SystemBus::Subscription> subscription_;
};

} // namespace meridal
