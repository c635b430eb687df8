// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace meridal {

/// Whether a text that came from a client can be the name of a network interface: up to 15 letters, digits and "._@-", not
/// beginning with a dash or a dot. Such a name is a harmless argument and a harmless component of a path.
bool isInterfaceName(std::string_view name);

/// Whether a text that came from a client can name a network set: up to 128 bytes of UTF-8, without control characters,
/// slashes and backslashes, not beginning with a dash or a dot. People give sets names like "Café (upstairs)".
bool isNetworkSetIdentifier(std::string_view identifier);

} // namespace meridal
