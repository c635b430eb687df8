#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/machine/MachineStatCollectors.h"

#include <memory>
#include <optional>

namespace meridal {

class HistoryCatalogue;
class MeridalHistory;
struct Context;

/// The machine's own figures: read and recorded every 6 s, one reading for each row of the finest table, and every second
/// while somebody asks and for a minute after. Main queue only.
class MachineService {
public:
    explicit MachineService(Context& context);
    ~MachineService();

    /// Reads for the first time, and from then on.
    void start();
    /// Adds the method below, and the history of the figures. It must outlive both.
    void addTo(MeridalHistory& methods, HistoryCatalogue& catalogue);

    /// "machine.state": all figures of the latest reading, which is a second old at most. No parameters.
    Result<Value> state(const Value& parameters);

    static constexpr double recordInterval = 6; ///< s
    static constexpr double askedInterval = 1;
    static constexpr double askedFor = 60;

private:
    void read();
    void schedule();
    Value fileSystems() const;

    Context& context_;
    ProcessorStatCollector processors_;
    MemoryStatCollector memory_;
    PressureStatCollector pressure_;
    BlockDeviceStatCollector blockDevices_;
    std::unique_ptr<Timer> timer_;
    double interval_ = 0;             ///< of the timer, s
    std::optional<double> lastRead_;  ///< monotonic s
    std::optional<double> lastAsked_; ///< monotonic s
};

} // namespace meridal
