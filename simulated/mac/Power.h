// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <IOKit/IOKitLib.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace meridal::test {

/// What the power-management service says of power sources, and the root power domain's messages of sleep and wake.
struct Power {
    static Power& current();

    std::vector<Value> sources{};         ///< descriptions; a null is a source that has gone since it was listed
    bool hasCallForAccessories = true;    ///< the one that is in no header
    std::vector<std::intptr_t> allowed{}; ///< tokens of messages

    /// Leaves a message for everybody who is registered.
    void send(std::uint32_t message, std::intptr_t token) const;
    /// Forgets sources and allowances. Who is registered stays.
    void reset();

    struct Receiver {
        io_connect_t rootDomain;
        io_object_t notifier;
        IONotificationPortRef port;
        IOServiceInterestCallback callback;
        void* context;
    };
    std::vector<Receiver> receivers{};
};

/// A call that is in no header, as the loader finds it; null without it.
void* privatePowerCall(std::string_view symbol);

} // namespace meridal::test
