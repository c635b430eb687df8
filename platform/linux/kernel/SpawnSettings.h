// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <spawn.h>
#include <string>
#include <vector>

namespace meridal {

/// What a program that we start finds open: nothing but its standard streams, which lead nowhere, but where it is given one to
/// write to, and at `channel` what it is handed. Signals are as for a program that a shell starts, in a process group of its own.
class SpawnSettings {
public:
    static constexpr int channel = 3;

    /// `handed` and `output`, its standard output, are none of the descriptors 0 to 3 of this process.
    explicit SpawnSettings(std::optional<int> handed = {}, std::optional<int> output = {});
    ~SpawnSettings();
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    /// posix_spawn of the first word, which is a path. The error number, 0 when it runs.
    int start(pid_t& child, std::vector<std::string> words, char* const* environment) const;

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

} // namespace meridal
