#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"

#include <functional>

namespace meridal {

class HistoryCatalogue;
class MeridalHistory;
struct CollectorPorts;
struct Context;
struct Peer;

/// Brings the sensors collector into the daemon: the clients' four requests about sensors, their question "sensors.list",
/// and its history. The collector is made at the start: the record needs nobody who asks. Main queue only.
class SensorsKeeper {
public:
    using MakeCollector = std::function<SensorsStatCollectorMac&()>;

    /// The catalogue, and the collector once it is made, must outlive the keeper's use.
    SensorsKeeper(Context& context, HistoryCatalogue& catalogue, MakeCollector make);

    /// Fills the daemon's ports for sensors. It must outlive the daemon.
    void plugInto(CollectorPorts& ports);
    void addTo(MeridalHistory& history);

    /// "sensors.list": a page of all sensors, by chip; named parameters "after" (a key) and "limit".
    Result<Value> list(const Value& parameters, PowerDetail detail);

    static constexpr std::size_t usualPage = 200;
    static constexpr std::size_t longestPage = 500;

private:
    static constexpr int mostWaits = 10; ///< halves of a second that an answer waits for a first average of power

    SensorsStatCollectorMac& collector();
    void resume();
    void answer(
        const Value& parameters, PowerDetail detail, const std::function<void(Result<Value>)>& reply, int waits);

    Context& context_;
    HistoryCatalogue& catalogue_;
    MakeCollector make_;
    SensorsStatCollectorMac* collector_ = nullptr; ///< null until the daemon serves
    Lifetime lifetime_;
};

} // namespace meridal
