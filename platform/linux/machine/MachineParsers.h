// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineCounters.h"

#include <string_view>

/// Readers of the kernel's text files about the whole machine. Pure functions; lines and fields that are missing leave their
/// figure as it was or absent, and what a newer kernel adds is passed over.
namespace meridal::proc {

/// /proc/stat. `tickNs` is what a clock tick lasts. False when the sum of all processors is not in it.
bool parseMachineStat(std::string_view text, std::uint64_t tickNs, ProcessorReading& reading);
/// /proc/loadavg.
void parseLoadAverages(std::string_view text, ProcessorReading& reading);
/// /proc/meminfo. False without the total.
bool parseMemoryInfo(std::string_view text, MemoryReading& reading);
/// /sys/block/zramN/mm_stat, added to what is there.
void parseRamDisk(std::string_view text, MemoryReading& reading);
/// /proc/vmstat: what was swapped, and who was killed. `pageSize` in bytes.
void parsePageCounts(std::string_view text, std::uint64_t pageSize, MemoryReading& reading);
/// /proc/pressure/cpu and its kin. Absent when it is none of these.
std::optional<Stall> parseStall(std::string_view text);

/// A line of /proc/diskstats; kind and identity are left to who knows them.
struct DiskLine {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::string_view name;
    BlockDeviceRecord figures;
};
/// Takes the next line off the text; absent at the end. Lines of another shape are passed over.
std::optional<DiskLine> nextDiskLine(std::string_view& text);

} // namespace meridal::proc
