// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace meridal {

/// A character as UTF-8; what is none becomes U+FFFD.
std::string utf8(char32_t character);
std::string utf8(const std::u32string& text);
/// The characters of valid UTF-8 text.
std::u32string pointsOf(std::string_view text);

/// The text in ASCII, as wide as it was: what has no likeness becomes "?". Takes printable text.
std::string asciiLikeness(std::string_view text);

} // namespace meridal
