#pragma once

#include "platform/linux/RootFolder.h"

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

/// Finds the dhclient, udhcpc or dhcpcd that serves an interface, among root's processes only: any user can name a process
/// of theirs so. Programs are run by the path that the kernel knows them by.
class DhcpClients {
public:
    explicit DhcpClients(const std::filesystem::path& root) : folder_(root) { }

    std::optional<LeaseRenewal> find(const std::string& interfaceName) const;

private:
    std::optional<LeaseRenewal> renewalBy(const std::string& process, const std::string& interfaceName) const;

    RootFolder folder_;
};

} // namespace meridal
