// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/uptime/UptimeHistory.h"

#include <deque>
#include <optional>
#include <string>

namespace meridal {

class SQLiteConnection;

/// The kernel's view of a boot at one moment.
struct BootReading {
    double boot = 0;        ///< s since 1970, whole; moves with the clock
    double elapsed = 0;     ///< s since the boot, whatever the clock was set to
    std::string identifier; ///< of the boot
};

/// Something that happened to the boot that runs.
struct BootEvent {
    BootState state = BootState::Running;    ///< of the boot from here on
    std::optional<BootReading> reading = {}; ///< absent while the kernel's boot time is nonsense
    std::optional<double> shutdown = {};     ///< s since 1970: the boot ended or fell asleep
    struct Sleep {
        double start = 0; ///< s since 1970
        double length = 0;
    };
    std::optional<Sleep> sleep = {}; ///< one that is over

    /// Says only that the machine runs: a later one makes it needless.
    bool isNote() const { return state == BootState::Running && !shutdown && !sleep; }
};

/// Writes a boot's events into uptime.db, in their order, each at least kept until it is written: a sleep is told once,
/// and another program's lock or a full disk at that moment must not lose it. On the file's queue.
class UptimeJournal {
public:
    /// The key that this boot was once given elsewhere, if any; used unless the file knows the boot. Nothing is written
    /// before it has been told.
    void suggestKey(std::optional<double> key);
    void giveUpSuggestion() { awaitsSuggestion_ = false; }
    void add(BootEvent event);
    /// Writes what waits, all or nothing; false when something still waits that could not be written. Another program's
    /// lock is waited for as often as told, each time as long as the connection does by itself.
    bool write(SQLiteConnection& connection, int attempts = 1);
    /// What names this boot in the file. Absent until that is in the file.
    std::optional<double> key() const { return key_; }

    /// The key of a boot that the file knows.
    static std::optional<double> keyOf(SQLiteConnection& connection, const std::string& identifier);
    static constexpr std::size_t mostWaiting = 1000; ///< beyond that the oldest go

private:
    bool writeAll(SQLiteConnection& connection, std::optional<double>& key) const;
    std::optional<double> ensureRows(
        SQLiteConnection& connection, const BootReading& reading, std::optional<double> key) const;

    std::deque<BootEvent> waiting_;
    std::optional<double> key_;
    std::optional<double> suggested_;
    bool awaitsSuggestion_ = true;
};

} // namespace meridal
