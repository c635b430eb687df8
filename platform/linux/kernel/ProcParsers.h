// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// Readers of the text files under /proc/PID. Pure functions that allocate nothing; what they return points into the
/// text given. The text is the kernel's, but names and arguments in it are any user's: every byte may occur there.
namespace meridal::proc {

/// Takes the first line off the text. A last line without an end was cut: it is not given.
std::optional<std::string_view> takeLine(std::string_view& text);

/// /proc/PID/stat, of which the first 22 fields.
struct Stat {
    std::string_view name; ///< raw: spaces, parentheses and newlines included
    char state = '?';      ///< R running or runnable, S, D, T, t, I, Z zombie, X dead
    std::int32_t parentPid = 0;
    std::uint64_t flags = 0;          ///< the kernel's PF_* of the main thread
    std::uint64_t cpuTicks = 0;       ///< clock ticks, ended threads included
    std::uint64_t userTicks = 0;      ///< of them, outside the kernel
    std::uint64_t childTicks = 0;     ///< of children that it waited for, and of theirs
    std::uint64_t childUserTicks = 0; ///< likewise
    bool hasWaited = false;           ///< for a child: /proc/PID/io has what that did as well
    std::int8_t nice = 0;
    std::uint32_t threads = 0;
    std::uint64_t startTicks = 0; ///< clock ticks from boot to its start
    bool operator==(const Stat&) const = default;
};
/// Empty when the text is not such a file or was cut before the start time.
std::optional<Stat> parseStat(std::string_view text);

/// Whether nothing of a process is left but its number. Not yet when its main thread has ended before others.
bool hasEnded(const Stat& stat);
/// Whether it is one of the kernel's own.
bool isKernelThread(const Stat& stat);
/// Whether the main thread has ended and others run on.
bool hasLostMainThread(const Stat& stat);

/// The process that the thread of a /proc/PID/status belongs to; 0 when the text does not tell.
std::int32_t threadGroupOf(std::string_view status);

/// The name of a process that lasts: of the kernel's workers without the work that they do or did last, which follows as in
/// "kworker/0:1-events" and is another at each look. As their `comm` has it.
std::string_view lastingName(std::string_view name, std::uint64_t flags);

/// The figures of /proc/PID/status that we use. Kernel threads and zombies have no memory lines; all stay 0 then.
struct Status {
    bool hasMemory = false;          ///< VmRSS was there
    bool hasParts = false;           ///< RssAnon was there: Linux 4.5 and later
    std::uint64_t residentBytes = 0; ///< VmRSS
    std::uint64_t anonymousBytes = 0;
    std::uint64_t sharedMemoryBytes = 0; ///< RssShmem: tmpfs, System V and shared anonymous pages
    std::uint64_t swapBytes = 0;
    std::uint64_t voluntarySwitches = 0; ///< of one thread
    std::optional<std::uint32_t> user;   ///< effective
    bool operator==(const Status&) const = default;
};
/// Empty when the text was cut: the line of the voluntary switches, which every process has, comes last but one.
std::optional<Status> parseStatus(std::string_view text);

/// /proc/PID/io: what went to and came from storage. Bytes.
struct Io {
    std::uint64_t readBytes = 0;
    std::uint64_t writeBytes = 0;          ///< counted when a page is made dirty
    std::uint64_t cancelledWriteBytes = 0; ///< dirty pages this process dropped before they were written
    bool operator==(const Io&) const = default;
};
/// Empty when one of the three is missing.
std::optional<Io> parseIo(std::string_view text);

/// /proc/PID/schedstat: of the main thread.
struct Schedstat {
    std::uint64_t runTime = 0;  ///< ns on a processor
    std::uint64_t waitTime = 0; ///< ns on a run queue
    std::uint64_t slices = 0;   ///< times it was put on a processor
    bool operator==(const Schedstat&) const = default;
};
std::optional<Schedstat> parseSchedstat(std::string_view text);

/// From /proc/PID/cmdline, the argument whose last path component a cut process name began: for a script the second
/// one, after its interpreter. With an empty name, the first argument. `name` that is shorter than `nameLimit` was not
/// cut and must be the whole component. Empty when there is none.
std::string_view parseCmdline(std::string_view text, std::string_view name, std::size_t nameLimit);

/// Whether a path's last component is what a process name stands for, as above.
bool isNamed(std::string_view path, std::string_view name, std::size_t nameLimit);

} // namespace meridal::proc
