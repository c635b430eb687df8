// SPDX-License-Identifier: Apache-2.0
#include "base/JsonMeasure.h"

#include <algorithm>

namespace meridal {

JsonMeasure measureJson(std::string_view text)
{
    JsonMeasure measure{.depth = 0, .values = 1};
    int depth = 0;
    bool inString = false;
    bool isEmpty = false; // nothing but blanks since an opening, which counts its first value
    for (std::size_t place = 0; place < text.size(); ++place) {
        const char byte = text[place];
        if (inString) {
            place += byte == '\\' ? 1 : 0;
            inString = byte != '"';
        } else if (byte == '"') {
            inString = true;
            isEmpty = false;
        } else if (byte == '[' || byte == '{') {
            ++measure.values;
            isEmpty = true;
            measure.depth = std::max(measure.depth, ++depth);
        } else if (byte == ']' || byte == '}') {
            --depth;
            measure.values -= isEmpty ? 1 : 0;
            isEmpty = false;
        } else if (byte == ',') {
            ++measure.values;
            isEmpty = false;
        } else if (byte != ' ' && byte != '\t' && byte != '\r' && byte != '\n') {
            isEmpty = false;
        }
    }
    return measure;
}

} // namespace meridal
