// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/uptime/UptimeStatCollector.h"
#include "database/HistoryDatabaseItem.h"

#include <functional>
#include <optional>
#include <string>

namespace meridal {

class HistoryDatabaseController;

/// The uptime collector of both hosts: asks MachineInfo for the boot time and records it in its history files, in a
/// table `boottimes`; which boot a time stands for is in `boottime_ids` beside it, so that a boot whose time was moved by
/// a correction of the clock is known again.
class UptimeStatCollectorMac final : public UptimeStatCollector {
public:
    UptimeStatCollectorMac(Context& context, HistoryDatabaseController& databases);

    /// The process-wide instance, on Context::shared(). Made anew after cleanupShared().
    static UptimeStatCollectorMac& sharedUptimeCollector();
    static void cleanupShared();

    /// Whole seconds of the kernel's boot time, 0 when it cannot be had; and the time since then, which stays true
    /// when the clock is set, as the kernel moves its boot time along.
    void loadUptime();

    /// Declares the tables, which are made in both files where they are missing. None of these waits for a file.
    void prepareDatabase();
    /// Records the boot in both files, once. To be called when the boot time is certain to be the boot's key.
    void addToDatabase();
    /// Asks for the boot time that this boot was recorded with in either file; the reply comes on the main queue.
    void askForRecordedBoottime(std::function<void(std::optional<double>)> reply);

private:
    HistoryDatabaseItem::QueryBlock recording() const;

    HistoryDatabaseController& databases_;
    const std::string dbpath_;
    const std::string dbpathLong_;
};

} // namespace meridal
