// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace meridal {

/// Whether a symbolic link may stand for the file: SQLite follows one to a database, and none to what lies beside it.
enum class Links { Followed, Refused };

/// In words what keeps a path from being a file that this process can read and write: a directory, a FIFO, a link that
/// leads nowhere, a file of another user. Empty where nothing does, where nothing is there, and where it is not the path's
/// own fault: a folder that cannot be entered, a disk that is read-only. Opens regular files only, so it cannot hang; rights
/// that are missing on a file of one's own are put right. Not for a file that is open: closing it here drops its locks.
std::string obstacleAt(const std::filesystem::path& path, Links links);

/// Whether a regular file can be opened for writing. Drops its locks like the other.
bool canBeWritten(const std::filesystem::path& file);

/// In bytes; 0 when there is no such file.
std::uint64_t sizeOf(const std::filesystem::path& file);

} // namespace meridal
