// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/machine/BlockDeviceStatCollector.h"
#include "collectors/machine/GraphicsStatCollector.h"
#include "collectors/machine/InterfaceStatCollector.h"
#include "collectors/machine/MemoryStatCollector.h"
#include "collectors/machine/PressureStatCollector.h"
#include "collectors/machine/ProcessorStatCollector.h"

#include <array>
#include <memory>
#include <optional>

namespace meridal {

class HistoryCatalogue;
class MeridalHistory;
class Watches;
struct Context;

/// The machine's own figures: read and recorded every 6 s, one reading for each row of the finest table, every second
/// while somebody asks and for a minute after, and whenever somebody who watches is to be told; not at all while none of
/// these is the case. Main queue only.
class MachineService {
public:
    explicit MachineService(Context& context);

    /// Reads for the first time, and from then on.
    void start();
    /// Whether the figures are recorded. Without a record they are read for who asks only, and for a minute after.
    void setRecording(bool recording);
    /// Compares the interfaces' counters, which the account of bandwidth has just read, with those of before.
    void networkWasRead() { interfaces_.updateStats(); }
    /// Adds the method below, and the history of the figures. It must outlive both.
    void addTo(MeridalHistory& methods, HistoryCatalogue& catalogue);
    /// Adds "machine.watch", which tells the same as the method below. It must outlive this as well.
    void addTo(Watches& watches);

    /// "machine.state": all figures of the latest reading, which is a second old at most, those of the network two. With
    /// "all" also of block devices that are no whole disks. With "passive" the question makes no reading due, now or later:
    /// what the record reads is told, and where there is none, one reading of this question's own.
    Result<Value> state(const Value& parameters);

    static constexpr double recordInterval = 6; ///< s
    static constexpr double askedInterval = 1;
    static constexpr double askedFor = 60;

private:
    bool isAsked() const;
    void read();
    void record();
    void noteQuestion();
    void readUnlessNewerThan(double seconds);
    void schedule();
    void listFileSystems();
    const std::shared_ptr<const Value>& latestState(double listAge);

    Context& context_;
    ProcessorStatCollector processors_;
    MemoryStatCollector memory_;
    PressureStatCollector pressure_;
    BlockDeviceStatCollector blockDevices_;
    GraphicsStatCollector graphics_;
    InterfaceStatCollector interfaces_; ///< read apart
    const std::array<MachineStatCollector*, 6> collectors_ = {
        &interfaces_, &processors_, &memory_, &pressure_, &blockDevices_, &graphics_};
    Value fileSystems_ = Value::array();
    std::shared_ptr<const Value> state_; ///< of the latest reading; null until somebody wants it
    std::unique_ptr<Timer> timer_;
    double interval_ = 0; ///< of the timer, s
    bool isStarted_ = false;
    bool isRecording_ = true;
    // Monotonic s
    std::optional<double> lastRead_;
    std::optional<double> lastAsked_;
    std::optional<double> lastCommit_;
    std::optional<double> lastListed_; ///< of the file systems, which only who asks or watches has listed
    Lifetime lifetime_;
};

} // namespace meridal
