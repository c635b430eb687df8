// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

namespace meridal {

/// Ties posted tasks to the object that posts them: a guarded task that runs after the Lifetime has ended does
/// nothing. Holds for tasks that run on the queue on which the object dies; across queues use shared ownership.
class Lifetime {
public:
    Lifetime() : token_(std::make_shared<char>()) { }
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;

    template <typename Function>
    auto guard(Function function) const
    {
        return [weak = std::weak_ptr<char>(token_), function = std::move(function)](auto&&... arguments) mutable {
            if (weak.lock()) {
                function(std::forward<decltype(arguments)>(arguments)...);
            }
        };
    }

    /// Ends it now: guarded tasks of before do nothing from here on.
    void end() { token_ = std::make_shared<char>(); }

private:
    std::shared_ptr<char> token_;
};

} // namespace meridal
