// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ChildProgram.h"

#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/kernel/SpawnSettings.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meridal {

namespace {

Result<void> outcomeOf(int status, const std::string& program)
{
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return {};
    }
    const std::string how = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                              : "ended by signal " + std::to_string(WTERMSIG(status));
    return unexpected(ErrorCode::Unavailable, program + " failed: " + how);
}

/// Starts it; the error says why it does not run.
Result<pid_t> start(const std::vector<std::string>& words, std::optional<int> output = {})
{
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    std::array<char*, 2> environment = {path.data(), nullptr};
    pid_t child = -1;
    const int error = SpawnSettings({}, output).start(child, words, environment.data());
    if (error != 0) {
        return unexpected(ErrorCode::Unavailable, words.front() + ": " + std::strerror(error));
    }
    return child;
}

bool waitReadable(int descriptor, double seconds)
{
    pollfd wait{.fd = descriptor, .events = POLLIN, .revents = 0};
    int ready = -1;
    do {
        ready = ::poll(&wait, 1, static_cast<int>(seconds * 1000));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

/// Ends it when it has not ended by then, or at once without seconds.
Result<void> awaitEnd(pid_t child, const std::string& program, double seconds)
{
    const Descriptor watch(static_cast<int>(::syscall(SYS_pidfd_open, child, 0))); // no C++ linkage in glibc 2.36
    const bool hasEnded = waitReadable(watch.get(), seconds);
    if (!hasEnded) {
        ::kill(-child, SIGKILL);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    return hasEnded ? outcomeOf(status, program) : unexpected(ErrorCode::Unavailable, program + " took too long");
}

} // namespace

Result<void> runProgram(const std::vector<std::string>& words, double seconds)
{
    const auto child = start(words);
    return child ? awaitEnd(*child, words.front(), seconds) : Unexpected{child.error()};
}

Result<void> readProgram(
    const std::vector<std::string>& words, double seconds, const std::function<bool(std::string_view)>& take)
{
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) {
        return unexpected(ErrorCode::Unavailable, words.front() + ": " + std::strerror(errno));
    }
    const Descriptor output(pipe[0]);
    Descriptor input(pipe[1]);
    const auto child = start(words, input.get());
    input = Descriptor(); // so that the child's end of it is the last
    if (!child) {
        return Unexpected{child.error()};
    }
    std::array<char, 16 * 1024> buffer{};
    bool goesOn = true;
    bool isThrough = false;
    while (goesOn && waitReadable(output.get(), seconds)) {
        const ssize_t got = ::read(output.get(), buffer.data(), buffer.size());
        isThrough = got == 0;
        goesOn = got > 0 ? take({buffer.data(), static_cast<std::size_t>(got)}) : got < 0 && errno == EINTR;
    }
    return awaitEnd(*child, words.front(), isThrough ? seconds : 0);
}

} // namespace meridal
