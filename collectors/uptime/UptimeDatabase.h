#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "collectors/uptime/UptimeHistory.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

struct Context;
class HistoryDatabaseController;
class HistoryDatabaseItem;
class SQLiteConnection;
class UptimeStatCollector;

/// Why the daemon writes its last word: before what it may not come back from.
enum class Farewell { Sleep, Shutdown };

/// The record of boots, shutdowns and sleeps in uptime.db. One boot is one row of `uptime`, whatever the clock does: the
/// first boot time that the kernel told for a boot identifier stays the row's key. `uptime` and `sleep` hold times and
/// nothing else; a third table, `boot_records`, holds what times alone do not tell: which boot a key stands for, how
/// long it lasted by a clock that nobody sets, and how it ended. Main queue only.
class UptimeDatabase {
public:
    UptimeDatabase(Context& context, HistoryDatabaseController& databases, UptimeStatCollector& collector);

    /// Makes the tables that are missing. Waits.
    void prepareUptime();
    /// Makes sure of this boot's row, and gives the collector the boot time that is its key. Waits. Does nothing while
    /// the boot time is unknown.
    void saveBootTime();
    /// Writes when this boot ended or fell asleep. With `written`, returns at once and runs that on the main queue
    /// afterwards; without, returns when it is written.
    void saveShutdownTime(Farewell why, double time, Task written = {});
    /// Records a sleep that has ended. A clock that was set back makes it one of no length.
    void saveSleep(double start, double end);
    /// Notes how long this boot has lasted: all that will be known of it should it end without a farewell. Also makes up
    /// for a boot row that could not be written until now.
    void noteRunning();

    /// Reads the history; the answer comes on the main queue, null when the file cannot be read.
    void readHistory(const UptimeQuestion& question, std::function<void(std::optional<UptimeAnswer>)> reply);

private:
    /// The kernel's view of this boot, now.
    struct Reading {
        double boot = 0;        ///< s since 1970, whole; moves with the clock
        double elapsed = 0;     ///< s since the boot, whatever the clock was set to
        std::string identifier; ///< of the boot
    };
    std::optional<Reading> read() const;
    static std::optional<double> recordBoot(SQLiteConnection& connection, const Reading& reading);

    Context& context_;
    UptimeStatCollector& collector_;
    std::shared_ptr<HistoryDatabaseItem> database_;
    Lifetime lifetime_;
};

} // namespace meridal
