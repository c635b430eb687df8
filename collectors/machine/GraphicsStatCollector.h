// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/machine/MachineFigures.h"
#include "collectors/machine/MachineStatCollector.h"
#include "platform/host/GraphicsUnits.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class SampleStorages;

/// Graphics processors: how busy they are, their memory and their clock, as far as their drivers tell. Where a driver tells
/// no more than for how long its unit slept, the rest of the time counts as busy.
class GraphicsStatCollector final : public MachineStatCollector {
public:
    explicit GraphicsStatCollector(Context& context);
    /// {"card0": {"driver", "busy", "memoryUsed", "memoryTotal", "frequency"}, …}.
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    struct Unit {
        GraphicsRecord record;
        std::optional<double> busy;                 ///< %
        std::optional<Timed<std::uint64_t>> asleep; ///< the latest reading that told it, ns
        std::shared_ptr<SampleStorages> samples;    ///< recorded as long as it is there
    };

    void read(double monotonicTime) override;

    std::map<std::string, Unit> units_; ///< by name
};

} // namespace meridal
