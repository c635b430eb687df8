#pragma once

#include "base/Lifetime.h"
#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/machine/BlockDeviceStatCollector.h"
#include "collectors/machine/MemoryStatCollector.h"
#include "collectors/machine/PressureStatCollector.h"
#include "collectors/machine/ProcessorStatCollector.h"

#include <array>
#include <memory>
#include <optional>

namespace meridal {

class HistoryCatalogue;
class MeridalHistory;
struct Context;

/// The machine's own figures: read and recorded every 6 s, one reading for each row of the finest table, and every second
/// while somebody asks and for a minute after; not at all while neither is the case. Main queue only.
class MachineService {
public:
    explicit MachineService(Context& context);

    /// Reads for the first time, and from then on.
    void start();
    /// Whether the figures are recorded. Without a record they are read for who asks only, and for a minute after.
    void setRecording(bool recording);
    /// Adds the method below, and the history of the figures. It must outlive both.
    void addTo(MeridalHistory& methods, HistoryCatalogue& catalogue);

    /// "machine.state": all figures of the latest reading, which is a second old at most. No parameters.
    Result<Value> state(const Value& parameters);

    static constexpr double recordInterval = 6; ///< s
    static constexpr double askedInterval = 1;
    static constexpr double askedFor = 60;

private:
    bool isAsked() const;
    void read();
    void schedule();
    void listFileSystems();

    Context& context_;
    ProcessorStatCollector processors_;
    MemoryStatCollector memory_;
    PressureStatCollector pressure_;
    BlockDeviceStatCollector blockDevices_;
    const std::array<MachineStatCollector*, 4> collectors_ = {&processors_, &memory_, &pressure_, &blockDevices_};
    Value fileSystems_ = Value::array();
    std::unique_ptr<Timer> timer_;
    double interval_ = 0; ///< of the timer, s
    bool isStarted_ = false;
    bool isRecording_ = true;
    // Monotonic s
    std::optional<double> lastRead_;
    std::optional<double> lastAsked_;
    std::optional<double> lastListed_; ///< of the file systems, which only a question has listed
    Lifetime lifetime_;
};

} // namespace meridal
