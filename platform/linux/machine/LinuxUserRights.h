// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/UserRights.h"

#include <functional>
#include <optional>
#include <utility>

namespace meridal {

/// The group database (groups sudo, wheel and admin; meridal, who may read) and logind's record of seats under
/// /run/systemd.
class LinuxUserRights final : public UserRights {
public:
    /// A group's id by its name.
    using Groups = std::function<std::optional<std::uint32_t>(const char* name)>;

    /// Asks the system's group database.
    LinuxUserRights();
    explicit LinuxUserRights(Groups groups) : groupNamed_(std::move(groups)) { }

    bool administers(std::uint32_t uid) override;
    bool ownsActiveSeat(std::uint32_t uid) override;
    Result<void> shareWithReaders(const std::string& path) override;

private:
    const Groups groupNamed_;
};

} // namespace meridal
