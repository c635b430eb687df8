// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace meridal {

/// What a process has a graphics processor do through one door to it. A door may be handed to another process: both then have it.
struct GraphicsClient {
    std::int32_t pid = 0;
    std::uint32_t device = 0; ///< with `client`, which door it is
    std::uint64_t client = 0;
    std::uint64_t busyNs = 0; ///< of all engines that worked for it, each for itself, since it was opened
    std::optional<std::uint64_t> memoryBytes = {}; ///< held for it by now
};

/// Who uses the graphics processors of this machine, as far as the kernel tells. Main queue only.
/// Linux: fdinfo of the descriptors of DRM devices. macOS: the clients of accelerators in the I/O registry. Else nobody, as in this class itself.
class GraphicsClients {
public:
    virtual ~GraphicsClients() = default;
    /// All that are known by now. `candidates`: those that may have begun to use one since the last call. To look them through
    /// costs far more than to ask again those that are known. Valid until the next call.
    virtual std::span<const GraphicsClient> read(std::span<const std::int32_t> candidates, double monotonicTime)
    {
        static_cast<void>(candidates);
        static_cast<void>(monotonicTime);
        return {};
    }
};

} // namespace meridal
