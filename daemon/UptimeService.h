// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/uptime/UptimeDatabase.h"

#include <functional>
#include <memory>
#include <optional>

namespace meridal {

class MeridalHistory;
struct Context;
class HistoryDatabaseController;
class UptimeStatCollectorMac;

/// Boots and sleeps: the steps of uptime.db at start, sleep and end, a note every ten minutes
/// that the machine still runs, and the clients' question about boots. Main queue only.
class UptimeService {
public:
    UptimeService(Context& context, UptimeStatCollectorMac& collector, HistoryDatabaseController& databases);

    void prepare();
    /// From here on the record also notes that the machine runs.
    void saveBootTime();
    /// With `written`, returns at once and runs that on the main queue when it is in the file; without, waits for that.
    void saveShutdownTime(Farewell why, double time, Task written);
    void saveSleep(double from, double until); ///< s since 1970
    /// Adds the method below. It must outlive it.
    void addTo(MeridalHistory& methods);
    UptimeDatabase& database() { return database_; }

    /// "uptime.boots": an object with "from", "until", "before" (s since 1970) and "limit", each of them optional; also
    /// as the only element of an array. Replies once, later. With "passive" the file may have been read an hour ago.
    void boots(const Value& parameters, std::function<void(Result<Value>)> reply);

    static constexpr double noteInterval = 600; ///< s
    static constexpr double keptFor = 3600;     ///< s for which a passive question is answered without the file
    static constexpr std::size_t longestPage = 500;

private:
    struct KeptAnswer {
        UptimeQuestion question;
        UptimeAnswer answer;
        double readAt = 0; ///< monotonic s
    };
    std::optional<UptimeAnswer> kept(const UptimeQuestion& question) const;

    Context& context_;
    UptimeStatCollectorMac& collector_;
    UptimeDatabase database_;
    std::unique_ptr<Timer> notes_;
    std::optional<KeptAnswer> kept_; ///< to a passive question, as long as nothing but time has passed
};

} // namespace meridal
