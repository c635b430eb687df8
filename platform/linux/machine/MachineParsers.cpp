// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/MachineParsers.h"

#include "platform/linux/kernel/ProcParsers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <span>
#include <utility>

namespace meridal::proc {

namespace {

constexpr std::uint64_t sectorBytes = 512; // whatever the disk's own are
constexpr std::uint64_t nsPerMs = 1'000'000;
constexpr std::uint64_t nsPerUs = 1'000;

bool isBlank(char character) { return character == ' ' || character == '\t'; }

/// By hand: the library's search for one of several characters makes a call for each one that it looks at, which was half
/// of what reading these files costs here.
std::string_view takeWord(std::string_view& line)
{
    const auto begin = static_cast<std::size_t>(std::find_if_not(line.begin(), line.end(), isBlank) - line.begin());
    line.remove_prefix(begin);
    const auto length = static_cast<std::size_t>(std::find_if(line.begin(), line.end(), isBlank) - line.begin());
    const std::string_view word = line.substr(0, length);
    line.remove_prefix(length);
    return word;
}

template <typename Number>
std::optional<Number> numberIn(std::string_view word)
{
    Number number{};
    const auto result = std::from_chars(word.data(), word.data() + word.size(), number);
    return result.ec == std::errc() && !word.empty() ? std::optional(number) : std::nullopt;
}

template <typename Number>
std::optional<Number> takeNumber(std::string_view& line)
{
    return numberIn<Number>(takeWord(line));
}

/// As many numbers as the line has and there is room for.
template <std::size_t Most>
std::size_t takeNumbers(std::string_view line, std::array<std::uint64_t, Most>& numbers)
{
    std::size_t count = 0;
    while (count < Most) {
        const auto number = takeNumber<std::uint64_t>(line);
        if (!number) {
            break;
        }
        numbers[count++] = *number;
    }
    return count;
}

std::optional<ProcessorTimes> processorTimes(std::string_view line, std::uint64_t tickNs)
{
    std::array<std::uint64_t, 8> ticks{};
    const std::size_t known = takeNumbers(line, ticks);
    if (known < 4) {
        return std::nullopt;
    }
    const auto time = [&](std::size_t index) {
        return index < known ? std::optional(ticks[index] * tickNs) : std::nullopt;
    };
    ProcessorTimes times{.userNs = *time(0),
        .niceNs = *time(1),
        .systemNs = *time(2),
        .idleNs = *time(3),
        .ioWaitNs = time(4),
        .interruptNs = time(5),
        .stealNs = time(7)};
    if (const auto soft = time(6)) {
        times.interruptNs = *times.interruptNs + *soft;
    }
    return times;
}

/// What a line of "name: number kB" is of a record.
struct MemoryField {
    std::string_view name;
    void (*put)(MemoryReading& reading, std::uint64_t bytes);
};

constexpr MemoryField memoryFields[] = {
    {"MemTotal", [](MemoryReading& reading, std::uint64_t bytes) { reading.total = bytes; }},
    {"MemFree", [](MemoryReading& reading, std::uint64_t bytes) { reading.free = bytes; }},
    {"MemAvailable", [](MemoryReading& reading, std::uint64_t bytes) { reading.available = bytes; }},
    {"Buffers", [](MemoryReading& reading, std::uint64_t bytes) { reading.buffers = bytes; }},
    {"Cached", [](MemoryReading& reading, std::uint64_t bytes) { reading.cached = bytes; }},
    {"Shmem", [](MemoryReading& reading, std::uint64_t bytes) { reading.shared = bytes; }},
    {"SReclaimable", [](MemoryReading& reading, std::uint64_t bytes) { reading.slabReclaimable = bytes; }},
    {"SUnreclaim", [](MemoryReading& reading, std::uint64_t bytes) { reading.slabUnreclaimable = bytes; }},
    {"Dirty", [](MemoryReading& reading, std::uint64_t bytes) { reading.dirty = bytes; }},
    {"Writeback", [](MemoryReading& reading, std::uint64_t bytes) { reading.writeback = bytes; }},
    {"Zswap", [](MemoryReading& reading, std::uint64_t bytes) { reading.compressed = bytes; }},
    {"Zswapped", [](MemoryReading& reading, std::uint64_t bytes) { reading.compressedContents = bytes; }},
    {"Hugetlb", [](MemoryReading& reading, std::uint64_t bytes) { reading.hugePages = bytes; }},
    {"SwapTotal", [](MemoryReading& reading, std::uint64_t bytes) { reading.swapTotal = bytes; }},
    {"SwapFree",
        [](MemoryReading& reading, std::uint64_t bytes) { reading.swapUsed = bytes; }}, // turned round at the end
};

} // namespace

bool parseMachineStat(std::string_view text, std::uint64_t tickNs, ProcessorReading& reading)
{
    bool hasAll = false;
    reading.each.clear();
    while (const auto next = takeLine(text)) {
        std::string_view line = *next;
        const std::string_view word = takeWord(line);
        if (word == "cpu") {
            const auto times = processorTimes(line, tickNs);
            hasAll = times.has_value();
            reading.all = times.value_or(ProcessorTimes());
        } else if (word.starts_with("cpu")) {
            const auto number = numberIn<int>(word.substr(3));
            const auto times = processorTimes(line, tickNs);
            if (number && times) {
                reading.each.push_back({.number = *number, .times = *times});
            }
        } else if (word == "intr") {
            reading.interrupts = takeNumber<std::uint64_t>(line);
        } else if (word == "ctxt") {
            reading.contextSwitches = takeNumber<std::uint64_t>(line);
        } else if (word == "processes") {
            reading.forks = takeNumber<std::uint64_t>(line);
        } else if (word == "procs_running") {
            reading.runnableTasks = takeNumber<std::uint32_t>(line);
        } else if (word == "procs_blocked") {
            reading.blockedTasks = takeNumber<std::uint32_t>(line);
        }
    }
    return hasAll;
}

void parseLoadAverages(std::string_view text, ProcessorReading& reading)
{
    reading.load1Minute = takeNumber<double>(text);
    reading.load5Minutes = takeNumber<double>(text);
    reading.load15Minutes = takeNumber<double>(text);
}

bool parseMemoryInfo(std::string_view text, MemoryReading& reading)
{
    bool saysAvailable = false;
    std::optional<std::uint64_t> freeHugePages; // of the usual size only, in pages
    while (const auto next = takeLine(text)) {
        std::string_view line = *next;
        const std::string_view word = takeWord(line);
        if (!word.ends_with(':')) {
            continue;
        }
        const std::string_view name = word.substr(0, word.size() - 1);
        if (name == "HugePages_Free") {
            freeHugePages = takeNumber<std::uint64_t>(line);
        } else if (name == "Hugepagesize" && freeHugePages) {
            const auto kilobytes = takeNumber<std::uint64_t>(line);
            reading.hugePagesFree = kilobytes ? std::optional(*freeHugePages * *kilobytes * 1024) : std::nullopt;
        }
        const auto* field = std::find_if(std::begin(memoryFields), std::end(memoryFields),
            [&](const MemoryField& each) { return each.name == name; });
        if (field == std::end(memoryFields)) {
            continue;
        }
        if (const auto kilobytes = takeNumber<std::uint64_t>(line)) {
            field->put(reading, *kilobytes * 1024);
            saysAvailable = saysAvailable || name == "MemAvailable";
        }
    }
    if (!saysAvailable) { // before Linux 3.14, and in some containers
        reading.available = reading.free + reading.buffers.value_or(0) + reading.cached.value_or(0);
    }
    reading.swapUsed = reading.swapTotal - std::min(reading.swapTotal, reading.swapUsed);
    return reading.total > 0;
}

void parseRamDisk(std::string_view text, MemoryReading& reading)
{
    std::array<std::uint64_t, 3> figures{}; // contents, these compressed, memory taken
    if (takeNumbers(text, figures) == figures.size()) {
        reading.ramDiskContents = reading.ramDiskContents.value_or(0) + figures[0];
        reading.ramDisks = reading.ramDisks.value_or(0) + figures[2];
    }
}

void parsePageCounts(std::string_view text, std::uint64_t pageSize, MemoryReading& reading)
{
    while (const auto next = takeLine(text)) {
        std::string_view line = *next;
        if (!line.starts_with("pswp") && !line.starts_with("oom_")) {
            continue; // as all but three of two hundred
        }
        const std::string_view word = takeWord(line);
        if (word == "pswpin" || word == "pswpout") {
            const auto pages = takeNumber<std::uint64_t>(line);
            (word == "pswpin" ? reading.swappedIn : reading.swappedOut) =
                pages ? std::optional(*pages * pageSize) : std::nullopt;
        } else if (word == "oom_kill") {
            reading.outOfMemoryKills = takeNumber<std::uint64_t>(line);
        }
    }
}

std::optional<Stall> parseStall(std::string_view text)
{
    std::optional<Stall> stall;
    while (const auto next = takeLine(text)) {
        std::string_view line = *next;
        const std::string_view kind = takeWord(line);
        const std::size_t at = line.find("total=");
        const auto total = at == std::string_view::npos ? std::nullopt : numberIn<std::uint64_t>(line.substr(at + 6));
        if (!total) {
            continue;
        }
        if (kind == "some") {
            stall.emplace().someNs = *total * nsPerUs;
        } else if (kind == "full" && stall) {
            stall->fullNs = *total * nsPerUs;
        }
    }
    return stall;
}

std::optional<DiskLine> nextDiskLine(std::string_view& text)
{
    while (const auto next = takeLine(text)) {
        std::string_view line = *next;
        const auto major = takeNumber<std::uint32_t>(line);
        const auto minor = takeNumber<std::uint32_t>(line);
        DiskLine disk{.major = major.value_or(0), .minor = minor.value_or(0), .name = takeWord(line), .figures = {}};
        std::array<std::uint64_t, 10> numbers{};
        if (!major || !minor || disk.name.empty() || takeNumbers(line, numbers) < numbers.size()) {
            continue;
        }
        BlockDeviceRecord& figures = disk.figures;
        figures.reads = numbers[0];
        figures.readBytes = numbers[2] * sectorBytes;
        figures.readNs = numbers[3] * nsPerMs;
        figures.writes = numbers[4];
        figures.writtenBytes = numbers[6] * sectorBytes;
        figures.writeNs = numbers[7] * nsPerMs;
        figures.underWay = numbers[8];
        figures.busyNs = numbers[9] * nsPerMs;
        return disk;
    }
    return std::nullopt;
}

} // namespace meridal::proc
