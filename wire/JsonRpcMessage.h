// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace meridal {

/// Why a request was not carried out. The first five are JSON-RPC's own, the rest are this daemon's.
enum class JsonRpcCode {
    ParseError = -32700,
    InvalidRequest = -32600,
    MethodNotFound = -32601,
    InvalidParams = -32602,
    InternalError = -32603,
    NotPermitted = -32001,
    NotFound = -32002,
    Unavailable = -32003,
};

/// The message tells a person what was wrong; it never repeats what the client sent.
struct JsonRpcFailure {
    JsonRpcCode code = JsonRpcCode::InternalError;
    std::string message;
};

/// A well-formed request. Its parameters are an array, an object, or null when there were none.
struct JsonRpcRequest {
    std::string method;
    Value parameters;
    std::optional<Value> id; ///< a string, an integer or null; absent: a notification, which is never answered
};

/// What goes back: the result, or the failure where there is one.
struct JsonRpcAnswer {
    Value id;
    Value result;
    std::optional<JsonRpcFailure> failure;
};

/// Longest text that serves as an id. It is sent back with the answer, so it must not be of any size.
constexpr std::size_t maximumIdLength = 4096;

/// Most values in a request, each element and member counted. Everything that is done with them costs by their number, some of
/// it on the main queue.
constexpr std::size_t maximumValues = 65'536;

JsonRpcFailure failureOf(const Error& error);

/// Reads one line: the request, or the answer that refuses it.
std::variant<JsonRpcRequest, JsonRpcAnswer> parseRequest(std::string_view line);

/// One line of JSON text, its end included.
std::string encode(const JsonRpcAnswer& answer);
/// A notification that calls `method` at the client with one argument, which is JSON, as one line, its end included.
std::string encodeNotification(std::string_view method, std::string_view argument);
/// The same with named parameters: an object, which is JSON.
std::string encodeNamedNotification(std::string_view method, std::string_view parameters);

} // namespace meridal
