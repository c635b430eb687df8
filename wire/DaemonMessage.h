// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace meridal {

/// How the daemon answered one call.
struct Answer {
    std::optional<std::int64_t> id; ///< absent when the daemon could not tell which call it refuses
    Result<Value> result = Value();
};

/// What the daemon tells those who watch something: the method that they asked for it, and what changed.
struct Notification {
    std::string method;
    Dictionary changes;
};

/// One message from the daemon: nothing usable, an answer, a pushed envelope, or changes of what is watched.
using Incoming = std::variant<std::monostate, Answer, Dictionary, Notification>;

/// Reads one line from the daemon, which is trusted no more than any other peer.
Incoming parseMessage(std::string_view line);

/// A call as one line, its end included.
std::string encodeCall(std::int64_t id, std::string_view method, const Value& parameters);

} // namespace meridal
