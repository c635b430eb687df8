#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Value.h"
#include "platform/host/PowerSources.h"

#include <functional>
#include <memory>
#include <optional>

namespace meridal {

struct Context;
class BatteryStatCollectorMac;
class MeridalHistory;
class ZAVPowerManager;

/// Batteries: the collector's steps at the start and at each change of the power source, and the clients' questions. Nothing is read
/// on a schedule: between two changes only a client that asks causes a reading. Main queue only.
class BatteryService {
public:
    BatteryService(Context& context, BatteryStatCollectorMac& collector, ZAVPowerManager& power);

    /// Takes the record up, reads what there is, and from then on at every change.
    void prepare();
    /// Whether changes are recorded.
    void setRecording(bool recording);
    void update();
    /// Key 128: {"key", "source", "time", "sleep"}; absent without an internal battery.
    std::optional<Dictionary> internalBattery() const;
    /// Adds the two methods below. It must outlive them.
    void addTo(MeridalHistory& methods);

    /// "battery.state": all batteries, those of peripherals included, read anew. No parameters. Replies once, later.
    void state(const Value& parameters, std::function<void(Result<Value>)> reply);
    /// "battery.history": an object with "figure", "key", "from", "until" (s since 1970), "before" and "limit", each of
    /// them optional; also as the only element of an array. Replies once, later.
    void history(const Value& parameters, std::function<void(Result<Value>)> reply);

    static constexpr std::size_t longestPage = 500;
    /// A client that asks more often than this (s) gets what the last one got.
    static constexpr double shortestInterval = 1;

private:
    void updateForClient();
    Value describeAll() const;

    Context& context_;
    BatteryStatCollectorMac& collector_;
    ZAVPowerManager& power_;
    std::optional<double> lastAsked_; ///< s of the clock that cannot step
    std::unique_ptr<PowerSources::Observation> sourcesObservation_;
    Lifetime lifetime_;
};

} // namespace meridal
