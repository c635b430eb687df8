#pragma once

#include "client/screen/StyledText.h"

#include <string>

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

} // namespace meridal
