// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/Context.h"
#include "wire/Link.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

class Queue;

/// The three things a client may change on this machine. Only root, its administrators and the user who sits at it may;
/// every attempt is logged with its uid and with what it was about. They run one at a time on a queue of
/// their own, because directory services and network managers take their time. Any thread may call.
class NetworkActions {
public:
    using Done = std::function<void(Result<void>)>;

    explicit NetworkActions(Context& context);

    void refreshDHCP(const Peer& peer, std::string interfaceName, Done done);
    void toggleAirPortPower(const Peer& peer, Done done);
    void setNetworkSet(const Peer& peer, std::string identifier, Done done);

private:
    void perform(const Peer& peer, std::string name, std::optional<std::string> subject,
        std::function<Result<void>()> action, Done done);
    bool mayChangeNetwork(const Peer& peer);

    Context& context_;
    std::shared_ptr<Queue> queue_;
};

} // namespace meridal
