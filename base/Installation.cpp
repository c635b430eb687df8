// SPDX-License-Identifier: Apache-2.0
#include "base/Installation.h"

namespace meridal {

Installation installationOn(HostSystem system)
{
    if (system == HostSystem::MacOS) {
        // launchd starts it by itself once it knows of it, and again whenever it ends: who has none has it unloaded.
        return {.paths = {.support = "/Library/Application Support/Meridal 6",
                    .logs = "/Library/Logs/Meridal/Daemon",
                    .run = "/var/run/meridal",
                    .configuration = "/etc/meridal"},
            .startCommand = "sudo launchctl bootstrap system /Library/LaunchDaemons/org.meridal.daemon.plist"};
    }
    return {.paths = {.support = "/var/lib/meridal",
                .logs = "/var/log/meridal",
                .run = "/run/meridal",
                .configuration = "/etc/meridal"},
        .startCommand = "systemctl start meridald"};
}

const Installation& installation()
{
    static const Installation here = installationOn(HostSystem::MERIDAL_HOST_SYSTEM);
    return here;
}

} // namespace meridal
