// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Disks.h"
#include "platform/host/Limitations.h"
#include "platform/linux/disks/DiskHelper.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>
#include <memory>
#include <string>

namespace meridal {

class Runtime;

struct DiskOptions {
    bool insist = false;     ///< disks that spin are read even where their adapter does not tell whether they sleep
    std::string socket = {}; ///< where meridal-disks listens; empty: it is started for each conversation
};

/// Disks from sysfs, with what udev noted of each where it runs. Their paths are those of device folders, relative to the
/// root. No device is opened for any of it: the pages that SCSI disks announce themselves with were read by the kernel
/// when it found them.
class LinuxDisks final : public Disks {
public:
    LinuxDisks(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations,
        DiskOptions options = {});

    std::vector<DiskRecord> disks() override;
    std::optional<std::int64_t> requests(const DiskRecord& disk) override;
    std::unique_ptr<SMARTDevice> device(const DiskRecord& disk) override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;

private:
    Runtime& runtime_;
    RootFolder root_;
    std::shared_ptr<Limitations> limitations_;
    bool insist_;
    DiskHelperPlace helper_;
};

} // namespace meridal
