#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace meridal {

/// Cuts a stream of bytes into lines. Holds at most one unfinished line and what came with the last piece.
class LineBuffer {
public:
    /// No envelope of an honest daemon comes near it; it bounds what a broken one can make us hold.
    static constexpr std::size_t defaultLimit = 64U << 20U;

    explicit LineBuffer(std::size_t limit = defaultLimit) : limit_(limit) { }

    void append(std::string_view bytes);
    /// The next whole line without its end, or nothing until more bytes come.
    std::optional<std::string> nextLine();
    /// Whether the unfinished line is longer than the limit. Ask once nextLine() has nothing more.
    bool isOverLimit() const { return bytes_.size() - begin_ > limit_; }

private:
    std::size_t limit_;
    std::string bytes_;
    std::size_t begin_ = 0;   ///< of the first line not yet taken
    std::size_t scanned_ = 0; ///< no line end before this
};

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
