// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/UserRights.h"

namespace meridal {

/// The group database (groups sudo, wheel and admin) and logind's record of seats under /run/systemd.
class LinuxUserRights final : public UserRights {
public:
    bool administers(std::uint32_t uid) override;
    bool ownsActiveSeat(std::uint32_t uid) override;
    Result<void> shareWithReaders(const std::string& path) override;
};

} // namespace meridal
