// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/JsonRpcDispatcher.h"

#include "daemon/transport/DaemonMethod.h"

#include <exception>
#include <utility>

namespace meridal {

void JsonRpcDispatcher::dispatch(
    std::string_view line, DaemonProtocol& exported, const Caller& caller, PendingAnswer::Done done) const
{
    auto parsed = parseRequest(line);
    if (auto* refused = std::get_if<JsonRpcAnswer>(&parsed)) {
        done({std::move(*refused), true});
        return;
    }
    JsonRpcRequest& request = std::get<JsonRpcRequest>(parsed);
    const auto answer = std::make_shared<PendingAnswer>(std::move(request.id), std::move(done));
    try {
        call(request, exported, caller, answer);
    } catch (const std::exception&) {
        // One client's odd input must not end the daemon for all the others.
        answer->fail({JsonRpcCode::InternalError, "the method failed"});
    }
}

void JsonRpcDispatcher::call(
    JsonRpcRequest& request, DaemonProtocol& exported, const Caller& caller, const PendingAnswerPtr& answer) const
{
    const DaemonMethod* method = DaemonMethod::named(request.method);
    if (!method) {
        if (namedMethods_ && namedMethods_->hasMethod(request.method)) {
            namedMethods_->call(request.method, request.parameters, caller,
                [answer](Result<Value> result) { answer->finish(std::move(result)); });
        } else {
            answer->fail({JsonRpcCode::MethodNotFound, "there is no such method"});
        }
        return;
    }
    if (auto fault = method->check(request.parameters)) {
        answer->fail(std::move(*fault));
        return;
    }
    method->call(exported, request.parameters, answer);
    if (!method->replies) {
        // A fence: a client that sends such calls as fast as it can never has more than one of them in the main queue.
        mainQueue_.post([answer] { answer->succeed(nullptr); });
    }
}

} // namespace meridal
