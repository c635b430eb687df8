// SPDX-License-Identifier: Apache-2.0
#include "wire/DaemonMessage.h"
#include "wire/JsonRpcMessage.h"
#include "wire/Methods.h"

namespace meridal {

namespace {

/// What a person can act on, from the error codes of JSON-RPC 2.0. Never Unavailable: that means no daemon.
ErrorCode errorCode(std::optional<std::int64_t> code)
{
    switch (static_cast<JsonRpcCode>(code.value_or(0))) {
    case JsonRpcCode::MethodNotFound:
    case JsonRpcCode::NotFound:
        return ErrorCode::NotFound;
    case JsonRpcCode::InvalidRequest:
    case JsonRpcCode::InvalidParams:
        return ErrorCode::InvalidArgument;
    default:
        return ErrorCode::Internal;
    }
}

Unexpected failure(const Value& error)
{
    std::string message = text(error, "message").value_or("");
    if (message.empty()) {
        message = "the daemon refused without saying why";
    }
    return unexpected(errorCode(integer(error, "code")), std::move(message));
}

} // namespace

Incoming parseMessage(std::string_view line)
{
    std::optional<Value> message = parseUntrusted(line);
    if (!message || !message->is_object()) {
        return {};
    }
    if (text(*message, "method") == method::daemonResponse) {
        const auto parameters = message->find("params");
        if (parameters == message->end() || !parameters->is_array() || parameters->empty()
            || !parameters->front().is_object()) {
            return {};
        }
        return std::move(parameters->front());
    }
    const std::optional<std::int64_t> id = integer(*message, "id");
    if (auto method = text(*message, "method"); method && !id) {
        const auto parameters = message->find("params");
        const bool hasChanges = parameters != message->end() && parameters->is_object();
        return hasChanges ? Incoming(Notification{std::move(*method), std::move(*parameters)}) : Incoming();
    }
    if (const Value* error = find(*message, "error"); error && !error->is_null()) {
        return Answer{id, failure(*error)};
    }
    const auto result = message->find("result");
    if (!id || result == message->end()) {
        return {};
    }
    return Answer{id, std::move(*result)};
}

std::string encodeCall(std::int64_t id, std::string_view method, const Value& parameters)
{
    const Value message = {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", parameters}};
    return serialise(message) + '\n';
}

} // namespace meridal
