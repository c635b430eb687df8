// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// How reading one file of a process ended.
enum class ProcOutcome {
    Read,
    Gone,   ///< the process has ended, or never had such a file
    Denied, ///< this process may not read it
    Failed, ///< no descriptor, no memory: nothing was learnt
};

/// The folder /proc, kept open, and one buffer for every file read from it. Not for two threads at once.
class ProcFolder {
public:
    explicit ProcFolder(const std::filesystem::path& folder);

    /// All process ids, ascending. False when the folder could not be read.
    bool listPids(std::vector<std::int32_t>& pids);

    /// Reads a file of a process ("stat") whole. The text is valid until the next call.
    ProcOutcome read(std::int32_t pid, std::string_view file, std::string_view& text);
    /// Where a link of a process leads ("exe").
    std::optional<std::string> readLink(std::int32_t pid, std::string_view link) const;
    bool exists(std::int32_t pid, std::string_view file) const;
    /// "task/TID/file" of a thread of a process other than its main one; empty when it has none. When the main thread has
    /// ended before the others, the files of the process itself have lost its memory, arguments and program.
    std::string fileOfAnotherThread(std::int32_t pid, std::string_view file) const;

    /// The size at which a file fills the buffer for good and is given cut.
    static constexpr std::size_t maximumFileSize = 1 << 20;

private:
    Descriptor folder_;
    std::vector<char> buffer_;
};

} // namespace meridal
