// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/ProcArgs.h"

#include <cstddef>
#include <cstdint>

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

std::string_view applicationOfProgram(std::string_view path)
{
    const std::size_t end = path.find(".app/");
    return end == std::string_view::npos ? path : path.substr(0, end + 4);
}

} // namespace meridal
