// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "platform/host/DistributedNotifications.h"

namespace meridal {

/// The distributed notification centre. Posts reach every login session: from root nothing else would reach a user.
/// Handlers run on the main queue. Arrivals need a main run loop that somebody serves.
class DistributedCenter final : public DistributedNotifications {
public:
    explicit DistributedCenter(Runtime& runtime) : runtime_(runtime) { }

    void post(const std::string& name) override;
    std::unique_ptr<Observation> observe(const std::string& name, std::function<void()> handler) override;

private:
    Runtime& runtime_;
};

} // namespace meridal
