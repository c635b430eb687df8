// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/machine/MachineFigures.h"
#include "collectors/machine/MachineStatCollector.h"

#include <optional>

namespace meridal {

/// For how long work stood still for want of processors, memory or storage. Nothing where the system does not account for it.
class PressureStatCollector final : public MachineStatCollector {
public:
    explicit PressureStatCollector(Context& context);
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    void read(double monotonicTime) override;

    std::optional<Timed<PressureReading>> reading_;
};

} // namespace meridal
