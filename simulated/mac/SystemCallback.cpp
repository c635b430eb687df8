// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/SystemCallback.h"

#include "simulated/mac/Raised.h"

namespace meridal {

void runCallback(const std::function<void()>& body) { body(); }

std::optional<std::string> runCatching(const std::function<void()>& body)
{
    try {
        body();
    } catch (const test::Raised& raised) {
        return raised.reason;
    }
    return std::nullopt;
}

} // namespace meridal
