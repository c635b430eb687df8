// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// How full a file system is.
struct FileSystemRoom {
    std::uint64_t totalBytes = 0;
    std::uint64_t usedBytes = 0;
    std::uint64_t availableBytes = 0; ///< to ordinary users: what is kept for root is neither this nor used
    std::optional<std::uint64_t> totalInodes = {}; ///< absent where the file system makes them as it needs them
    std::optional<std::uint64_t> usedInodes = {};
    bool operator==(const FileSystemRoom&) const = default;
};

/// What statvfs(3), or statfs(2) of macOS, says of it.
template <typename Status>
FileSystemRoom roomOf(const Status& status, std::uint64_t blockBytes)
{
    FileSystemRoom room{.totalBytes = status.f_blocks * blockBytes,
        .usedBytes = (status.f_blocks - std::min(status.f_blocks, status.f_bfree)) * blockBytes,
        .availableBytes = status.f_bavail * blockBytes};
    if (status.f_files > 0) {
        room.totalInodes = status.f_files;
        room.usedInodes = status.f_files - std::min(status.f_files, status.f_ffree);
    }
    return room;
}

/// A mounted file system. Texts are valid UTF-8.
struct FileSystemRecord {
    std::string mount;  ///< where: "/home"
    std::string device; ///< of what: "/dev/nvme0n1p2", "server:/export"
    std::string type;   ///< "ext4", "apfs"
    bool readOnly = false;
    std::optional<FileSystemRoom> room = {}; ///< absent while it does not answer, as a network mount may for hours
    bool operator==(const FileSystemRecord&) const = default;
};

/// The file systems that hold data: each once, however often it is mounted, without those that the system makes up, that
/// lie in memory, or that packages bring. Main queue only; those that hang hold up nobody.
/// Linux: /proc/self/mountinfo and statvfs. macOS: getfsstat, statfs.
class FileSystems {
public:
    virtual ~FileSystems() = default;
    /// By mount point. Takes 0.1 s at most.
    virtual std::vector<FileSystemRecord> read() = 0;
};

} // namespace meridal
