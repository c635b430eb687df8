// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/HelperProgram.h"

#include "platform/linux/kernel/SpawnSettings.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace meridal {

namespace {

template <typename Call>
auto untilDone(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace

std::filesystem::path findHelperProgram(const std::string& name)
{
    std::error_code failure;
    const auto ours = std::filesystem::read_symlink("/proc/self/exe", failure).parent_path();
    for (const auto& place : {ours / name, ours.parent_path() / "libexec/meridal" / name}) {
        if (::access(place.c_str(), X_OK) == 0) {
            return place;
        }
    }
    return {};
}

bool HelperProgram::start(const std::filesystem::path& program, std::vector<std::string> words)
{
    stop();
    std::array<int, 2> ends = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) < 0) {
        return false;
    }
    Descriptor ours(ends[0]);
    const Descriptor pairEnd(ends[1]);
    // Not at the place where the child finds it: what is copied to itself would stay closed for the program.
    const Descriptor theirs(::fcntl(pairEnd.get(), F_DUPFD_CLOEXEC, SpawnSettings::channel + 1));
    if (!theirs) {
        return false;
    }
    words.insert(words.begin(), program.string()); // by its whole path, which no search may change
    pid_t child = -1;
    if (SpawnSettings(theirs.get()).start(child, std::move(words), environ) != 0) {
        return false;
    }
    child_ = child;
    channel_ = std::move(ours);
    return true;
}

void HelperProgram::stop()
{
    if (child_ > 0) {
        channel_ = Descriptor();
        ::kill(child_, SIGKILL); // it has nothing to finish
        untilDone([this] { return ::waitpid(child_, nullptr, 0); });
        child_ = -1;
    }
}

std::optional<std::size_t> exchange(
    int channel, const void* question, std::size_t questionSize, void* answer, std::size_t room)
{
    if (untilDone([&] { return ::send(channel, question, questionSize, MSG_NOSIGNAL); }) < 0) {
        return std::nullopt;
    }
    const ssize_t got = untilDone([&] { return ::recv(channel, answer, room, MSG_TRUNC); });
    return got > 0 ? std::optional(static_cast<std::size_t>(got)) : std::nullopt;
}

} // namespace meridal
