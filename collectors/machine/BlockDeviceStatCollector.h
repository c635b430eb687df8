// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/machine/MachineFigures.h"
#include "collectors/machine/MachineStatCollector.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

class SampleStorages;

/// Disks as the kernel sees them: what is read and written, how long that takes, how busy they are. Recorded are whole
/// disks, and not what is made of them or lies in memory.
class BlockDeviceStatCollector final : public MachineStatCollector {
public:
    explicit BlockDeviceStatCollector(Context& context);
    Value state() const override;
    /// The same with partitions, mapped devices and those in memory; each tells its "kind".
    Value stateOfAll() const;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    struct Device {
        Timed<BlockDeviceRecord> reading;
        std::vector<Figure> figures;             ///< by column
        std::shared_ptr<SampleStorages> samples; ///< recorded as long as it is there; null when it is no whole disk
    };

    void read(double monotonicTime) override;

    std::map<std::string, Device> devices_; ///< by name
    bool isRead_ = false;                   ///< the latest reading came
};

} // namespace meridal
