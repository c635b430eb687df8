// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/machine/MachineFigures.h"
#include "collectors/machine/MachineStatCollector.h"
#include "collectors/machine/MemoryKillRecord.h"

#include <optional>

namespace meridal {

/// Memory and swap, and who was killed for want of it.
class MemoryStatCollector final : public MachineStatCollector {
public:
    explicit MemoryStatCollector(Context& context);
    Value state() const override;
    /// Those who were killed for want of memory, the latest last.
    Value kills() const { return kills_.state(); }
    void addTo(HistoryCatalogue& catalogue) override;

private:
    void read(double monotonicTime) override;

    std::optional<Timed<MemoryReading>> reading_;
    MemoryKillRecord kills_;
};

} // namespace meridal
