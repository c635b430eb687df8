// SPDX-License-Identifier: Apache-2.0
// meridal-disks: asks disks for their health on behalf of meridald, which need not have the rights for it then. It is started
// with a socket (descriptor 3): by meridald with one to itself, by a service manager with one that listens.

#include "platform/linux/disks/DiskServer.h"
#include "platform/linux/kernel/HidReports.h"
#include "platform/linux/kernel/SpawnSettings.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/socket.h>

namespace {

struct HelperOptions {
    std::string root = "/";
    int idleSeconds = 60;
    std::optional<std::string> reports; ///< of the HID device with this node
    bool isValid = true;
};

HelperOptions optionsFrom(int argc, char** argv)
{
    HelperOptions options;
    for (int at = 1; at < argc; ++at) {
        const std::string_view word = argv[at];
        if (word == "--reports" && at + 1 < argc) {
            options.reports = argv[++at];
        } else if (word == "--root" && at + 1 < argc) {
            options.root = argv[++at];
        } else if (word == "--idle" && at + 1 < argc) {
            options.idleSeconds = std::atoi(argv[++at]);
        } else {
            options.isValid = false;
        }
    }
    return options;
}

/// Whether a descriptor is a socket, and whether that listens.
bool hasSocket(int descriptor, bool& listens)
{
    int value = 0;
    socklen_t size = sizeof value;
    const bool isSocket = ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &value, &size) == 0;
    listens = value != 0;
    return isSocket;
}

} // namespace

int main(int argc, char** argv)
{
    using meridal::SpawnSettings;
    const HelperOptions options = optionsFrom(argc, argv);
    bool listens = false;
    if (!options.isValid || !hasSocket(SpawnSettings::channel, listens)) {
        std::fputs("meridal-disks asks disks for their health for meridald, which starts it, or systemd does\n"
                   "(meridal-disks.socket). There is nothing that it does by itself.\n",
            stderr);
        return 2;
    }
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (listens) {
        meridal::serveConnections(SpawnSettings::channel, options.root, options.idleSeconds);
        return 0;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL); // whoever asked has no use for an answer then
    if (options.reports) {
        meridal::serveHidReports(SpawnSettings::channel, *options.reports);
    } else {
        meridal::DiskServer(options.root).serve(SpawnSettings::channel);
    }
    return 0;
}
