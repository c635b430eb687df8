// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "daemon/AdministratorCheck.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace meridal {

class HistoryCatalogue;
class MeridalHistory;
struct Context;
struct Peer;

/// Who asks about sensors; absent where the system does not tell.
using SensorClient = std::optional<ClientSensors::Owner>;

/// Sensors and fans: the clients' four requests about them, their question "sensors.list", and the history. The collector is
/// made right after the start: the record needs nobody who asks; without one it is made when somebody does. What root and
/// administrators name is there for all and is kept; what others name is theirs, until the client has gone. Main queue only.
class SensorService {
public:
    using MakeCollector = std::function<SensorsStatCollectorMac&()>;

    /// The catalogue, and the collector once it is made, must outlive the service's use.
    SensorService(Context& context, HistoryCatalogue& catalogue, MakeCollector make);

    /// Takes the record up once clients are served.
    void open();
    /// Whether sensors are recorded. Without a record they are read for who asks only, and for a minute after.
    void setRecording(bool recording);
    // What clients ask. Selections and configurations are their own words and may be nonsense.
    /// A value for each configuration of the list, -1 where there is no such sensor.
    std::vector<double> sensorValues(const Value& configurations, PowerDetail detail);
    /// Arrays of what the selection names and this machine has.
    Value supportedElectricSensors(const Value& selection, const SensorClient& client, PowerDetail detail);
    Value supportedArmSensors(const Value& selection, const SensorClient& client);
    Value supportedFans(const Value& selection, const SensorClient& client);
    /// A client has gone, and what it named for itself goes with it.
    void forget(const SensorClient& client);
    void addTo(MeridalHistory& history);

    /// "sensors.list": a page of all sensors that there are for a user, by chip; named parameters "after" (a key), "limit"
    /// and "passive": the question makes nothing be read sooner or more often.
    Result<Value> list(const Value& parameters, std::optional<std::uint32_t> uid, PowerDetail detail);

    static constexpr std::size_t usualPage = 200;
    static constexpr std::size_t longestPage = 500;

private:
    static constexpr int mostWaits = 10; ///< halves of a second that an answer waits for a first average of power

    SensorsStatCollectorMac& collector();
    /// The same, for a client.
    SensorsStatCollectorMac& asked();
    void resume();
    void name(const SensorClient& client, const Value& entries, SensorRequest request);
    void decided(std::uint32_t uid, bool administers);
    void answer(const Value& parameters, std::optional<std::uint32_t> uid, PowerDetail detail,
        const std::function<void(Result<Value>)>& reply, int waits);

    Context& context_;
    HistoryCatalogue& catalogue_;
    MakeCollector make_;
    AdministratorCheck administrators_;
    SensorsStatCollectorMac* collector_ = nullptr; ///< null until the daemon serves
    bool isRecording_ = true;
    bool isOpen_ = false;
    Lifetime lifetime_;
};

} // namespace meridal
