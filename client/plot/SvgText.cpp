// SPDX-License-Identifier: Apache-2.0
#include "client/plot/SvgText.h"

#include "base/Text.h"

namespace meridal {

std::string svgText(std::string_view text)
{
    std::string result;
    for (const char character : printable(text)) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

} // namespace meridal
