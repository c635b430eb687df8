// SPDX-License-Identifier: Apache-2.0
#include "wire/Version.h"

#include <fmt/format.h>

namespace meridal {

std::string_view releaseVersion() { return MERIDAL_VERSION; }

std::string versionText(std::string_view program)
{
    return fmt::format("{} {} (protocol {}, build {})", program, releaseVersion(), protocolVersion, protocolBuild);
}

} // namespace meridal
