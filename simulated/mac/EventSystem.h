// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace meridal::test {

/// The HID event system: services with what they measure.
struct EventSystem {
    struct Service {
        std::int64_t page = 0;
        std::int64_t usage = 0;
        std::optional<std::string> product = std::nullopt;
        std::int64_t eventType = 0;
        std::optional<double> value = std::nullopt;
    };

    static EventSystem& current();
    void reset() { *this = {}; }

    std::vector<Service> services{};
    bool isThere = true;
    std::function<void()> beforeAnswer{}; ///< called on the thread that asks for services
};

} // namespace meridal::test
