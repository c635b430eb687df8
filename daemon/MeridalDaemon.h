// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/NotificationCenter.h"
#include "collectors/process/ProcessStatCollector.h"
#include "daemon/FrameRate.h"
#include "daemon/MRDXPCServer.h"
#include "daemon/NetworkActions.h"
#include "daemon/ProcessViews.h"
#include "daemon/Services.h"
#include "daemon/UsageWindow.h"
#include "daemon/ZAVDispatchTimer.h"
#include "daemon/ZAVPowerManager.h"
#include "platform/Context.h"
#include "platform/host/DistributedNotifications.h"
#include "wire/Envelope.h"
#include "wire/RequestKey.h"

#include <array>
#include <cstdint>
#include <memory>

namespace meridal {

/// How the process passes went; for `status`.
struct PassStatistics {
    std::uint64_t count = 0;
    double lastSeconds = 0; ///< from the first kernel read to the last envelope handed to the transport
    std::uint64_t processes = 0;
};

/// The daemon itself: brings the collectors up, runs their schedules and hands their results to the clients that asked.
/// Main queue only.
class MeridalDaemon final : public ZAVPowerManagerDelegate {
public:
    /// Runs the start-up sequence.
    MeridalDaemon(Context& context, ProcessStatCollector& processes, ZAVPowerManager& power, Services services);
    ~MeridalDaemon() override;

    /// The process-wide instance: the one that main made last and that still lives.
    static MeridalDaemon& sharedDaemon();

    Context& context() { return context_; }
    MRDXPCServer& server() { return server_; }
    ProcessStatCollector& processes() { return processes_; }
    ZAVPowerManager& power() { return power_; }
    const Services& services() { return services_; }
    ProcessViews& views() { return views_; } ///< who may see what
    NetworkActions& networkActions() { return networkActions_; }
    FrameRate& frameRate() { return frameRate_; }
    const PassStatistics& passStatistics() const { return passes_; }
    UsageWindow& usage() { return usage_; }

    /// Writes what must survive the end of the program.
    void finalize();

    // Schedules
    /// A pass for clients, and now and then one for the record of applications. Where nothing is recorded always one, for
    /// the first client's first figures.
    void update();
    /// Before the first lists of a request: a pass, if what they show was not read of late because nobody wanted it. Bounded
    /// by that, however often clients ask. Answers whether there was one.
    bool readFiguresOf(std::int64_t key);
    /// After a new request: a pass at once, unless there has just been one, another 0.6 s later, then, 1 to 3 s after that, every 2.0 s.
    void restartProcessTimer(bool atOnce = true);
    void updateProcesses();
    void updateNetwork();
    /// Loads the disks and starts their schedule, once.
    void initializeSmart();
    /// The same, and runs the task when the disks whose turn it is have answered, or after a while without them.
    void askDisks(Task answered);
    void updateSMART();
    /// Whether a client holds a key of disks.
    bool wantsSMART() const;
    /// For one more client. Answers whether there was a pass, which ended the interval before the first client's.
    bool startMonitoringNetworkActivity();
    void stopMonitoringNetworkActivity();

    // Envelopes
    /// The current list of the process collector, built once a pass for everybody who wants it so and may see the same.
    EnvelopePtr processList(RequestKey list, bool grouped, const Peer& peer);
    ProcessViews::Viewer viewerOf(const Peer& peer) { return views_.viewerOf(peer); }
    /// Valid until the next pass.
    ProcessView viewOf(const ProcessViews::Viewer& viewer, bool grouped) { return views_.viewOf(viewer, grouped); }
    /// {"name", "pid"} of those among these processes that this client may see.
    Value infoForPids(const Value& pids, const Peer& peer);
    EnvelopePtr smartSensors();
    EnvelopePtr smartStatus();
    EnvelopePtr internalBatterySourceInfo();

    // Power and sleep
    void powerSourceChanged();
    void powerManagerWillSleep() override;
    void powerManagerDidWake() override;
    void prepareUptime();
    void saveBootTime();
    void saveShutdownTime();

    // Fans: this daemon controls none; the entry points are there for the clients that call them
    void resetFans() { }
    void setFanSet(const Value&) { }
    void setT2FanConfig(const Value&) { }
    void setT2FanSet(const Value&) { }
    void stopT2Fans() { }
    void startT2Fans() { }
    void finalizeT2Fans() { }
    void setT2SafetyTemperature(double degrees);
    double T2CurrentSafetyTemperature() const { return t2SafetyTemperature_; }
    double T2LastSafetyTemperatureTime() const { return t2SafetyTemperatureTime_; }

    // Of the interface, and called by nothing here
    bool smartNeedsUpdate() const { return smartNeedsUpdate_; }

private:
    void start();
    void startProcessTimer();
    void prepareCollectors();
    void sendSmartResults();
    void sendProcessLists();
    void sendNetworkList();
    std::string buildProcessList(RequestKey list, const ProcessView& view);

    Context& context_;
    ProcessStatCollector& processes_;
    ZAVPowerManager& power_;
    const Services services_;
    MRDXPCServer server_;
    NetworkActions networkActions_;
    ZAVDispatchTimer processTimer_;
    ZAVDispatchTimer networkTimer_;
    ZAVDispatchTimer smartTimer_;
    std::unique_ptr<DistributedNotifications::Observation> resetFansObservation_;
    std::unique_ptr<NotificationCenter::Observation> sourceObservation_;

    ProcessViews views_;
    FrameRate frameRate_{context_};
    PassStatistics passes_;
    UsageWindow usage_;
    int passesAtOnce_ = 0; ///< by restarts since the timer last fired by itself
    double passedAt_ = 0;  ///< monotonic s of the latest pass
    bool initializedSMART_ = false;
    bool smartNeedsUpdate_ = false;
    double sleepTime_ = 0; ///< s since 1970; 0 while awake
    double t2SafetyTemperature_ = 0;
    double t2SafetyTemperatureTime_ = 0; ///< s since 1970
    Lifetime lifetime_;                  ///< last, so that nothing posted outlives the rest
};

} // namespace meridal
