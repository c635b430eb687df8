// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace meridal {

/// How many characters must be added, dropped or changed to make one text of the other, as far as their first 64 bytes go.
std::size_t lettersApart(std::string_view first, std::string_view second);

/// The one of some words that somebody who typed this most likely meant; empty when none is near.
std::string wordMeant(std::string_view typed, std::span<const std::string> words);

} // namespace meridal
