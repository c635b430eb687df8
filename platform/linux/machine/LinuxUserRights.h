// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/UserRights.h"

#include <functional>
#include <mutex>
#include <optional>
#include <utility>

namespace meridal {

/// The group database (groups sudo, wheel and admin; meridal, who may read) and logind's record of seats under
/// /run/systemd.
class LinuxUserRights final : public UserRights {
public:
    /// A group's id by its name.
    using Groups = std::function<std::optional<std::uint32_t>(const char* name)>;

    /// Asks the system's group database. Where root was started in a group other than root's, files are for that one.
    LinuxUserRights();
    /// `chosen`: whose files are to be, whatever groups there are.
    explicit LinuxUserRights(Groups groups, std::optional<std::uint32_t> chosen = {})
        : groupNamed_(std::move(groups)), chosen_(chosen)
    {
    }

    bool administers(std::uint32_t uid) override;
    bool ownsActiveSeat(std::uint32_t uid) override;
    std::string userName(std::uint32_t uid) override;
    Result<void> shareWithReaders(const std::string& path) override;

private:
    std::optional<std::uint32_t> readers();

    const Groups groupNamed_;
    std::mutex mutex_;                    ///< of the next
    std::optional<std::uint32_t> chosen_; ///< once found it stays: to look it up may take longer than to share a file
};

} // namespace meridal
