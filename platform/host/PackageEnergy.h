// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

namespace meridal {

/// What the machine's processor packages have used. Main queue only.
/// Linux: the powercap interface (RAPL). macOS tells nobody without entitlements: absent, as in this class itself.
class PackageEnergy {
public:
    virtual ~PackageEnergy() = default;
    /// J since some moment, of all packages together; grows only. Absent where nobody tells.
    virtual std::optional<double> joules() { return std::nullopt; }
};

} // namespace meridal
