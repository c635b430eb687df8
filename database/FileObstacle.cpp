// SPDX-License-Identifier: Apache-2.0
#include "database/FileObstacle.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace meridal {

namespace {

namespace fs = std::filesystem;

/// A link to a file that could be made is as good as no file.
bool leadsNowhere(const fs::path& link)
{
    std::error_code failure;
    const fs::path target = fs::weakly_canonical(link.parent_path() / fs::read_symlink(link, failure), failure);
    return failure || !fs::is_directory(target.parent_path(), failure);
}

/// Only asked of a regular file, where opening cannot hang. The error is EACCES where the rights are missing.
int errorOfOpening(const fs::path& file)
{
    std::FILE* const opened = std::fopen(file.c_str(), "r+be");
    if (opened == nullptr) {
        return errno;
    }
    std::fclose(opened);
    return 0;
}

} // namespace

bool canBeWritten(const fs::path& file) { return errorOfOpening(file) == 0; }

std::uint64_t sizeOf(const std::filesystem::path& file)
{
    std::error_code failure;
    const auto size = std::filesystem::file_size(file, failure);
    return failure ? 0 : size;
}

std::string obstacleAt(const fs::path& path, Links links)
{
    std::error_code failure;
    const bool isLink = fs::is_symlink(fs::symlink_status(path, failure));
    if (isLink && links == Links::Refused) {
        return "a link";
    }
    const fs::file_type type = fs::status(path, failure).type();
    switch (type) {
    case fs::file_type::regular:
        break;
    case fs::file_type::directory:
        return "a folder";
    case fs::file_type::fifo:
        return "a FIFO";
    case fs::file_type::socket:
        return "a socket";
    case fs::file_type::block:
    case fs::file_type::character:
        return "a device";
    default: // nothing there, or a folder that cannot be entered
        return isLink && (failure == std::errc::too_many_symbolic_link_levels || leadsNowhere(path))
            ? "a link that leads nowhere"
            : "";
    }
    using fs::perms;
    if (errorOfOpening(path) == EACCES) { // one's own is put right
        fs::permissions(path, perms::owner_read | perms::owner_write | perms::group_read, failure);
        return errorOfOpening(path) == EACCES ? "a file that belongs to another user" : "";
    }
    return {};
}

} // namespace meridal
