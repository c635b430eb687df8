// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/InstanceLock.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace meridal {

namespace {

std::string holderOf(int descriptor)
{
    char text[16] = {};
    const ssize_t length = ::pread(descriptor, text, sizeof text - 1, 0);
    return length > 0 ? " (pid " + std::string(text, std::strcspn(text, "\n")) + ")" : std::string();
}

} // namespace

Result<InstanceLock> InstanceLock::acquire(const std::filesystem::path& file)
{
    std::error_code failure;
    if (std::filesystem::create_directories(file.parent_path(), failure)) {
        // The socket will stand here too, for everybody; the caller's umask may say otherwise.
        using std::filesystem::perms;
        std::filesystem::permissions(file.parent_path(),
            perms::owner_all | perms::group_read | perms::group_exec | perms::others_read | perms::others_exec,
            failure);
    }
    const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (descriptor < 0) {
        return unexpected(
            ErrorCode::NotPermitted, fmt::format("cannot use {}: {}", file.string(), std::strerror(errno)));
    }
    InstanceLock lock(descriptor);
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        return unexpected(ErrorCode::Unavailable,
            fmt::format("another daemon{} already runs on {}", holderOf(descriptor), file.parent_path().string()));
    }
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(descriptor, 0) != 0 || ::pwrite(descriptor, pid.data(), pid.size(), 0) < 0) {
        // The pid is for people; the lock holds without it.
    }
    return lock;
}

InstanceLock::InstanceLock(InstanceLock&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) { }

InstanceLock& InstanceLock::operator=(InstanceLock&& other) noexcept
{
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

InstanceLock::~InstanceLock()
{
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

} // namespace meridal
