// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "platform/host/Limitations.h"

#include <functional>
#include <list>
#include <memory>
#include <string>

struct sd_bus;

namespace meridal {

/// The daemon's connection to the system bus, served by the main queue; used on it only. A bus that is missing or goes
/// away is a limitation and no failure: a new attempt is made every minute.
class SystemBus {
public:
    /// Destroying it ends the subscription.
    class Subscription {
    public:
        virtual ~Subscription() = default;
    };
    using Connected = std::function<void(sd_bus& bus)>;

    /// An empty address means the machine's system bus.
    SystemBus(Runtime& runtime, std::shared_ptr<Limitations> limitations, std::string address = {});
    ~SystemBus();
    SystemBus(const SystemBus&) = delete;
    SystemBus& operator=(const SystemBus&) = delete;

    /// The connection, null while there is none. Replies and signals come as sd-bus callbacks on the main queue; call
    /// kick() after queueing a message. Never wait on it.
    sd_bus* handle() const { return bus_; }
    /// Runs the function for every connection that is made, and at once when one stands: the place to install matches.
    /// A slot of an earlier connection is dead then and only to be released.
    [[nodiscard]] std::unique_ptr<Subscription> onConnected(Connected connected);
    /// Sends what is queued, soon.
    void kick();

private:
    class Entry;

    void connect();
    void disconnect(const std::string& reason);
    void serve();
    void armTimer();

    Runtime& runtime_;
    std::shared_ptr<Limitations> limitations_;
    std::string address_;
    sd_bus* bus_ = nullptr;
    std::shared_ptr<std::list<Connected>> subscribers_ = std::make_shared<std::list<Connected>>();
    std::unique_ptr<Watch> watch_;
    std::unique_ptr<Timer> timer_;
    std::unique_ptr<Timer> retry_;
    bool kicked_ = false;
    Lifetime lifetime_;
};

} // namespace meridal
