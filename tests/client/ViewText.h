// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/screen/StyledText.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace meridal {

/// Lines as they are without a terminal.
inline std::string textOf(const Lines& lines)
{
    std::string text;
    for (const Line& line : lines) {
        text += plainText(line) + '\n';
    }
    return text;
}

/// What a daemon sent as text.
inline Value json(std::string_view text) { return parseUntrusted(text).value(); }

/// How the part of a line that has these words in it looks.
inline Style styleOf(const Line& line, std::string_view words)
{
    const auto has = [&](const Span& span) { return span.text.find(words) != std::string::npos; };
    return std::find_if(line.begin(), line.end(), has)->style;
}

} // namespace meridal
