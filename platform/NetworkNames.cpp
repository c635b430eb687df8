// SPDX-License-Identifier: Apache-2.0
#include "platform/NetworkNames.h"

#include "base/Text.h"

#include <algorithm>
#include <cstddef>

namespace meridal {

namespace {

constexpr std::size_t longestInterfaceName = 15; // both kernels: 16 with the NUL
constexpr std::size_t longestSetIdentifier = 128;

bool isLetterOrDigit(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

bool beginsHarmlessly(std::string_view name) { return !name.empty() && name.front() != '-' && name.front() != '.'; }

} // namespace

bool isInterfaceName(std::string_view name)
{
    return beginsHarmlessly(name) && name.size() <= longestInterfaceName
        && std::all_of(name.begin(), name.end(),
            [](char c) { return isLetterOrDigit(c) || c == '.' || c == '_' || c == '@' || c == '-'; });
}

bool isNetworkSetIdentifier(std::string_view identifier)
{
    return beginsHarmlessly(identifier) && identifier.size() <= longestSetIdentifier
        && identifier.find_first_of("/\\") == std::string_view::npos && printable(identifier) == identifier;
}

} // namespace meridal
