// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ChildProgram.h"

#include "platform/linux/kernel/Descriptor.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meridal {

namespace {

/// The attributes and file actions of a spawn, freed at the end.
struct SpawnSettings {
    SpawnSettings()
    {
        ::posix_spawn_file_actions_init(&actions);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_RDWR, 0);
        }
        ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        ::posix_spawnattr_init(&attributes);
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setsigdefault(&attributes, &all);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings()
    {
        ::posix_spawnattr_destroy(&attributes);
        ::posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

Result<void> outcomeOf(int status, const std::string& program)
{
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return {};
    }
    const std::string how = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                              : "ended by signal " + std::to_string(WTERMSIG(status));
    return unexpected(ErrorCode::Unavailable, program + " failed: " + how);
}

} // namespace

Result<void> runProgram(const std::vector<std::string>& words, double seconds)
{
    std::vector<std::string> copies = words; // argv is not const
    std::vector<char*> argv;
    for (std::string& word : copies) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    std::array<char*, 2> environment = {path.data(), nullptr};
    const SpawnSettings settings;
    pid_t child = -1;
    const int error =
        ::posix_spawn(&child, argv.front(), &settings.actions, &settings.attributes, argv.data(), environment.data());
    if (error != 0) {
        return unexpected(ErrorCode::Unavailable, words.front() + ": " + std::strerror(error));
    }
    const Descriptor watch(static_cast<int>(::syscall(SYS_pidfd_open, child, 0))); // no C++ linkage in glibc 2.36
    pollfd ended{.fd = watch.get(), .events = POLLIN, .revents = 0};
    int ready = -1;
    do {
        ready = ::poll(&ended, 1, static_cast<int>(seconds * 1000));
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) {
        ::kill(-child, SIGKILL);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    return ready > 0 ? outcomeOf(status, words.front())
                     : unexpected(ErrorCode::Unavailable, words.front() + " took too long");
}

} // namespace meridal
