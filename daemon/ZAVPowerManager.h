// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "daemon/ZAVPowerManagerDelegate.h"
#include "platform/host/PowerMessages.h"
#include "platform/host/PowerSources.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace meridal {

struct Context;

/// Turns the system's power messages and changes of the power source into delegate calls and notifications, each posted
/// with the manager as its object: "PowerNotifierSourceChanged", "PowerNotifierStateChanged", "PowerNotifierSleep",
/// "PowerNotifierWake". Main queue only.
class ZAVPowerManager {
public:
    /// Registers for the messages and reads the source.
    explicit ZAVPowerManager(Context& context);
    ~ZAVPowerManager();
    ZAVPowerManager(const ZAVPowerManager&) = delete;
    ZAVPowerManager& operator=(const ZAVPowerManager&) = delete;

    /// The process-wide instance, on Context::shared().
    static ZAVPowerManager& sharedPowerManager();

    int source() const { return source_; }            ///< -1 unknown or no internal battery, 0 battery, 1 external
    int state() const { return state_; }              ///< -1 unknown, 0 on battery, 1 charging, 2 not charging
    double sleepTotal() const { return sleepTotal_; } ///< s slept since the source last changed
    double sleptInAll() const { return sleptInAll_; } ///< s slept since the daemon started
    double lastSleep() const
    {
        return lastSleep_;
    } ///< s that the sleep which ended last took; 0 when it was called off

    void addDelegate(ZAVPowerManagerDelegate& delegate);
    void removeDelegate(ZAVPowerManagerDelegate& delegate);

    /// Reads the power sources anew and tells what changed.
    void updateSource();
    void powerMessageReceived(PowerMessage message, PowerMessages::Token argument);

    /// For a delegate that is told of a sleep and has something to write: keeps the allowance back until the task
    /// returned has run, on the main queue, yet no longer than longestDelay.
    [[nodiscard]] Task delayAllowance();
    static constexpr double longestDelay = 3; ///< s; logind waits for 5

    // The bookkeeping of a sleep and a wake, without the delegates; for who learns of them by other ways
    void sleep(const void* sender = nullptr);
    void wake(const void* sender = nullptr);

    // Of the interface, and called by nothing here
    double sleepStart() const { return sleepStart_; } ///< s since 1970, of the last sleep; 0 before the first

private:
    /// A sleep that waits for its allowance.
    struct Pending {
        PowerMessages::Token token = 0;
        std::uint64_t number = 0; ///< which sleep
        int delays = 0;           ///< that have not ended
    };

    void registerNotifications();
    void unregisterNotifications();
    void systemWillSleep(PowerMessages::Token token);
    void systemHasPoweredOn();
    void beginSleep();
    void endSleep();
    void awaitDelays(std::uint64_t number);
    void endDelay(std::uint64_t number);
    void allowPending();
    void tellDelegates(void (ZAVPowerManagerDelegate::*what)());

    Context& context_;
    int source_ = -1;
    int state_ = 0;
    double sleepStart_ = 0;
    double sleepTotal_ = 0;
    double sleptInAll_ = 0;
    double lastSleep_ = 0;
    std::optional<double> sleptBefore_; ///< the kernel's count when the sleep began that no wake has ended
    std::vector<ZAVPowerManagerDelegate*> delegates_;
    std::unique_ptr<PowerMessages::Registration> messages_;
    std::unique_ptr<PowerSources::Observation> sources_;
    std::optional<Pending> pending_;
    std::uint64_t sleeps_ = 0;
    std::unique_ptr<Timer> patience_; ///< until the allowance is given anyway
    Lifetime lifetime_;
};

} // namespace meridal
