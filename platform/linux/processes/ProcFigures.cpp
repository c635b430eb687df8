// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcFigures.h"

#include "platform/linux/kernel/ProcParsers.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <fstream>
#include <functional>
#include <linux/btf.h>
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

bool countsInterruptsApart(const std::filesystem::path& root)
{
    using namespace std::string_view_literals;
    constexpr auto name = "\0irqtime\0"sv; // among the strings of the type data
    constexpr std::size_t piece = 64 * 1024;
    std::ifstream types(root / "sys/kernel/btf/vmlinux", std::ios::binary);
    btf_header header{};
    if (!types.read(reinterpret_cast<char*>(&header), sizeof header)) {
        return true;
    }
    types.seekg(header.hdr_len + header.str_off); // to its end: the kernel's file has nothing behind them
    const std::boyer_moore_horspool_searcher wanted(name.begin(), name.end());
    std::string text;
    while (types) {
        text.erase(0, text.size() - std::min(text.size(), name.size()));
        const std::size_t kept = text.size();
        text.resize(kept + piece);
        types.read(text.data() + kept, piece);
        text.resize(kept + static_cast<std::size_t>(types.gcount()));
        if (std::search(text.begin(), text.end(), wanted) != text.end()) {
            return true;
        }
    }
    return false;
}

double startTime(std::uint64_t ticks)
{
    constexpr double nanoseconds = 1e-9;
    timespec sinceBoot{};
    timespec wall{};
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    ::clock_gettime(CLOCK_REALTIME, &wall);
    const double boot = static_cast<double>(wall.tv_sec - sinceBoot.tv_sec)
        + static_cast<double>(wall.tv_nsec - sinceBoot.tv_nsec) * nanoseconds;
    const double start = boot + static_cast<double>(ticks) / static_cast<double>(clockTicksPerSecond());
    return std::round(start * 100) / 100;
}

std::uint64_t userPartOf(std::uint64_t runTime, std::uint64_t user, std::uint64_t system)
{
    if (system == 0) {
        return runTime;
    }
    const double part = static_cast<double>(user) / (static_cast<double>(user) + static_cast<double>(system));
    return std::min(runTime, static_cast<std::uint64_t>(part * static_cast<double>(runTime)));
}

RunState runStateOf(char letter)
{
    switch (letter) {
    case 'R':
        return RunState::Running;
    case 'S':
        return RunState::Sleeping;
    case 'D':
        return RunState::DiskWait;
    case 'I':
        return RunState::Idle;
    case 'T':
        return RunState::Stopped;
    case 't':
        return RunState::Traced;
    default: // parked, or ended while other threads run on
        return RunState::Unknown;
    }
}

RunState runStateOf(std::uint32_t bits)
{
    constexpr std::uint32_t uninterruptible = 0x2;
    constexpr std::uint32_t idle = 0x402;          // that, and no load
    constexpr std::uint32_t lockOrFrozen = 0x9000; // shown as waiting for storage
    constexpr std::uint32_t endedOrParked = 0x70;  // dead, zombie, parked
    constexpr std::uint32_t traced = 0x8;
    constexpr std::uint32_t stopped = 0x4;
    if ((bits & idle) == idle) {
        return RunState::Idle;
    }
    if (bits & endedOrParked) {
        return RunState::Unknown;
    }
    if (bits & lockOrFrozen) {
        return RunState::DiskWait;
    }
    return bits & traced         ? RunState::Traced
        : bits & stopped         ? RunState::Stopped
        : bits & uninterruptible ? RunState::DiskWait
        : bits & 1U              ? RunState::Sleeping
                                 : RunState::Running;
}

namespace {

/// What a link to a program leads to; the process itself or one of its threads has it.
std::optional<std::string> programBehind(const ProcFolder& folder, std::int32_t pid, std::string_view exe)
{
    auto path = folder.readLink(pid, exe);
    constexpr std::string_view deleted = " (deleted)"; // the kernel's mark of a program replaced since
    if (path && path->ends_with(deleted)) {
        path->resize(path->size() - deleted.size());
    }
    return path;
}

/// Out of the files of the process itself or of one of its threads.
std::optional<std::string> namedProgram(
    ProcFolder& folder, std::int32_t pid, std::string_view name, std::string_view cmdline, std::string_view exe)
{
    std::string_view text;
    std::string_view argument;
    if (folder.read(pid, cmdline, text) == ProcOutcome::Read) {
        argument = parseCmdline(text, name, nameLimit);
    }
    if (!name.empty() && !argument.empty()) {
        return std::string(argument);
    }
    if (auto path = programBehind(folder, pid, exe); path && isNamed(*path, name, nameLimit)) {
        return path;
    }
    return argument.empty() ? std::nullopt : std::optional(std::string(argument));
}

} // namespace

std::optional<std::string> programPath(ProcFolder& folder, std::int32_t pid)
{
    auto path = programBehind(folder, pid, "exe");
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
    auto path = namedProgram(folder, pid, name, "cmdline", "exe");
    if (!path) {
        if (const std::string cmdline = folder.fileOfAnotherThread(pid, "cmdline"); !cmdline.empty()) {
            path = namedProgram(folder, pid, name, cmdline, folder.fileOfAnotherThread(pid, "exe"));
        }
    }
    return path;
}

std::optional<std::string> commandName(ProcFolder& folder, std::int32_t pid)
{
    // A thread has files under its number as a process has, but is none.
    std::string_view text;
    if (folder.read(pid, "status", text) != ProcOutcome::Read || threadGroupOf(text) != pid
        || folder.read(pid, "stat", text) != ProcOutcome::Read) {
        return std::nullopt;
    }
    const auto stat = parseStat(text);
    return stat && !hasEnded(*stat) ? std::optional(std::string(lastingName(stat->name, stat->flags))) : std::nullopt;
}

} // namespace meridal::proc
