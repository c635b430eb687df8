// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessSource.h"
#include "platform/linux/kernel/ProcFolder.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// What every reader of the process table has to work out or look up in the same way.
namespace meridal::proc {

/// Length at which the kernel cuts the name of a program. Bytes.
constexpr std::size_t nameLimit = 15;

/// Clock ticks in a second, in which /proc gives times.
std::uint64_t clockTicksPerSecond();

/// Bytes that reach storage. A page is counted when it is made dirty, and taken back by whoever drops it unwritten. The
/// difference may fall, a counter may not: it stands still, at the highest figure `given` before, until the difference
/// has caught up.
std::uint64_t bytesWritten(std::uint64_t written, std::uint64_t cancelled, std::uint64_t given);

/// Whether the scheduler leaves interrupts out of the run time of processes (CONFIG_IRQ_TIME_ACCOUNTING), told by the type that the
/// kernel has for it: as most kernels do, so also where it does not tell its types. `root` is the folder that holds sys.
bool countsInterruptsApart(const std::filesystem::path& root);

/// s since 1970 of a start time in clock ticks since boot, by the clock as it is now; in hundredths, as ticks tell no more.
double startTime(std::uint64_t ticks);

/// What of a time on processors, which is exact, was spent outside the kernel, by what ticks have found in and outside of it: as
/// the kernel itself divides it for /proc. The same unit for all.
std::uint64_t userPartOf(std::uint64_t runTime, std::uint64_t user, std::uint64_t system);

/// What a thread does, by its letter in /proc.
RunState runStateOf(char letter);
/// Likewise by the kernel's own bits, its state and what its end has come to: as the kernel finds the letter.
RunState runStateOf(std::uint32_t bits);

/// The name of a process in /proc/PID/stat; see ProcessSource::commandName.
std::optional<std::string> commandName(ProcFolder& folder, std::int32_t pid);

/// A path that ends in the full name of the program that a process runs; see ProcessSource::executablePath.
std::optional<std::string> executablePath(ProcFolder& folder, std::int32_t pid, std::string_view name);

/// The path of the program that a process runs; absent when it runs none or may not be asked. Where in a home a program
/// lies the kernel tells its owner only: such a path is given only if the process's arguments, which anybody may read,
/// begin with it.
std::optional<std::string> programPath(ProcFolder& folder, std::int32_t pid);

} // namespace meridal::proc
