// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// Cuts a stream of bytes into lines. A line ends with "\n"; one "\r" before that belongs to the end; empty lines are
/// left out. Every byte is looked at once, however it arrives, and memory goes back to almost nothing once a long line
/// is done with.
class LineFramer {
public:
    /// Bytes of a line without its end.
    static constexpr std::size_t defaultLimit = std::size_t(1) << 20;

    explicit LineFramer(std::size_t limit = defaultLimit) : limit_(limit) { }

    void append(std::string_view bytes);
    /// The next complete line without its end, valid until this object is changed. Nothing when more bytes are needed,
    /// and nothing ever again once a line went over the limit.
    std::optional<std::string_view> next();
    /// Forgets what it holds and gives the memory back.
    void discard();
    /// Whether a line went over the limit.
    bool overflowed() const { return overflowed_; }
    /// Memory held for bytes that have not become lines yet.
    std::size_t heldBytes() const { return buffer_.capacity(); }

private:
    void compact();

    std::string buffer_;
    std::size_t begin_ = 0;   // of the line in progress
    std::size_t scanned_ = 0; // no "\n" between begin_ and here
    std::size_t limit_;
    bool overflowed_ = false;
};

} // namespace meridal
