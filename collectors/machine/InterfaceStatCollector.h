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

/// What network interfaces carry a second, and what goes wrong on them, from the readings that the account of bandwidth
/// makes: each is compared with the one before, when updateStats() is called right after it. Recorded are all but loopback
/// and the many virtual ones that come and go with containers and virtual machines.
class InterfaceStatCollector final : public MachineStatCollector {
public:
    explicit InterfaceStatCollector(Context& context);
    /// {"eth0": {"received", …}, …} of all that are there.
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    struct Interface {
        Timed<InterfaceRecord> reading;
        InterfaceRates rates;
        std::shared_ptr<SampleStorages> samples; ///< recorded as long as it is there; null where it is not
    };

    void read(double monotonicTime) override;

    std::map<std::string, Interface> interfaces_; ///< by name
    bool isRead_ = false;                         ///< the latest reading came
};

} // namespace meridal
