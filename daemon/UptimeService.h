#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/uptime/UptimeDatabase.h"

#include <functional>
#include <memory>

namespace meridal {

struct CollectorPorts;
struct Context;
class HistoryDatabaseController;
class UptimeStatCollectorMac;

/// Brings the uptime collector and uptime.db into the daemon: its steps at start, sleep and end, a note every ten minutes
/// that the machine still runs, and the clients' question about boots. Main queue only.
class UptimeService {
public:
    UptimeService(Context& context, UptimeStatCollectorMac& collector, HistoryDatabaseController& databases);

    /// Fills the daemon's ports for uptime. It must outlive the daemon.
    void plugInto(CollectorPorts& ports);
    UptimeDatabase& database() { return database_; }

    /// "uptime.boots": an object with "from", "until", "before" (s since 1970) and "limit", each of them optional; also
    /// as the only element of an array. Replies once, later.
    void boots(const Value& parameters, std::function<void(Result<Value>)> reply);

    static constexpr double noteInterval = 600; ///< s
    static constexpr std::size_t longestPage = 500;

private:
    void start();

    Context& context_;
    UptimeStatCollectorMac& collector_;
    UptimeDatabase database_;
    std::unique_ptr<Timer> notes_;
};

} // namespace meridal
