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
/// and its history. The collector is made when somebody first asks for sensors; where somebody did in an earlier run,
/// it is made at start, so that the record goes on. Main queue only.
class SensorsKeeper {
public:
    using MakeCollector = std::function<SensorsStatCollectorMac&()>;

    /// The catalogue, and the collector once it is made, must outlive the keeper's use.
    SensorsKeeper(Context& context, HistoryCatalogue& catalogue, std::function<void()> openSMC, MakeCollector make);

    /// Fills the daemon's ports for sensors. It must outlive the daemon.
    void plugInto(CollectorPorts& ports);
    void addTo(MeridalHistory& history);

    /// "sensors.list": a page of all sensors, by chip; named parameters "after" (a key) and "limit".
    Result<Value> list(const Value& parameters, PowerDetail detail);

    static constexpr std::size_t usualPage = 200;
    static constexpr std::size_t longestPage = 500;

private:
    SensorsStatCollectorMac& collector();
    void resume();

    Context& context_;
    HistoryCatalogue& catalogue_;
    std::function<void()> openSMC_;
    MakeCollector make_;
    SensorsStatCollectorMac* collector_ = nullptr; ///< null until somebody asked
    Lifetime lifetime_;
};

} // namespace meridal
