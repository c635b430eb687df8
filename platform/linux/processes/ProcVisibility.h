// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessVisibility.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>
#include <string_view>

namespace meridal {

/// Who may see what in /proc: its mount options in /proc/self/mounts, and the ids in /proc/PID/status.
class ProcVisibility final : public ProcessVisibility {
public:
    explicit ProcVisibility(const std::filesystem::path& root) : folder_(root) { }

    std::optional<ProcessRestriction> restriction() override;
    std::optional<std::uint32_t> ownerOf(std::int32_t pid) override;

private:
    RootFolder folder_;
    std::optional<ProcessRestriction> last_; ///< holds on when the options cannot be read
};

/// From the text of /proc/self/mounts: how the file system that was mounted last at /proc hides processes.
std::optional<ProcessRestriction> parseRestriction(std::string_view mounts);

} // namespace meridal
