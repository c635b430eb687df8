// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/NotificationCenter.h"
#include "base/Result.h"
#include "collectors/process/PacketStatCollectorItem.h"
#include "collectors/process/TrafficBatch.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

class ProcessStatCollector;
struct Context;

/// Per-process network traffic by packet capture: counts the frames of all interfaces by process between two folds, and
/// folds them into the process items. Main queue only.
class PacketStatCollector {
public:
    PacketStatCollector(Context& context, ProcessStatCollector& processes);
    ~PacketStatCollector();
    PacketStatCollector(const PacketStatCollector&) = delete;
    PacketStatCollector& operator=(const PacketStatCollector&) = delete;

    /// The process-wide instance, on Context::shared() and the shared process collector.
    static PacketStatCollector& sharedPacketCollector();

    void startCaputure();
    void stopCapture();
    /// Replaces the capture of all interfaces by a new one.
    void updateCollectors();
    /// Captures one interface as well, by ports; replaces an earlier capture of it. Negative when that failed.
    int captureInterface(const CaptureInterface& interface);
    void networkSetupChanged();

    /// The fold: every process's traffic becomes what was counted for it since the last one.
    void process();
    /// Forgets what was counted and not folded.
    void clear();

    bool enabled() const { return enabled_; }
    /// Whether frames of all interfaces arrive. False also when the capture could not be started or has ended by itself.
    bool isCapturing() const;
    /// Why it does not; empty when it does or was never asked to.
    const std::string& failure() const { return failure_; }

    const TrafficAccount& latest() const { return latest_; } ///< of the latest fold
    const TrafficAccount& total() const { return total_; }   ///< of all folds
    /// Over all captures so far.
    CaptureStatistics statistics() const;

    // Of the interface, and called by nothing here
    /// Captures of single interfaces, by name.
    const std::map<std::string, std::unique_ptr<PacketStatCollectorItem>>& collectors() const { return collectors_; }
    const PacketStatCollectorItem* packetItem() const { return packetItem_.get(); }
    const PacketBuffer& pstorage() const { return pstorage_.packets; } ///< for the next fold, by process
    const PacketBuffer& pidcache() const { return pidcache_.packets; } ///< for the next fold, by ports

private:
    void foldProcesses();
    void foldPorts();
    void readConnections();
    using Items = std::vector<std::unique_ptr<PacketStatCollectorItem>>;
    void retire(std::unique_ptr<PacketStatCollectorItem> item, Items& ending);

    Context& context_;
    ProcessStatCollector& processes_;
    TrafficBatch pstorage_;
    TrafficBatch pidcache_;
    std::map<std::string, std::unique_ptr<PacketStatCollectorItem>> collectors_;
    std::unique_ptr<PacketStatCollectorItem> packetItem_;
    Items ending_;      ///< stopped captures of all interfaces, until the next fold
    Items endingPorts_; ///< likewise, of single ones
    TrafficAccount latest_;
    TrafficAccount total_;
    CaptureStatistics retired_; ///< of captures that were stopped
    std::string failure_;
    std::vector<std::int32_t> pids_; ///< kept for its memory
    bool enabled_ = false;
    bool refused_ = false; ///< the latest capture could not begin
    std::unique_ptr<NotificationCenter::Observation> setupObservation_;
};

} // namespace meridal
