// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PackageEnergy.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// /sys/class/powercap/intel-rapl:N, which AMD's processors have, too: energy_uj of the zones that are packages. Readable by
/// root alone. The counters start over now and then, on some machines several times an hour.
class PowercapEnergy final : public PackageEnergy {
public:
    /// `root` is the folder that holds sys.
    explicit PowercapEnergy(const std::filesystem::path& root);
    std::optional<double> joules() override;

private:
    struct Package {
        std::filesystem::path file;
        std::uint64_t range = 0; ///< uJ at which it starts over
        std::uint64_t latest = 0;
    };
    std::vector<Package> packages_;
    std::uint64_t sum_ = 0; ///< uJ
};

} // namespace meridal
