// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "collectors/disks/SMARTStatCollector.h"

#include <functional>
#include <utility>

namespace meridal {

class HistoryCatalogue;
class MeridalHistory;

/// Disks: the readings behind keys 32 and 64, the record, and the clients' question. Main queue only.
class DiskService {
public:
    explicit DiskService(SMARTStatCollector& collector);

    void load() { collector_.loadDisks(); }
    /// Reads the disks whose turn it is, and runs `done` on the main queue when they have answered, or after a while without
    /// them.
    void update(Task done) { collector_.updateStats(std::move(done)); }
    /// The same for who asks in between: may find that there is nothing to read.
    void refresh(Task done) { collector_.updateStatsIfDue(std::move(done)); }
    /// Key 32: an array of {"name", "key", "temperature"}.
    Value temperatures() const { return collector_.diskTemperatures(); }
    /// Key 64: an array of {"key", ...}.
    Value status() const { return collector_.diskStatus(); }

    /// Adds the method below, and the history of temperatures ("disks") and wear ("wear"). It must outlive both.
    void addTo(MeridalHistory& methods, HistoryCatalogue& catalogue);
    /// Whether a client holds a key of disks, which has disks read more often than the record does.
    void setWanted(std::function<bool()> wanted) { collector_.setWanted(std::move(wanted)); }
    /// Disks are recorded from now on, whether a client asks or not.
    void keepRecord() { collector_.keepRecord(); }
    /// Or they are not, until this is said again.
    void setRecording(bool recording) { collector_.setRecording(recording); }

    /// "disks.list": an object with "attributes" (all of them, and not just the failing ones), "after" (key of the last
    /// disk of the page before) and "limit"; also as the only element of an array. While a client holds a key of disks,
    /// the first page has those read whose turn it is, every 30 s at most. Replies once, later.
    void list(const Value& parameters, std::function<void(Result<Value>)> reply);

    static constexpr std::size_t longestPage = 64;

private:
    SMARTStatCollector& collector_;
};

} // namespace meridal
