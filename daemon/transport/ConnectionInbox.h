// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/transport/PendingAnswer.h"
#include "wire/Envelope.h"

#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace meridal {

/// What other threads hand to one connection: envelopes, and the outcome of the request being served. Bounded however
/// long the connection leaves it alone: one slot per envelope type, in which the newest wins, and one outcome, because
/// one request is served at a time. Thread-safe; nothing here blocks for longer than a few instructions.
class ConnectionInbox {
public:
    using Wake = std::function<void()>;

    /// Things that arrive from now on (or arrived already) call `wake` once, until awake() says that it was heard. It is
    /// called under the inbox's lock and never after close(), so what it refers to may die then.
    void open(Wake wake);
    void awake();
    /// Whether an unsent envelope gave way to this one. It keeps that one's place in the order.
    bool put(EnvelopePtr envelope);
    void put(JsonRpcOutcome outcome);
    /// The one that has waited longest, or null.
    EnvelopePtr takeEnvelope();
    std::optional<JsonRpcOutcome> takeOutcome();
    /// Drops everything now and all that comes later.
    void close();

private:
    void wakeOnce();

    std::mutex mutex_;
    Wake wake_;
    bool woken_ = false;
    bool closed_ = false;
    std::vector<EnvelopePtr> envelopes_; // at most one of a type, first come first
    std::optional<JsonRpcOutcome> outcome_;
};

} // namespace meridal
