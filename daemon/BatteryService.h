// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/battery/BatteryLevel.h"
#include "collectors/battery/BatteryRecord.h"
#include "collectors/battery/BatterySleeps.h"
#include "daemon/ZAVPowerManagerDelegate.h"
#include "platform/host/PowerSources.h"

#include <functional>
#include <memory>
#include <optional>

namespace meridal {

struct Context;
class BatteryStatCollectorMac;
class HistoryCatalogue;
class MeridalHistory;
class ZAVPowerManager;

/// Batteries: the collector's steps at the start, at each change of the power source and around a sleep, the record of charge
/// and power, and the clients' questions. They are read when something changes or a client asks, and for the record every
/// minute while a battery is drained or charged, every five minutes else. Main queue only.
class BatteryService final : public ZAVPowerManagerDelegate {
public:
    BatteryService(Context& context, BatteryStatCollectorMac& collector, ZAVPowerManager& power);
    ~BatteryService() override;
    BatteryService(const BatteryService&) = delete;
    BatteryService& operator=(const BatteryService&) = delete;

    /// Takes the record up, reads what there is, and from then on at every change.
    void prepare();
    /// Whether changes, charge, power and sleeps are recorded.
    void setRecording(bool recording);
    void update();
    /// Key 128: {"key", "source", "time", "sleep"}; absent without an internal battery.
    std::optional<Dictionary> internalBattery() const;
    /// Adds the methods below, and the series "battery/charge" and "battery/power". It must outlive them.
    void addTo(MeridalHistory& methods, HistoryCatalogue& catalogue);

    /// "battery.state": all batteries, those of peripherals included, read anew; with "passive" as they were read last, by
    /// the record's rhythm. Replies once, later.
    void state(const Value& parameters, std::function<void(Result<Value>)> reply);
    /// "battery.history": an object with "figure", "key", "from", "until" (s since 1970), "before" and "limit", each of
    /// them optional; also as the only element of an array. Replies once, later.
    void history(const Value& parameters, std::function<void(Result<Value>)> reply);
    /// "battery.sleeps": what each sleep has cost; an object with "worst", "from", "after" and "limit", likewise.
    void sleeps(const Value& parameters, std::function<void(Result<Value>)> reply);

    void powerManagerWillSleep() override;
    void powerManagerDidWake() override;

    static constexpr std::size_t longestPage = 500;
    static constexpr double recordInterval = 6;  ///< s, between two samples; each is what was read last
    static constexpr double movingInterval = 60; ///< s, between two readings for them
    static constexpr double restInterval = 300;
    static constexpr double settleTime = 5; ///< s after a wake until every battery knows what it has lost
    /// A client that asks more often than this (s) gets what the last one got.
    static constexpr double shortestInterval = 1;

private:
    void updateForClient();
    void updateIfOld();
    void noteLevels();
    void record();
    void finishSleep();
    std::optional<BatteryLevel> ownLevel() const;
    Value describeAll() const;

    Context& context_;
    BatteryStatCollectorMac& collector_;
    ZAVPowerManager& power_;
    BatteryRecord record_;
    bool records_ = true;
    std::unique_ptr<Timer> recording_;        ///< from the first battery on
    double readAt_ = 0;                       ///< s of the clock that cannot step
    bool moves_ = false;                      ///< a battery is drained or charged
    std::optional<BatteryLevel> beforeSleep_; ///< of the machine's own batteries
    double fellAsleep_ = 0;                   ///< s since 1970
    std::optional<BatterySleep> sleep_;       ///< that has just ended
    std::unique_ptr<Timer> settling_;         ///< until it is kept
    std::optional<double> lastAsked_;         ///< s of the clock that cannot step
    std::unique_ptr<PowerSources::Observation> sourcesObservation_;
    Lifetime lifetime_;
};

} // namespace meridal
