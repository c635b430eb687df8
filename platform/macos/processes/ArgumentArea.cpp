// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/processes/ArgumentArea.h"

#include "platform/macos/kernel/KernelLayouts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace meridal {

namespace {

/// Upper bound of an argument area, in bytes (1 MiB on today's systems).
std::optional<std::size_t> argumentAreaLimit()
{
    std::array<int, 2> name = {CTL_KERN, KERN_ARGMAX};
    int limit = 0;
    std::size_t size = sizeof(limit);
    if (sysctl(name.data(), name.size(), &limit, &size, nullptr, 0) != 0 || limit <= 0) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(limit);
}

} // namespace

ArgumentArea readArgumentArea(std::int32_t pid)
{
    const auto limit = argumentAreaLimit();
    if (!limit) {
        return {};
    }
    // Not cleared, so only the pages that the kernel writes are touched. Asked for once in a while: not kept.
    ArgumentArea area{std::unique_ptr<char[]>(new char[*limit]), {}};
    std::array<int, 3> name = {CTL_KERN, KERN_PROCARGS2, pid};
    std::size_t size = *limit;
    if (sysctl(name.data(), name.size(), area.bytes.get(), &size, nullptr, 0) == 0) {
        area.text = {area.bytes.get(), std::min(size, *limit)};
    }
    return area;
}

} // namespace meridal
