// SPDX-License-Identifier: Apache-2.0
#include "client/screen/FileReplacement.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace meridal {

namespace {

namespace fs = std::filesystem;

/// A link would be replaced, not followed, and a device become a file: both are more likely meant otherwise.
std::string whatIsInPlace(const fs::path& path)
{
    std::error_code failure;
    switch (fs::symlink_status(path, failure).type()) {
    case fs::file_type::not_found:
    case fs::file_type::regular:
        return "";
    case fs::file_type::symlink:
        return "it is a symbolic link";
    case fs::file_type::directory:
        return "it is a folder";
    case fs::file_type::none:
        return failure.message();
    default:
        return "it is no plain file";
    }
}

std::string errorText(int error) { return std::generic_category().message(error != 0 ? error : EIO); }

} // namespace

std::string replaceFile(const std::string& path, const std::string& content)
{
    if (std::string obstacle = whatIsInPlace(path); !obstacle.empty()) {
        return obstacle;
    }
    // Of its own name, as two may do so at once, and hidden: whoever collects the files of the folder passes over it.
    const fs::path place(path);
    std::string fresh = (place.parent_path() / ("." + place.filename().string() + ".XXXXXX")).string();
    const int descriptor = ::mkstemp(fresh.data());
    std::FILE* file = descriptor >= 0 ? ::fdopen(descriptor, "wb") : nullptr;
    if (!file) {
        return errorText(errno);
    }
    errno = 0;
    bool isWritten = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    isWritten = std::fclose(file) == 0 && isWritten;
    const int error = errno;
    std::error_code failure;
    if (isWritten) {
        using enum fs::perms;
        fs::permissions(fresh, owner_read | owner_write | group_read | others_read, failure);
        if (!failure) {
            fs::rename(fresh, path, failure);
        }
    }
    if (!isWritten || failure) {
        std::error_code ignored;
        fs::remove(fresh, ignored);
        return isWritten ? failure.message() : errorText(error);
    }
    return "";
}

} // namespace meridal
