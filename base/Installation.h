// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Paths.h"

#include <string>

namespace meridal {

/// The operating systems that there is a daemon for.
enum class HostSystem { Linux, MacOS };

/// Where an installed daemon keeps its things, and how it is started: the same for daemon, clients and their advice.
struct Installation {
    Paths paths;
    std::string startCommand; ///< what an administrator types to have the installed daemon run
};

Installation installationOn(HostSystem system);

/// That of the system which this program was built for.
const Installation& installation();

} // namespace meridal
