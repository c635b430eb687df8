// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessInspection.h"
#include "platform/linux/kernel/ProcFolder.h"

#include <filesystem>

namespace meridal {

/// A process's own files in /proc.
class ProcInspection final : public ProcessInspection {
public:
    /// `root` is the folder that holds proc.
    explicit ProcInspection(const std::filesystem::path& root) : folder_(root / "proc"), path_(root / "proc") { }

    std::optional<std::string> arguments(std::int32_t pid) override;
    ProcessInsight inspect(std::int32_t pid) override;

    static constexpr std::size_t longestArguments = 16'384; ///< bytes

private:
    std::optional<std::uint64_t> countDescriptors(std::int32_t pid) const;

    ProcFolder folder_;
    std::filesystem::path path_;
};

} // namespace meridal
