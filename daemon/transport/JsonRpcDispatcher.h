// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "daemon/transport/PendingAnswer.h"
#include "wire/Link.h"

#include <string_view>

namespace meridal {

/// Turns one line from a client into one call, and the call's reply into one outcome. Knows nothing of sockets and keeps
/// nothing between lines, so one serves all connections.
class JsonRpcDispatcher {
public:
    /// `namedMethods` may be null. Everything outlives this object.
    JsonRpcDispatcher(NamedMethods* namedMethods, Queue& mainQueue) : namedMethods_(namedMethods), mainQueue_(mainQueue)
    {
    }

    /// Carries out one line. `done` is called exactly once, from inside this call or later and then on any thread; until
    /// then the request counts as being served. A method without a reply is done when everything that it had posted to
    /// the main queue has run.
    void dispatch(
        std::string_view line, DaemonProtocol& exported, const Caller& caller, PendingAnswer::Done done) const;

private:
    void call(
        JsonRpcRequest& request, DaemonProtocol& exported, const Caller& caller, const PendingAnswerPtr& answer) const;

    NamedMethods* namedMethods_;
    Queue& mainQueue_;
};

} // namespace meridal
