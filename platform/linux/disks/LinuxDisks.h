// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Disks.h"
#include "platform/host/Limitations.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>
#include <memory>

namespace meridal {

class Runtime;

/// Disks from sysfs, with what udev noted of each where it runs. Their paths are those of device folders, relative to the
/// root. No device is opened for any of it: the pages that SCSI disks announce themselves with were read by the kernel
/// when it found them.
class LinuxDisks final : public Disks {
public:
    /// `insist`: disks that spin are read even where their adapter does not tell whether they sleep.
    LinuxDisks(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations,
        bool insist = false);

    std::vector<DiskRecord> disks() override;
    std::optional<std::int64_t> requests(const DiskRecord& disk) override;
    std::unique_ptr<SMARTDevice> device(const DiskRecord& disk) override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;

private:
    Runtime& runtime_;
    RootFolder root_;
    std::shared_ptr<Limitations> limitations_;
    bool insist_;
};

} // namespace meridal
