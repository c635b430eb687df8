// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessUnit.h"

#include <string>
#include <string_view>

namespace meridal {

/// What the path of a control group tells of the processes in it.
struct CgroupUnit {
    ProcessUnitKind kind = ProcessUnitKind::Shared;
    std::string key = {};         ///< the same for all that belong together; empty when they are in nothing
    std::string name = {};        ///< for people; empty where that of its first process is as good
    std::string container = {};   ///< the id of a container by which its runtime may know a better name
    std::string application = {}; ///< id of its .desktop file, as far as the unit's name tells one
};

/// Containers first, from the top: whatever runs within one is part of it, also the units of a systemd in there. Else the
/// deepest systemd service or scope; sessions, user managers and init scopes are Shared.
/// Known are the layouts of Docker, Podman, containerd, CRI-O and Kubernetes with systemd and without it, LXC, nspawn and
/// libvirt, and the scopes of Flatpak, Snap and of desktops that follow systemd's convention for applications.
CgroupUnit unitOfCgroup(std::string_view path);

/// What a unit is known by as long as the machine is set up so: "unit:" and its name without that of an instance
/// ("getty@.service"), "app:" and that of a .desktop file, "container:" and its name. Empty for what is not a unit of its own
/// and for names that are made up at each start.
std::string lastingIdentity(const CgroupUnit& unit);

/// The same from all of /proc/PID/cgroup: of the unified hierarchy, else systemd's own one (cgroup v1); where neither
/// tells anything, a container by any other hierarchy.
struct CgroupPlace {
    CgroupUnit unit;
    std::string_view unifiedPath; ///< with its leading "/"; empty without that hierarchy
    bool byUnified = false;       ///< that path alone decides: what else is in that control group is in the same unit
};
CgroupPlace placeInCgroups(std::string_view text);

/// The name of a systemd unit with its "\x2d" and the like as the characters that they stand for.
std::string decodedUnitName(std::string_view name);

} // namespace meridal
