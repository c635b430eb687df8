// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/Key.h"
#include "client/screen/StyledText.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace meridal {

/// A line of text that a person types, such as a filter.
class TextEntry {
public:
    enum class Outcome : std::uint8_t { Typing, Done, GivenUp };

    explicit TextEntry(std::string text = {});

    /// Enter ends it, Escape gives it up, each other key goes into the text.
    Outcome press(const Key& key);
    std::string text() const; ///< UTF-8, without control characters
    /// The words in front, the text and where the next character goes, in so many columns.
    Line line(std::string_view label, int columns) const;

private:
    static constexpr std::size_t longest = 256; // characters

    void insert(char32_t character);

    std::u32string text_;
    std::size_t place_ = 0;
};

} // namespace meridal
