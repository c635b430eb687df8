// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/JsonRpcMessage.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace meridal {

/// What became of one line.
struct JsonRpcOutcome {
    std::optional<JsonRpcAnswer> answer;   ///< absent for a notification
    bool refused = false;                  ///< the fault was the client's
    std::shared_ptr<const void> turn = {}; ///< of a long request; held until the answer is written out
};

/// A call in progress, shared by all who may answer it. The first answer counts and later ones are ignored; a call that
/// everybody forgot is answered as an internal error, so that its client never waits for ever. Thread-safe.
class PendingAnswer {
public:
    using Done = std::function<void(JsonRpcOutcome)>;

    /// Without an id the outcome holds no answer. `done` is called exactly once, on the thread that answers.
    PendingAnswer(std::optional<Value> id, Done done) : id_(std::move(id)), done_(std::move(done)) { }
    ~PendingAnswer();
    PendingAnswer(const PendingAnswer&) = delete;
    PendingAnswer& operator=(const PendingAnswer&) = delete;

    void succeed(Value result);
    void fail(JsonRpcFailure failure);
    void finish(Result<Value> result);

private:
    void complete(Value result, std::optional<JsonRpcFailure> failure);

    std::atomic<bool> answered_{false};
    std::optional<Value> id_;
    Done done_;
};

using PendingAnswerPtr = std::shared_ptr<PendingAnswer>;

} // namespace meridal
