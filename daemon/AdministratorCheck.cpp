// SPDX-License-Identifier: Apache-2.0
#include "daemon/AdministratorCheck.h"

#include "base/Runtime.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

AdministratorCheck::AdministratorCheck(Context& context, Decided decided)
    : context_(context), decided_(std::move(decided))
{
}

std::optional<bool> AdministratorCheck::ask(std::uint32_t uid)
{
    if (uid == 0) {
        return true;
    }
    const double now = context_.runtime.monotonicTime();
    forgetOld(now);
    if (const auto known = users_.find(uid); known != users_.end()) {
        return known->second.administers;
    }
    if (users_.size() >= mostUsers) {
        return false; // until there is room
    }
    users_.emplace(uid, User{.administers = {}, .askedAt = now});
    if (!queue_) {
        queue_ = context_.runtime.makeSerialQueue("administrators");
    }
    auto decide = lifetime_.guard([this, uid](bool administers) {
        users_[uid].administers = administers;
        decided_(uid, administers);
    });
    queue_->post([uid, decide, &rights = *context_.host.userRights, &mainQueue = context_.runtime.mainQueue()] {
        mainQueue.post([decide, administers = rights.administers(uid)]() mutable { decide(administers); });
    });
    return std::nullopt;
}

void AdministratorCheck::forgetOld(double now)
{
    std::erase_if(users_, [now](const auto& entry) {
        return entry.second.administers.has_value() && now - entry.second.askedAt > believedFor;
    });
}

} // namespace meridal
