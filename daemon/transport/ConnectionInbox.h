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

    struct Put {
        bool replaced = false; ///< an unsent envelope gave way to this one, which has that one's place in the order
        bool isNews = false;   ///< the connection is to be told; until collected() others that come are no news
    };

    /// An outcome that arrives from now on (or arrived already) calls `wake` once, until awake() says that it was heard.
    /// It is called under the inbox's lock and never after close(), so what it refers to may die then. Answers whether
    /// there is news already.
    bool open(Wake wake);
    void awake();
    /// What calls for more than one wake-up of the connection's thread, envelopes to many, is the caller's to tell.
    Put put(EnvelopePtr envelope);
    void collected();
    void put(JsonRpcOutcome outcome);
    /// The one that has waited longest, or null.
    EnvelopePtr takeEnvelope();
    std::optional<JsonRpcOutcome> takeOutcome();
    /// Drops everything now and all that comes later.
    void close();

private:
    void wakeOnce();
    bool markNews();

    std::mutex mutex_;
    Wake wake_;
    bool woken_ = false;
    bool hasNews_ = false; // of which the connection is being told
    bool closed_ = false;
    std::vector<EnvelopePtr> envelopes_; // at most one of a type, first come first
    std::optional<JsonRpcOutcome> outcome_;
};

} // namespace meridal
