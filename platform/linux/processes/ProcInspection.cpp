// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcInspection.h"

#include <string_view>
#include <system_error>

namespace meridal {

namespace {

/// What the kernel adds to the path of a program that has been replaced since.
constexpr std::string_view deletedMark = " (deleted)";
/// A longer table has no number: going through it would hold up everybody.
constexpr std::uint64_t mostCounted = 65'536;

} // namespace

/// A process may have written over its arguments, and the last zero away.
std::optional<std::string> ProcInspection::arguments(std::int32_t pid)
{
    std::string_view text;
    if (folder_.read(pid, "cmdline", text) != ProcOutcome::Read || text.empty()) {
        const std::string file =
            folder_.fileOfAnotherThread(pid, "cmdline"); // the main one may have ended before others
        if (file.empty() || folder_.read(pid, file, text) != ProcOutcome::Read || text.empty()) {
            return std::nullopt;
        }
    }
    return std::string(text.substr(0, longestArguments));
}

ProcessInsight ProcInspection::inspect(std::int32_t pid)
{
    ProcessInsight insight{.executable = folder_.readLink(pid, "exe"),
        .workingDirectory = folder_.readLink(pid, "cwd"),
        .descriptors = countDescriptors(pid)};
    if (insight.executable && insight.executable->ends_with(deletedMark)) {
        insight.executable->resize(insight.executable->size() - deletedMark.size());
    }
    return insight;
}

std::optional<std::uint64_t> ProcInspection::countDescriptors(std::int32_t pid) const
{
    const auto folder = path_ / std::to_string(pid) / "fd";
    std::error_code failure;
    std::uint64_t count = 0;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        if (++count > mostCounted) {
            return std::nullopt;
        }
    }
    return failure ? std::nullopt : std::optional(count);
}

} // namespace meridal
