// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ProcFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>

namespace meridal {

namespace {

constexpr std::size_t firstBufferSize = 4 << 10; // a status file is about 1.5 KiB, more with many groups

/// "PID/file", ended by a zero, on the stack.
class ProcPath {
public:
    ProcPath(std::int32_t pid, std::string_view file)
    {
        char* end = std::to_chars(text_.data(), text_.data() + digits, pid).ptr;
        *end++ = '/';
        file = file.substr(0, text_.size() - digits - 2);
        std::memcpy(end, file.data(), file.size());
        end[file.size()] = '\0';
    }
    const char* get() const { return text_.data(); }

private:
    static constexpr std::size_t digits = 12;
    std::array<char, 40> text_;
};

ProcOutcome outcomeOf(int error)
{
    switch (error) {
    case ENOENT:
    case ESRCH:
    case ENOTDIR:
    case EINVAL:
        return ProcOutcome::Gone;
    case EACCES:
    case EPERM:
        return ProcOutcome::Denied;
    default:
        return ProcOutcome::Failed;
    }
}

/// The number that a folder's name is; 0 for "self", "sys" and their like.
std::int32_t pidOf(const char* name)
{
    std::int64_t pid = 0;
    for (; *name >= '0' && *name <= '9'; ++name) {
        pid = pid * 10 + (*name - '0');
        if (pid > std::numeric_limits<std::int32_t>::max()) {
            return 0;
        }
    }
    return *name == '\0' ? static_cast<std::int32_t>(pid) : 0;
}

/// Calls `take(number)` for the entries of a folder that are numbers until it answers false. False when the folder cannot be
/// read.
template <typename Take>
bool forEachNumber(int folder, Take take)
{
    alignas(dirent64) std::array<char, 32 << 10> entries; // about a thousand of them
    for (;;) {
        const ssize_t size = ::getdents64(folder, entries.data(), entries.size());
        if (size <= 0) {
            return size == 0;
        }
        for (std::size_t offset = 0; offset < static_cast<std::size_t>(size);) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries.data() + offset);
            if (const std::int32_t number = pidOf(entry->d_name); number > 0 && !take(number)) {
                return true;
            }
            offset += entry->d_reclen;
        }
    }
}

} // namespace

ProcFolder::ProcFolder(const std::filesystem::path& folder)
    : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), buffer_(firstBufferSize)
{
}

bool ProcFolder::listPids(std::vector<std::int32_t>& pids)
{
    pids.clear();
    const auto take = [&pids](std::int32_t pid) {
        pids.push_back(pid);
        return true;
    };
    if (!folder_ || ::lseek(folder_.get(), 0, SEEK_SET) != 0 || !forEachNumber(folder_.get(), take)) {
        return false;
    }
    if (!std::is_sorted(pids.begin(), pids.end())) { // procfs sorts them, a recorded tree does not
        std::sort(pids.begin(), pids.end());
    }
    return !pids.empty();
}

ProcOutcome ProcFolder::read(std::int32_t pid, std::string_view file, std::string_view& text)
{
    const Descriptor descriptor(::openat(folder_.get(), ProcPath(pid, file).get(), O_RDONLY | O_CLOEXEC));
    if (!descriptor) {
        return outcomeOf(errno);
    }
    std::size_t filled = 0;
    for (;;) {
        const ssize_t size = ::read(descriptor.get(), buffer_.data() + filled, buffer_.size() - filled);
        if (size < 0) {
            return outcomeOf(errno);
        }
        filled += static_cast<std::size_t>(size);
        // procfs gives all it has in one read: only a full buffer leaves something behind.
        if (filled < buffer_.size() || buffer_.size() >= maximumFileSize) {
            break;
        }
        buffer_.resize(buffer_.size() * 2);
    }
    text = {buffer_.data(), filled};
    return ProcOutcome::Read;
}

std::optional<std::string> ProcFolder::readLink(std::int32_t pid, std::string_view link) const
{
    std::array<char, 4096> target;
    const ssize_t size = ::readlinkat(folder_.get(), ProcPath(pid, link).get(), target.data(), target.size());
    if (size <= 0) {
        return std::nullopt;
    }
    return std::string(target.data(), static_cast<std::size_t>(size));
}

std::string ProcFolder::fileOfAnotherThread(std::int32_t pid, std::string_view file) const
{
    const Descriptor threads(::openat(folder_.get(), ProcPath(pid, "task").get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::string path;
    if (threads) {
        forEachNumber(threads.get(), [&](std::int32_t thread) {
            if (thread != pid) {
                path = "task/" + std::to_string(thread) + "/";
                path += file;
            }
            return path.empty();
        });
    }
    return path;
}

bool ProcFolder::exists(std::int32_t pid, std::string_view file) const
{
    return ::faccessat(folder_.get(), ProcPath(pid, file).get(), F_OK, 0) == 0;
}

} // namespace meridal
