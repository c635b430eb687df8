// SPDX-License-Identifier: Apache-2.0
#include "base/Pattern.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

using namespace meridal;

/// A pattern of any content and, after a byte 0, a text to find it in. What is found somewhere is found there, too, when more
/// text stands around it, unless the pattern asks for the ends.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string all(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(all.find('\0'), all.size());
    const std::string words = all.substr(0, end);
    const std::string text = all.substr(end);
    const auto pattern = Pattern::of(words);
    if (!pattern) {
        if (pattern.error().message.empty()) {
            std::abort();
        }
        return 0;
    }
    const bool isFound = pattern->isFoundIn(text);
    const bool asksForEnds = words.find_first_of("^$") != std::string::npos;
    if (isFound && !asksForEnds && !pattern->isFoundIn("before" + text + "behind")) {
        std::abort();
    }
    return 0;
}
