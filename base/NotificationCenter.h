// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace meridal {

/// Announcements inside the process. A post runs every matching observer before it returns, on the posting thread.
/// Observers may be added, removed and posted to from inside an observer. Thread-safe.
class NotificationCenter {
public:
    /// What was posted: by whom (an address used as identity only) and with which details.
    using Handler = std::function<void(const void* object, const Dictionary& userInfo)>;

    /// Destroying it removes the observer.
    class Observation {
    public:
        virtual ~Observation() = default;
    };

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// Observes a name; with an object, only what that object posts.
    [[nodiscard]] std::unique_ptr<Observation> observe(std::string name, const void* object, Handler handler);
    void post(std::string_view name, const void* object);
    void post(std::string_view name, const void* object, const Dictionary& userInfo);

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace meridal
