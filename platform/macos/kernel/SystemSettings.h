// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace meridal {

/// A system setting (sysctlbyname) as text, without its NUL. Absent when there is none of that name.
std::optional<std::string> systemSettingText(const char* name);
/// A system setting that is a 4- or 8-byte integer. Absent when there is none, it is negative, or of another size.
std::optional<std::uint64_t> systemSettingInteger(const char* name);

} // namespace meridal
