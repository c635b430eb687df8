// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/SystemSettings.h"

#include <sys/sysctl.h>

#include <cstddef>
#include <cstring>

namespace meridal {

std::optional<std::string> systemSettingText(const char* name)
{
    std::size_t size = 0;
    if (sysctlbyname(name, nullptr, &size, nullptr, 0) != 0 || size == 0) {
        return std::nullopt;
    }
    std::string text(size, '\0');
    if (sysctlbyname(name, text.data(), &size, nullptr, 0) != 0) {
        return std::nullopt;
    }
    text.resize(strnlen(text.data(), size));
    return text;
}

std::optional<std::uint64_t> systemSettingInteger(const char* name)
{
    std::int64_t wide = 0;
    std::size_t size = sizeof(wide);
    if (sysctlbyname(name, &wide, &size, nullptr, 0) != 0) {
        return std::nullopt;
    }
    if (size == sizeof(std::int32_t)) {
        std::int32_t narrow = 0;
        std::memcpy(&narrow, &wide, sizeof(narrow));
        wide = narrow;
    } else if (size != sizeof(wide)) {
        return std::nullopt;
    }
    return wide < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(wide));
}

} // namespace meridal
