// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// One line of /proc/PID/mountinfo. Texts are raw bytes, their escapes undone.
struct Mount {
    std::string device; ///< number of the file system, "259:2": the same for all its mounts
    std::string root;   ///< which part of it is mounted: "/" for all
    std::string point;
    std::string type;
    std::string source; ///< "/dev/sda1", "server:/export", or what the type makes of it
    bool readOnly = false;
    bool operator==(const Mount&) const = default;
};

/// All lines that have that shape, in their order: of two at one point the later hides the earlier.
std::vector<Mount> parseMountInfo(std::string_view text);

/// Those that hold data of people, once each, by mount point: not what the kernel makes up, what lies in memory, packages
/// (squashfs) and layers of containers but for the machine's own root, and not what would be mounted by looking at it.
std::vector<Mount> mountsWithData(std::vector<Mount> mounts);

} // namespace meridal
