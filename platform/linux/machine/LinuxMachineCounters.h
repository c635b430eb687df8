// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineCounters.h"
#include "platform/linux/kernel/KeptFile.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/machine/MemoryKillLog.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// The machine's own figures from /proc, and from /sys what its processors' clocks and block devices are.
class LinuxMachineCounters final : public MachineCounters {
public:
    LinuxMachineCounters(Runtime& runtime, const std::filesystem::path& root);

    const ProcessorReading* processors() override;
    std::optional<std::uint64_t> frequencyHz(int processor) override;
    const MemoryReading* memory() override;
    void memoryKills(Kills reply) override { killLog_.read(std::move(reply)); }
    const PressureReading* pressure() override;
    const std::vector<BlockDeviceRecord>* blockDevices() override;

private:
    /// What stays the same of a block device while it is there.
    struct Device {
        std::string name;
        BlockDeviceKind kind = BlockDeviceKind::Disk;
        std::uint64_t identity = 0;
        bool isThere = false; ///< in the reading under way
    };

    const Device& deviceFor(std::uint32_t major, std::uint32_t minor, std::string_view name);
    Device lookAt(std::string_view name);
    void readRamDisks();

    RootFolder root_;
    const std::uint64_t tickNs_;
    const std::uint64_t pageSize_;
    KeptFile stat_;
    KeptFile loads_;
    KeptFile memoryInfo_;
    KeptFile pageCounts_;
    KeptFile processorStalls_;
    KeptFile memoryStalls_;
    KeptFile storageStalls_;
    KeptFile disks_;
    std::map<std::string, KeptFile> ramDisks_; ///< by name, of those in the latest list of block devices
    std::map<int, KeptFile> frequencies_;      ///< by processor, of those that were asked for
    MemoryKillLog killLog_;
    std::map<std::uint64_t, Device> devices_;
    std::uint64_t devicesSeen_ = 0;
    ProcessorReading processors_;
    MemoryReading memory_;
    PressureReading pressure_;
    std::vector<BlockDeviceRecord> blockDevices_;
};

} // namespace meridal
