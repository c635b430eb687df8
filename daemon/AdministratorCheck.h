// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace meridal {

class Queue;
struct Context;

/// Whether users administer this machine. A directory service may take its time to say so, and what waits for it is neither
/// the main queue nor the client. Main queue only.
class AdministratorCheck {
public:
    using Decided = std::function<void(std::uint32_t uid, bool administers)>;

    /// `decided` is called on the main queue, later, for each ask() that was answered with nothing, or for several at once.
    AdministratorCheck(Context& context, Decided decided);

    /// What is known; nothing while it is being found out. Root does, which nobody is asked for.
    std::optional<bool> ask(std::uint32_t uid);

    static constexpr double believedFor = 60;     ///< s that an answer of the host is believed
    static constexpr std::size_t mostUsers = 256; ///< that are remembered

private:
    struct User {
        std::optional<bool> administers; ///< absent: being found out
        double askedAt = 0;              ///< monotonic s
    };

    void forgetOld(double now);

    Context& context_;
    Decided decided_;
    std::shared_ptr<Queue> queue_; ///< null until somebody is asked for
    std::map<std::uint32_t, User> users_;
    Lifetime lifetime_;
};

} // namespace meridal
