// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/GraphicsClients.h"
#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/kernel/RootFolder.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

/// What a driver says of one door in /proc/PID/fdinfo.
struct DrmUsage {
    std::string device;                ///< "0000:03:00.0"; empty where the driver does not tell
    std::optional<std::uint64_t> door; ///< unique within the device
    std::uint64_t busyNs = 0;          ///< of engines that count ns
    std::optional<std::uint64_t> memoryBytes;
    /// Of engines that count cycles beside all that have passed: what they did, as parts of the time.
    struct Cycles {
        std::uint64_t busy = 0;
        std::uint64_t all = 0;
        std::uint64_t engines = 1; ///< that count together
    };
    std::map<std::string, Cycles, std::less<>> cycles; ///< by engine
};

/// Absent for a descriptor of anything else.
std::optional<DrmUsage> parseDrmUsage(std::string_view text);

/// Who holds DRM devices open, found among the descriptors of processes; looks at nobody where there is no such device.
class DrmClients final : public GraphicsClients {
public:
    explicit DrmClients(const std::filesystem::path& root) : root_(root), proc_(root / "proc") { }

    std::span<const GraphicsClient> read(std::span<const std::int32_t> candidates, double monotonicTime) override;

private:
    /// The cycles of a door, whoever holds it and by whichever descriptors.
    struct Counted {
        std::map<std::string, DrmUsage::Cycles, std::less<>> cycles; ///< as read last
        double readAt = 0;                                           ///< monotonic s
        std::uint64_t ns = 0;                                        ///< that they make
    };

    bool hasDevices(double monotonicTime);
    void lookThrough(std::int32_t pid);
    bool readDoor(std::int32_t pid, const std::string& number, double monotonicTime);
    static void addCycles(Counted& counted, DrmUsage& usage, double monotonicTime);
    std::uint32_t numberOf(const std::string& device);

    RootFolder root_;
    ProcFolder proc_;
    bool hasDevices_ = false;
    std::optional<double> lookedAt_;                                     ///< monotonic s
    std::map<std::int32_t, std::set<std::string>> known_;                ///< descriptors that lead to devices
    std::map<std::pair<std::uint32_t, std::uint64_t>, Counted> counted_; ///< by device and client, which come once only
    std::map<std::string, std::uint32_t> devices_;
    std::vector<GraphicsClient> clients_;
};

} // namespace meridal
