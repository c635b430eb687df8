// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace meridal {

/// What "version:" answers. Clients tell by it what the daemon understands; it does not change with releases.
inline constexpr double protocolVersion = 6.6;
inline constexpr std::int64_t protocolBuild = 1177;

/// The release of the product, "0.1.0": that of the build's project.
std::string_view releaseVersion();

/// "meridald 0.1.0 (protocol 6.6, build 1177)"
std::string versionText(std::string_view program);

} // namespace meridal
