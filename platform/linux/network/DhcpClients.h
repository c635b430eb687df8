// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/RootFolder.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// How a DHCP client that runs on its own is made to renew its lease: by a signal, or by commands.
struct LeaseRenewal {
    std::int32_t signalPid = 0;                     ///< gets SIGUSR1; 0: none
    std::vector<std::vector<std::string>> commands; ///< each with the path of the program in front
};

/// Finds the dhclient, udhcpc or dhcpcd that serves an interface, among root's own processes only: any user can name a process
/// of theirs so, or start a set-uid program under that name. Programs are run by the path that the kernel knows them by, and
/// only where nobody but root could have put them.
class DhcpClients {
public:
    explicit DhcpClients(const std::filesystem::path& root) : folder_(root) { }

    std::optional<LeaseRenewal> find(const std::string& interfaceName) const;

private:
    bool isRoots(const std::string& process) const;
    bool isTrusted(const std::filesystem::path& program) const;
    std::string linkTarget(const std::string& link) const;
    std::optional<LeaseRenewal> renewalBy(const std::string& process, const std::string& interfaceName) const;

    RootFolder folder_;
};

} // namespace meridal
