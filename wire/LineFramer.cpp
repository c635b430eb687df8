// SPDX-License-Identifier: Apache-2.0
#include "wire/LineFramer.h"

namespace meridal {

namespace {

/// An idle client costs no more than this; a usual request fits without another allocation.
constexpr std::size_t keptCapacity = 512;

} // namespace

void LineFramer::append(std::string_view bytes)
{
    if (!overflowed_) {
        buffer_.append(bytes);
    }
}

std::optional<std::string_view> LineFramer::next()
{
    while (!overflowed_) {
        const std::size_t end = buffer_.find('\n', scanned_);
        if (end == std::string::npos) {
            scanned_ = buffer_.size();
            if (scanned_ - begin_ > limit_ + 1) { // 1: a "\r" that may still belong to the end
                overflowed_ = true;
            } else {
                compact();
            }
            break;
        }
        std::string_view line(buffer_.data() + begin_, end - begin_);
        begin_ = scanned_ = end + 1;
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (line.size() > limit_) {
            overflowed_ = true;
        } else if (!line.empty()) {
            return line;
        }
    }
    if (overflowed_) {
        discard();
    }
    return std::nullopt;
}

void LineFramer::discard()
{
    std::string().swap(buffer_); // assigning an empty string would keep the memory
    begin_ = scanned_ = 0;
}

void LineFramer::compact()
{
    // What is moved arrived with the last append, since before it there was no complete line: never quadratic.
    buffer_.erase(0, begin_);
    scanned_ -= begin_;
    begin_ = 0;
    if (buffer_.capacity() > keptCapacity && buffer_.size() < buffer_.capacity() / 4) {
        buffer_.shrink_to_fit();
    }
}

} // namespace meridal
