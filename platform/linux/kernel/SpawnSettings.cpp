// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/SpawnSettings.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace meridal {

SpawnSettings::SpawnSettings(std::optional<int> handed, std::optional<int> output)
{
    ::posix_spawn_file_actions_init(&actions_);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0);
    }
    if (output) {
        ::posix_spawn_file_actions_adddup2(&actions_, *output, STDOUT_FILENO);
    }
    if (handed) {
        ::posix_spawn_file_actions_adddup2(&actions_, *handed, channel);
    }
    // The sockets of clients and the instance's lock must not live on in a child that hangs.
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, handed ? channel + 1 : channel);
    ::posix_spawnattr_init(&attributes_);
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
}

SpawnSettings::~SpawnSettings()
{
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
}

int SpawnSettings::start(pid_t& child, std::vector<std::string> words, char* const* environment) const
{
    std::vector<char*> argv; // which is not const
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return ::posix_spawn(&child, argv.front(), &actions_, &attributes_, argv.data(), environment);
}

} // namespace meridal
