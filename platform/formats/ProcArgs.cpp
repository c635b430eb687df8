// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/ProcArgs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace meridal {

std::optional<std::string_view> executablePathOfProcArgs(std::string_view area)
{
    constexpr std::size_t countSize = sizeof(std::int32_t);
    if (area.size() <= countSize) {
        return std::nullopt;
    }
    area.remove_prefix(countSize);
    const std::size_t end = area.find('\0');
    if (end == 0 || end == std::string_view::npos) {
        return std::nullopt;
    }
    return area.substr(0, end);
}

std::optional<std::string_view> argumentsOfProcArgs(std::string_view area)
{
    const auto path = executablePathOfProcArgs(area);
    if (!path) {
        return std::nullopt;
    }
    std::int32_t count = 0;
    std::memcpy(&count, area.data(), sizeof count);
    area.remove_prefix(sizeof count + path->size());
    area.remove_prefix(std::min(area.find_first_not_of('\0'), area.size()));
    std::size_t end = 0;
    for (std::int32_t argument = 0; argument < count; ++argument) {
        const std::size_t nul = area.find('\0', end);
        if (nul == std::string_view::npos) {
            break;
        }
        end = nul + 1;
    }
    return end > 0 ? std::optional(area.substr(0, end)) : std::nullopt;
}

std::string_view applicationOfProgram(std::string_view path)
{
    const std::size_t end = path.find(".app/");
    return end == std::string_view::npos ? path : path.substr(0, end + 4);
}

} // namespace meridal
