// SPDX-License-Identifier: Apache-2.0
#include "client/OwnDaemon.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#if __has_include(<libproc.h>)
#include <libproc.h>
#endif
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

extern char** environ; // POSIX declares it in no header

namespace meridal {

namespace {

constexpr int patienceAtEnd = 10'000; // ms

std::string words(int error) { return std::generic_category().message(error); }

#if __has_include(<libproc.h>)

std::filesystem::path ownPath()
{
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> path;
    const int length = proc_pidpath(getpid(), path.data(), path.size());
    return std::string(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

#else

/// Where this program lies; empty when that cannot be told.
std::filesystem::path ownPath()
{
    std::error_code none;
    return std::filesystem::read_symlink("/proc/self/exe", none);
}

#endif

/// Beside this program, as in a folder of a build, or where a Mac has it installed; else its name, to be looked for in PATH.
std::string programPath()
{
    const auto folder = ownPath().parent_path();
    for (const char* beside : {"meridald", "../libexec/meridald"}) {
        std::error_code none;
        if (!folder.empty() && std::filesystem::exists(folder / beside, none)) {
            return folder / beside;
        }
    }
    return "meridald";
}

} // namespace

Result<std::unique_ptr<OwnDaemon>> OwnDaemon::start()
{
    std::error_code error;
    std::string root = (std::filesystem::temp_directory_path(error) / "meridal-XXXXXX").string();
    if (error || !mkdtemp(root.data())) {
        return unexpected(ErrorCode::Unavailable, "no temporary folder: " + (error ? error.message() : words(errno)));
    }
    std::unique_ptr<OwnDaemon> daemon(new OwnDaemon(root));
    const std::string why = daemon->spawn();
    if (!why.empty()) {
        return unexpected(ErrorCode::Unavailable, "meridald cannot be started: " + why);
    }
    return daemon;
}

std::string OwnDaemon::spawn()
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return words(errno);
    }
    const auto [readEnd, writeEnd] = ends;
    std::array<std::string, 3> arguments = {programPath(), "--root", root_.string()};
    const std::array<char*, 4> words = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    const std::string output = (root_ / "output").string();
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, readEnd);
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP); // Ctrl-C on the terminal is for this program
    posix_spawnattr_setpgroup(&attributes, 0);
    pid_t process = 0;
    const int failure = posix_spawnp(&process, words[0], &actions, &attributes, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    close(writeEnd);
    life_ = readEnd;
    process_ = failure == 0 ? process : 0;
    return failure == 0 ? std::string() : meridal::words(failure);
}

OwnDaemon::~OwnDaemon()
{
    if (process_ != 0) {
        kill(process_, SIGTERM);
        pollfd life{.fd = life_, .events = POLLIN, .revents = 0};
        int ended = poll(&life, 1, patienceAtEnd);
        while (ended < 0 && errno == EINTR) {
            ended = poll(&life, 1, patienceAtEnd);
        }
        if (ended <= 0) {
            kill(process_, SIGKILL);
        }
        int status = 0;
        while (waitpid(process_, &status, 0) < 0 && errno == EINTR) { }
    }
    if (life_ >= 0) {
        close(life_);
    }
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

} // namespace meridal
