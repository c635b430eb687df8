#include "platform/linux/ProcFigures.h"

#include "platform/linux/ProcParsers.h"

#include <algorithm>
#include <unistd.h>

namespace meridal::proc {

std::uint64_t clockTicksPerSecond()
{
    const long ticks = ::sysconf(_SC_CLK_TCK);
    return ticks > 0 ? static_cast<std::uint64_t>(ticks) : 100;
}

std::uint64_t bytesWritten(std::uint64_t written, std::uint64_t cancelled, std::uint64_t given)
{
    return std::max(given, written > cancelled ? written - cancelled : 0);
}

namespace {

std::optional<std::string> programOf(const ProcFolder& folder, std::int32_t pid)
{
    auto path = folder.readLink(pid, "exe");
    constexpr std::string_view deleted = " (deleted)"; // the kernel's mark of a program replaced since
    if (path && path->ends_with(deleted)) {
        path->resize(path->size() - deleted.size());
    }
    return path;
}

} // namespace

std::optional<std::string> programPath(ProcFolder& folder, std::int32_t pid)
{
    auto path = programOf(folder, pid);
    if (path && (path->starts_with("/home/") || path->starts_with("/root/"))) {
        std::string_view text;
        const bool isTold = folder.read(pid, "cmdline", text) == ProcOutcome::Read && text.starts_with(*path)
            && text.substr(path->size()).starts_with('\0');
        return isTold ? path : std::nullopt;
    }
    return path;
}

std::optional<std::string> executablePath(ProcFolder& folder, std::int32_t pid, std::string_view name)
{
    std::string_view text;
    std::string_view argument;
    if (folder.read(pid, "cmdline", text) == ProcOutcome::Read) {
        argument = parseCmdline(text, name, nameLimit);
    }
    if (!name.empty() && !argument.empty()) {
        return std::string(argument);
    }
    if (auto path = programOf(folder, pid); path && isNamed(*path, name, nameLimit)) {
        return path;
    }
    return argument.empty() ? std::nullopt : std::optional(std::string(argument));
}

} // namespace meridal::proc
