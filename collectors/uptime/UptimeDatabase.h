// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "collectors/uptime/UptimeHistory.h"
#include "collectors/uptime/UptimeJournal.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace meridal {

struct Context;
class HistoryDatabaseController;
class HistoryDatabaseItem;
class UptimeStatCollector;

/// Why the daemon writes its last word: before what it may not come back from.
enum class Farewell { Sleep, Shutdown };

/// The record of boots, shutdowns and sleeps in uptime.db. One boot is one row of `uptime`, whatever the clock does: the
/// first boot time that the kernel told for a boot identifier stays the row's key. `uptime` and `sleep` hold times and
/// nothing else; a third table, `boot_records`, holds what times alone do not tell: which boot a key stands for, how
/// long it lasted by a clock that nobody sets, and how it ended. What cannot be written is tried again later.
/// Main queue only.
class UptimeDatabase {
public:
    UptimeDatabase(Context& context, HistoryDatabaseController& databases, UptimeStatCollector& collector);

    /// Declares the tables, which are made where they are missing before anything else is done with the file. Does not
    /// wait.
    void prepareUptime();
    /// Asks for the key that this boot was given elsewhere, for a fresh file that knows of none.
    using AskForKey = std::function<void(std::function<void(std::optional<double>)> reply)>;
    /// Makes sure of this boot's row, and gives the collector the boot time that is its key. Does not wait: until the row
    /// is there, the collector's boot time is only what the kernel tells, and what happens is kept in order. No row is
    /// made while the kernel's boot time is unknown.
    void saveBootTime(const AskForKey& askForKey);
    /// Runs whenever something has been written and the collector's boot time is the key.
    void whenConfirmed(Task confirmed) { confirmed_ = std::move(confirmed); }
    /// Writes when this boot ended or fell asleep. With `written`, returns at once and runs that on the main queue
    /// afterwards; without, returns when it is written, or after 2 s when another program keeps the file locked.
    void saveShutdownTime(Farewell why, double time, Task written = {});
    /// Records a sleep that has ended; one of no length, which was called off, leaves no row.
    void saveSleep(double start, double end);
    /// Notes how long this boot has lasted: all that will be known of it should it end without a farewell. Not between
    /// a farewell before sleep and the wake.
    void noteRunning();

    /// Reads the history; the answer comes on the main queue, null when the file cannot be read.
    void readHistory(const UptimeQuestion& question, std::function<void(std::optional<UptimeAnswer>)> reply);

private:
    std::optional<BootReading> read() const;
    void write(std::optional<BootEvent> event, int attempts, Task written = {});
    void writeSync(const BootEvent& event, int attempts);
    void conclude(bool done, std::optional<double> key);
    void keepVigil();

    Context& context_;
    UptimeStatCollector& collector_;
    std::shared_ptr<HistoryDatabaseItem> database_;
    /// Used on the file's queue only, whose tasks keep it alive.
    std::shared_ptr<UptimeJournal> journal_ = std::make_shared<UptimeJournal>();
    Task confirmed_;
    std::vector<Task> farewells_;  ///< to be run when what was told before them is in the file, or cannot be
    bool known_ = false;           ///< the kernel has told a boot time that was to be recorded
    bool failing_ = false;         ///< something waits that could not be written
    std::unique_ptr<Timer> retry_; ///< of what could not be written
    std::unique_ptr<Timer> vigil_; ///< runs between a farewell before sleep and the wake
    Lifetime lifetime_;
};

} // namespace meridal
