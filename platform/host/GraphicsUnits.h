// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// A graphics processor, and what it does. A figure that its driver does not tell is absent, and all are while it sleeps.
struct GraphicsRecord {
    std::string name;                           ///< "card0"; valid UTF-8
    std::string driver;                         ///< "amdgpu", "i915"; valid UTF-8, empty where the system does not tell
    std::optional<double> busyPercent = {};     ///< now
    std::optional<std::uint64_t> asleepNs = {}; ///< it slept so long in all, where only that is told
    std::optional<std::uint64_t> memoryUsed = {};  ///< bytes of its own, or of the machine's where it has none
    std::optional<std::uint64_t> memoryTotal = {}; ///< bytes of its own
    std::optional<std::uint64_t> frequencyHz = {};
    bool operator==(const GraphicsRecord&) const = default;
};

/// The graphics processors of this machine, as far as the kernel tells without a vendor's library. Main queue only.
/// Linux: sysfs of DRM devices. macOS: the statistics that IOAccelerator services publish.
class GraphicsUnits {
public:
    virtual ~GraphicsUnits() = default;
    /// Ordered by name; valid until the next call. Reading wakes none that sleeps, and keeps none awake that would sleep.
    virtual const std::vector<GraphicsRecord>& read(double monotonicTime) = 0;
};

} // namespace meridal
