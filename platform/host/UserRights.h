// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <cstdint>
#include <string>

namespace meridal {

/// What a local user may do to this machine, by user id. May ask directory services: not on the main queue.
/// Linux: the group database and logind. macOS: the group database and the console user.
class UserRights {
public:
    virtual ~UserRights() = default;
    /// Root, or a member of the group that administers this machine (sudo, wheel or admin).
    virtual bool administers(std::uint32_t uid) = 0;
    /// Whether the user sits at this machine: the active session of a local seat is theirs.
    virtual bool ownsActiveSeat(std::uint32_t uid) = 0;
    /// What the user is called; empty where nobody knows.
    virtual std::string userName(std::uint32_t uid) = 0;
    /// Gives a file or folder to the group that may read what we record: Linux: the one that root was started in, where that
    /// is not root's; else meridal, where there is one; else, and on macOS, the group that administers this machine. NotFound where there is no such group, NotPermitted without the
    /// right; the file is as it was then.
    virtual Result<void> shareWithReaders(const std::string& path) = 0;
};

} // namespace meridal
