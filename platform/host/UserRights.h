#pragma once

#include <cstdint>

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
};

} // namespace meridal
