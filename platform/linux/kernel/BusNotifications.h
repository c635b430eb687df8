// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/DistributedNotifications.h"
#include "platform/linux/kernel/SystemBus.h"

#include <list>
#include <memory>
#include <string>
#include <string_view>

struct sd_bus_message;
struct sd_bus_slot;

namespace meridal {

/// Announcements as signals on the system bus: path /org/meridal/Daemon, interface org.meridal.Daemon, without
/// arguments. Dropped while there is no bus. Any program may send such a signal: an observer must not trust it with
/// more than a hint.
class BusNotifications final : public DistributedNotifications {
public:
    explicit BusNotifications(std::shared_ptr<SystemBus> bus);
    ~BusNotifications() override;

    void post(const std::string& name) override;
    std::unique_ptr<Observation> observe(const std::string& name, std::function<void()> handler) override;

    /// The signal's name for a notification's: characters that D-Bus does not allow are left out, and a leading digit
    /// gets a "_" before it. Empty when nothing is left.
    static std::string memberOf(std::string_view name);

private:
    struct Observer {
        std::string member;
        std::function<void()> handler;
    };
    using Observers = std::list<std::shared_ptr<const Observer>>;
    class Entry;

    void connected(sd_bus& bus);
    static int received(sd_bus_message* message, void* self);

    std::shared_ptr<SystemBus> bus_;
    std::shared_ptr<Observers> observers_ = std::make_shared<Observers>();
    sd_bus_slot* match_ = nullptr;
    std::unique_ptr<SystemBus::Subscription> subscription_;
};

} // namespace meridal
