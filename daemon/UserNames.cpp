// SPDX-License-Identifier: Apache-2.0
#include "daemon/UserNames.h"

#include "base/Text.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

std::string UserNames::of(std::uint32_t uid)
{
    const double now = context_.runtime.monotonicTime();
    const auto known = users_.find(uid);
    if (known == users_.end() && users_.size() < mostUsers) {
        ask(uid);
    } else if (known != users_.end() && !known->second.isAsked && now - known->second.askedAt > believedFor) {
        ask(uid);
    }
    return known == users_.end() || known->second.name.empty() ? std::to_string(uid) : known->second.name;
}

void UserNames::ask(std::uint32_t uid)
{
    if (!queue_) {
        queue_ = context_.runtime.makeSlowQueue("user names");
    }
    User& user = users_[uid];
    user.isAsked = true;
    user.askedAt = context_.runtime.monotonicTime();
    ++asked_;
    auto answer = lifetime_.guard([this, uid](std::string name) { answered(uid, std::move(name)); });
    queue_->post([uid, answer, &rights = *context_.host.userRights, &mainQueue = context_.runtime.mainQueue()] {
        mainQueue.post([answer, name = rights.userName(uid)]() mutable { answer(std::move(name)); });
    });
}

void UserNames::answered(std::uint32_t uid, std::string name)
{
    users_[uid].isAsked = false;
    users_[uid].name = validUtf8(name);
    if (--asked_ == 0) {
        for (const auto& task : std::exchange(waiting_, {})) {
            std::exchange(*task, {})();
        }
    }
}

void UserNames::whenKnown(Task task, double patience)
{
    if (asked_ == 0) {
        task();
        return;
    }
    const auto waiting = std::make_shared<Task>(std::move(task));
    waiting_.push_back(waiting);
    context_.runtime.after(patience, lifetime_.guard([this, waiting] {
        std::erase(waiting_, waiting);
        if (*waiting) {
            std::exchange(*waiting, {})();
        }
    }));
}

} // namespace meridal
