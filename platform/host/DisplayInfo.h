// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

namespace meridal {

/// macOS: the window server's performance data. Linux: vertical-blank counters of the DRM devices.
class DisplayInfo {
public:
    virtual ~DisplayInfo() = default;
    /// Frames per second drawn (macOS) or scanned out (Linux) on the first active display since the last call. Absent
    /// without a display, without the right, or where two readings are needed and the one before is missing or old.
    virtual std::optional<double> frameRate() = 0;
};

} // namespace meridal
