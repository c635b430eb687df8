#pragma once

#include "platform/host/UserRights.h"

namespace meridal {

/// The group database (group admin) and the user of the console.
class MacUserRights final : public UserRights {
public:
    bool administers(std::uint32_t uid) override;
    bool ownsActiveSeat(std::uint32_t uid) override;
    Result<void> shareWithAdministrators(const std::string& path) override;
};

} // namespace meridal
