// SPDX-License-Identifier: Apache-2.0
#include "wire/JsonRpcMessage.h"

#include "base/JsonMeasure.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

namespace {

JsonRpcAnswer refusal(Value id, JsonRpcCode code, std::string message)
{
    return {std::move(id), nullptr, JsonRpcFailure{code, std::move(message)}};
}

/// What is wrong with an id, or an empty string.
std::string_view idFault(const Value& id)
{
    if (!id.is_string() && !id.is_number_integer() && !id.is_null()) {
        return "id must be a string, an integer or null";
    }
    if (id.is_string() && id.get_ref<const std::string&>().size() > maximumIdLength) {
        return "id is too long";
    }
    return {};
}

/// What is wrong with a message apart from its id, or an empty string.
std::string_view messageFault(const Value& message)
{
    const Value* version = find(message, "jsonrpc");
    if (!version || !version->is_string() || version->get_ref<const std::string&>() != "2.0") {
        return "jsonrpc must be \"2.0\"";
    }
    const Value* method = find(message, "method");
    if (!method || !method->is_string()) {
        return "method must be a string";
    }
    const Value* parameters = find(message, "params");
    if (parameters && !parameters->is_structured()) {
        return "params must be an array, or be left out";
    }
    return {};
}

std::string notificationLine(
    std::string_view method, std::string_view opening, std::string_view parameters, std::string_view closing)
{
    std::string line;
    line.reserve(method.size() + parameters.size() + 64); // of thousands of processes it may have
    line += R"({"jsonrpc":"2.0","method":)";
    appendText(line, method);
    line += R"(,"params":)";
    line += opening;
    line += parameters;
    line += closing;
    line += "}\n";
    return line;
}

} // namespace

JsonRpcFailure failureOf(const Error& error)
{
    switch (error.code) {
    case ErrorCode::InvalidArgument:
        return {JsonRpcCode::InvalidParams, error.message};
    case ErrorCode::NotPermitted:
        return {JsonRpcCode::NotPermitted, error.message};
    case ErrorCode::NotFound:
        return {JsonRpcCode::NotFound, error.message};
    case ErrorCode::Unavailable:
        return {JsonRpcCode::Unavailable, error.message};
    case ErrorCode::Internal:
        break;
    }
    return {JsonRpcCode::InternalError, error.message};
}

std::variant<JsonRpcRequest, JsonRpcAnswer> parseRequest(std::string_view line)
{
    const JsonMeasure measure = measureJson(line); // before parsing, which takes fifty times as long to find out
    if (measure.depth > maximumNesting) {
        return refusal(nullptr, JsonRpcCode::ParseError,
            fmt::format("arrays and objects nest deeper than {} levels", maximumNesting));
    }
    if (measure.values > maximumValues) {
        return refusal(
            nullptr, JsonRpcCode::InvalidRequest, fmt::format("a request holds more than {} values", maximumValues));
    }
    std::optional<Value> message = parseShallow(line);
    if (!message) {
        return refusal(nullptr, JsonRpcCode::ParseError,
            validUtf8(line) == line ? "the line is not valid JSON" : "the line is not valid UTF-8");
    }
    if (!message->is_object()) {
        return refusal(nullptr, JsonRpcCode::InvalidRequest,
            message->is_array() ? "batches are not supported: send one request a line" : "a request must be an object");
    }
    JsonRpcRequest request;
    if (const auto id = message->find("id"); id != message->end()) {
        if (const auto fault = idFault(*id); !fault.empty()) {
            return refusal(nullptr, JsonRpcCode::InvalidRequest, std::string(fault));
        }
        request.id = std::move(*id);
    }
    if (const auto fault = messageFault(*message); !fault.empty()) {
        return refusal(request.id ? std::move(*request.id) : Value(), JsonRpcCode::InvalidRequest, std::string(fault));
    }
    request.method = std::move((*message)["method"].get_ref<std::string&>());
    if (const auto parameters = message->find("params"); parameters != message->end()) {
        request.parameters = std::move(*parameters);
    }
    return request;
}

std::string encode(const JsonRpcAnswer& answer)
{
    std::string line = R"({"jsonrpc":"2.0","id":)";
    line += serialise(answer.id);
    if (answer.failure) {
        line += fmt::format(R"(,"error":{{"code":{},"message":)", static_cast<int>(answer.failure->code));
        line += serialise(answer.failure->message);
        line += "}}\n";
    } else {
        line += R"(,"result":)";
        line += serialise(answer.result);
        line += "}\n";
    }
    return line;
}

std::string encodeNotification(std::string_view method, std::string_view argument)
{
    return notificationLine(method, "[", argument, "]");
}

std::string encodeNamedNotification(std::string_view method, std::string_view parameters)
{
    return notificationLine(method, "", parameters, "");
}

} // namespace meridal
