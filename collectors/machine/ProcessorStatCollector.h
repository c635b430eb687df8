// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/machine/MachineFigures.h"
#include "collectors/machine/MachineStatCollector.h"

#include <map>
#include <optional>

namespace meridal {

/// Processors: where their time goes, load, tasks, and what the kernel does a second.
class ProcessorStatCollector final : public MachineStatCollector {
public:
    explicit ProcessorStatCollector(Context& context);
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    void read(double monotonicTime) override;

    std::optional<Timed<ProcessorReading>> reading_;
    std::optional<double> busy_;       ///< %, of all
    std::map<int, double> busyOfEach_; ///< %, by processor
};

} // namespace meridal
