// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/PendingAnswer.h"

#include <utility>

namespace meridal {

namespace {

/// The faults that a correct client never makes.
bool isClientsFault(JsonRpcCode code)
{
    switch (code) {
    case JsonRpcCode::ParseError:
    case JsonRpcCode::InvalidRequest:
    case JsonRpcCode::MethodNotFound:
    case JsonRpcCode::InvalidParams:
        return true;
    default:
        return false;
    }
}

} // namespace

PendingAnswer::~PendingAnswer() { fail({JsonRpcCode::InternalError, "the method gave no answer"}); }

void PendingAnswer::succeed(Value result) { complete(std::move(result), std::nullopt); }

void PendingAnswer::fail(JsonRpcFailure failure) { complete(nullptr, std::move(failure)); }

void PendingAnswer::finish(Result<Value> result)
{
    if (result) {
        succeed(std::move(*result));
    } else {
        fail(failureOf(result.error()));
    }
}

void PendingAnswer::complete(Value result, std::optional<JsonRpcFailure> failure)
{
    if (answered_.exchange(true)) {
        return;
    }
    JsonRpcOutcome outcome;
    outcome.refused = failure && isClientsFault(failure->code);
    if (id_) {
        outcome.answer = JsonRpcAnswer{std::move(*id_), std::move(result), std::move(failure)};
    }
    done_(std::move(outcome));
}

} // namespace meridal
