// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/DisplayInfo.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

namespace meridal {

/// One reading of a display's vertical-blank counter.
struct VerticalBlank {
    std::uint64_t display = 0; ///< which one: device and CRTC number
    std::uint32_t count = 0;   ///< frames scanned out; wraps
    double time = 0;           ///< s, CLOCK_MONOTONIC, of the last one
};

/// Frames scanned out per second on the first active display of the DRM devices.
class DrmDisplayInfo final : public DisplayInfo {
public:
    using ReadBlank = std::function<std::optional<VerticalBlank>()>;

    /// Reads the devices under dev/dri of a root folder.
    explicit DrmDisplayInfo(const std::filesystem::path& root);
    /// Takes the readings from elsewhere.
    explicit DrmDisplayInfo(ReadBlank readBlank);

    std::optional<double> frameRate() override;

private:
    ReadBlank readBlank_;
    std::optional<VerticalBlank> last_;
};

} // namespace meridal
