// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace meridal {

/// How far ahead loops over many objects do so, in objects.
constexpr std::size_t prefetchDistance = 8;

/// Begins to bring an object's memory near, for a loop that comes to it some turns later. What is spread over more memory than
/// a processor keeps near would be waited for at each turn.
template <typename Object>
inline void prefetch(const Object& object)
{
    constexpr std::size_t line = 64; // bytes, of a processor's cache
    for (std::size_t offset = 0; offset < sizeof(Object); offset += line) {
        __builtin_prefetch(reinterpret_cast<const char*>(&object) + offset);
    }
}

} // namespace meridal
