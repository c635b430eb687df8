// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/processes/MacAdapters.h"

#include "platform/formats/ProcArgs.h"
#include "platform/macos/kernel/KernelLayouts.h"
#include "platform/macos/processes/ArgumentArea.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace meridal {

namespace {

constexpr std::size_t longestKept = 16'384; // bytes of arguments

class LibprocInspection final : public ProcessInspection {
public:
    std::optional<std::string> arguments(std::int32_t pid) override;
    ProcessInsight inspect(std::int32_t pid) override;

private:
    static std::optional<std::string> workingDirectory(std::int32_t pid);
    std::optional<std::uint64_t> countDescriptors(std::int32_t pid);

    std::vector<proc_fdinfo> descriptors_; ///< kept for its memory
};

} // namespace

std::optional<std::string> LibprocInspection::arguments(std::int32_t pid)
{
    const auto area = readArgumentArea(pid);
    const auto arguments = argumentsOfProcArgs(area.text);
    return arguments ? std::optional(std::string(arguments->substr(0, longestKept))) : std::nullopt;
}

ProcessInsight LibprocInspection::inspect(std::int32_t pid)
{
    ProcessInsight insight;
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> path;
    if (const int length = proc_pidpath(pid, path.data(), path.size()); length > 0) {
        insight.executable = std::string(path.data(), static_cast<std::size_t>(length));
    }
    insight.workingDirectory = workingDirectory(pid);
    insight.descriptors = countDescriptors(pid);
    return insight;
}

std::optional<std::string> LibprocInspection::workingDirectory(std::int32_t pid)
{
    proc_vnodepathinfo info{};
    if (proc_pidinfo(pid, PROC_PIDVNODEPATHINFO, 0, &info, sizeof(info)) < static_cast<int>(sizeof(info))) {
        return std::nullopt;
    }
    const char* path = info.pvi_cdir.vip_path;
    const std::size_t length = strnlen(path, sizeof(info.pvi_cdir.vip_path));
    return length > 0 ? std::optional(std::string(path, length)) : std::nullopt;
}

/// Without a buffer the kernel answers how many would fit the table, which is more than are open.
std::optional<std::uint64_t> LibprocInspection::countDescriptors(std::int32_t pid)
{
    const int estimate = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, nullptr, 0);
    if (estimate <= 0) {
        return std::nullopt;
    }
    descriptors_.resize(static_cast<std::size_t>(estimate) / sizeof(proc_fdinfo) + 1);
    const auto room = static_cast<int>(descriptors_.size() * sizeof(proc_fdinfo));
    errno = 0; // 0 is the answer where it has none open, and where it has ended since
    const int written = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, descriptors_.data(), room);
    const bool isAnswer = written > 0 || (written == 0 && errno == 0);
    return isAnswer ? std::optional(static_cast<std::uint64_t>(written) / sizeof(proc_fdinfo)) : std::nullopt;
}

std::unique_ptr<ProcessInspection> makeLibprocInspection() { return std::make_unique<LibprocInspection>(); }

} // namespace meridal
