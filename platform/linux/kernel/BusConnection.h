// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <functional>
#include <memory>
#include <string>

struct sd_bus;
struct sd_bus_message;

namespace meridal {

/// Begins a connection to a bus; an empty address means the machine's system bus. Answers a negative errno on failure;
/// the bus is the caller's either way.
int openBus(const std::string& address, sd_bus** bus);

/// A message, owned. Null when there is none.
using BusMessage = std::shared_ptr<sd_bus_message>;

/// A connection of its own for calls that are waited for: on queues that may take their time, never on the main queue. One
/// thread at a time.
class BusConnection {
public:
    /// Fills in the arguments of a call; answers a negative errno where that fails.
    using Arguments = std::function<int(sd_bus_message&)>;

    /// What is called.
    struct Method {
        const char* service = nullptr;
        std::string object;
        const char* interface = nullptr;
        const char* name = nullptr;
    };

    explicit BusConnection(const std::string& address);

    bool isOpen() const { return bus_ != nullptr; }
    /// Whether somebody owns the name now. Starts nobody.
    bool hasOwner(const char* service);
    /// Calls and waits, up to 20 s. The error's message is the service's own; `errorName`, where given, gets the D-Bus
    /// name of the error.
    Result<BusMessage> call(const Method& method, const Arguments& arguments = {}, std::string* errorName = nullptr);
    /// A property that is a text or an object path.
    Result<std::string> textProperty(const Method& property, const char* type);

private:
    std::shared_ptr<sd_bus> bus_;
};

} // namespace meridal
