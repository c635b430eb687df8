// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace meridal {

class SQLiteConnection;

/// What is known of a boot, as its record keeps it. The numbers are stored.
enum class BootState { Running = 1, Asleep = 2, Ended = 3 };

/// How a boot ended, if it did.
enum class BootEnd {
    Running,
    Orderly,
    Crash, ///< or loss of power: without a farewell
    Asleep ///< it fell asleep and did not wake: the battery ran empty, or the wake failed
};

/// What is asked of the history. Times are s since 1970.
struct UptimeQuestion {
    double from = 0;              ///< boots that still ran then or later; also where the availability starts
    std::optional<double> until;  ///< boots that began before; now when absent
    std::optional<double> before; ///< key of a boot: only those before it, for the next page
    std::size_t limit = 50;
    bool withSleeps = false; ///< the sleeps within the period are asked for, too
    bool operator==(const UptimeQuestion&) const = default;
};

/// This boot as it is at the moment of the question.
struct UptimeNow {
    double boot = 0;    ///< its key; 0 when unknown
    double started = 0; ///< s since 1970 by the clock as it is now
    double elapsed = 0; ///< s since the boot
    double wallTime = 0;
};

struct BootRow {
    double boot = 0;                ///< the key: the boot time that was told first
    double started = 0;             ///< the boot time by the clock as corrected later
    std::optional<double> shutdown; ///< s since 1970, of an orderly end or of the last sleep
    BootEnd end = BootEnd::Running;
    double asleep = 0; ///< s
    double length = 0; ///< s from the boot to the end, or at least that where the end came unseen
};

/// How many boots ended how.
struct BootEnds {
    std::uint64_t orderly = 0;
    std::uint64_t crash = 0;
    std::uint64_t asleep = 0;
};

/// A sleep that is over. s since 1970.
struct SleepRow {
    double start = 0;
    double end = 0;
};

struct UptimeAnswer {
    UptimeNow now;
    double asleep = 0;          ///< s, of this boot
    std::vector<BootRow> boots; ///< newest first
    bool more = false;          ///< there are older ones
    double longest = 0;         ///< s, of all boots asked for, on this page or not
    BootEnds ends;              ///< of all of them
    /// Share of the period in which the machine was up, from the first boot known at the earliest. Time asleep counts
    /// neither way. Absent when nothing is known of the period.
    std::optional<double> availability;
    bool knowsBefore = true;      ///< false: there is no boot of the key in `before`
    std::vector<SleepRow> sleeps; ///< oldest first, the newest 100; where they were asked for
};

/// Reads one page. Absent when the file cannot be read. On the file's queue.
std::optional<UptimeAnswer> readUptimeHistory(
    SQLiteConnection& connection, const UptimeQuestion& question, const UptimeNow& now);

} // namespace meridal
