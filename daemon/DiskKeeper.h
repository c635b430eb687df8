#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "collectors/disks/SMARTStatCollector.h"
#include "history/HistoryCatalogue.h"

#include <functional>
#include <vector>

namespace meridal {

struct CollectorPorts;

/// Brings the SMART collector into the daemon: the ports for keys 32 and 64, and the clients' question about disks. Main
/// queue only.
class DiskKeeper {
public:
    explicit DiskKeeper(SMARTStatCollector& collector);

    /// Fills the daemon's ports for disks. It must outlive the daemon.
    void plugInto(CollectorPorts& ports);
    /// Offers the history of temperatures ("disks") and wear ("wear").
    void addTo(HistoryCatalogue& catalogue);
    /// Whether a client holds a key of disks, which has disks read more often than the record does.
    void setWanted(std::function<bool()> wanted);
    /// Disks are recorded from now on, whether a client asks or not.
    void keepRecord() { collector_.keepRecord(); }

    /// "disks.list": an object with "attributes" (all of them, and not just the failing ones), "after" (key of the last
    /// disk of the page before) and "limit"; also as the only element of an array. While a client holds a key of disks,
    /// the first page has those read whose turn it is, every 30 s at most. Replies once, later.
    void list(const Value& parameters, std::function<void(Result<Value>)> reply);

    static constexpr std::size_t longestPage = 64;

private:
    SMARTStatCollector& collector_;
    std::function<bool()> wanted_;
};

} // namespace meridal
