// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

struct Context;

/// What users are called. A directory service may take its time to say so, and what waits for it is not the main queue: until it
/// has answered a user is a number. Main queue only.
class UserNames {
public:
    explicit UserNames(Context& context) : context_(context) { }

    /// The name, or the number as text while it is being found out and where there is none.
    std::string of(std::uint32_t uid);
    /// Runs the task when all that were asked for are known, after some seconds at the latest; at once where they are.
    void whenKnown(Task task, double patience);

    static constexpr double believedFor = 600;     ///< s
    static constexpr std::size_t mostUsers = 4096; ///< that are remembered

private:
    struct User {
        std::string name;
        bool isAsked = true; ///< being found out; the name, if any, is the one of before
        double askedAt = 0;  ///< monotonic s
    };

    void ask(std::uint32_t uid);
    void answered(std::uint32_t uid, std::string name);

    Context& context_;
    std::shared_ptr<Queue> queue_; ///< null until somebody is asked for
    std::map<std::uint32_t, User> users_;
    std::size_t asked_ = 0; ///< of them
    std::vector<std::shared_ptr<Task>> waiting_;
    Lifetime lifetime_;
};

} // namespace meridal
