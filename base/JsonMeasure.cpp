// SPDX-License-Identifier: Apache-2.0
#include "base/JsonMeasure.h"

#include <algorithm>

namespace meridal {

JsonMeasure measureJson(std::string_view text)
{
    JsonMeasure measure{.depth = 0, .values = 1};
    int depth = 0;
    bool inString = false;
    for (std::size_t place = 0; place < text.size(); ++place) {
        const char byte = text[place];
        if (inString) {
            place += byte == '\\' ? 1 : 0;
            inString = byte != '"';
        } else if (byte == '"') {
            inString = true;
        } else if (byte == '[' || byte == '{') {
            ++measure.values;
            measure.depth = std::max(measure.depth, ++depth);
        } else if (byte == ']' || byte == '}') {
            --depth;
        } else if (byte == ',') {
            ++measure.values;
        }
    }
    return measure;
}

} // namespace meridal
