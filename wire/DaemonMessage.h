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

/// One message from the daemon: nothing usable, an answer, or a pushed envelope.
using Incoming = std::variant<std::monostate, Answer, Dictionary>;

/// Reads one line from the daemon, which is trusted no more than any other peer.
Incoming parseMessage(std::string_view line);

/// A call as one line, its end included.
std::string encodeCall(std::int64_t id, std::string_view method, const Value& parameters);

} // namespace meridal
