// SPDX-License-Identifier: Apache-2.0
#include "wire/LineFramer.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

/// The first byte says into how long pieces the rest is cut. Whatever the cutting, no line holds a line end or more
/// bytes than allowed, and what is held stays in proportion to what is unfinished.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    constexpr std::size_t limit = 64;
    const std::size_t piece = data[0] + std::size_t(1);
    std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    meridal::LineFramer framer(limit);
    while (!bytes.empty()) {
        framer.append(bytes.substr(0, piece));
        bytes.remove_prefix(bytes.size() < piece ? bytes.size() : piece);
        while (const auto line = framer.next()) {
            if (line->empty() || line->size() > limit || line->find('\n') != std::string_view::npos) {
                std::abort();
            }
        }
        if (framer.heldBytes() > 4096) {
            std::abort();
        }
    }
    return 0;
}
