#pragma once

#include "platform/linux/ProcFolder.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>

namespace meridal {

/// The systemd unit of a process by its cgroup. /proc/PID/cgroup is read for the first process of a group only.
class CgroupUnits {
public:
    /// `root` is the folder that holds sys.
    explicit CgroupUnits(const std::filesystem::path& root) : hierarchy_(root / "sys/fs/cgroup") { }

    /// The path of its unit, empty when it has none; valid until the next call. `cgroup` is the inode number of the folder
    /// of its cgroup in the unified hierarchy.
    std::string_view unitOf(ProcFolder& processes, std::int32_t pid, std::uint64_t cgroup);

private:
    bool isFolder(std::uint64_t cgroup, std::string_view text) const;

    std::filesystem::path hierarchy_;
    std::unordered_map<std::uint64_t, std::string> units_;
};

} // namespace meridal
