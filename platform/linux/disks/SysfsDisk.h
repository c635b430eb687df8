// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ATAIdentity.h"
#include "platform/host/Disks.h"
#include "platform/linux/kernel/RootFolder.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// A device folder of sysfs that may be a disk: of a block device, or of an NVMe controller.
class SysfsDisk {
public:
    /// `path` is relative to the root and names the folder itself, not a link to it.
    SysfsDisk(RootFolder root, std::string path);

    /// Absent for what is no disk of this machine, and for one without health data.
    std::optional<DiskRecord> record() const { return isNvmeController() ? nvmeRecord() : ataRecord(); }
    /// Documentation/block/stat.rst. What is passed through to the disk is not counted there.
    std::optional<std::int64_t> requests() const;
    /// Where the device's own files are; those of a disk are with the device that has it.
    std::string deviceFolder() const;

private:
    std::optional<std::string> file(std::string_view name) const;
    std::optional<std::string> device(std::string_view name) const;
    std::optional<std::string> udev(std::string_view key) const;
    bool isBlockDevice() const;
    bool isNvmeController() const;
    bool isSmartCapable(const std::optional<ATAIdentity>& announced) const;
    std::optional<ATAIdentity> identity() const;
    std::optional<std::string> udevModel() const;
    std::optional<std::string> namespaceName() const;
    std::optional<DiskRecord> ataRecord() const;
    std::optional<DiskRecord> nvmeRecord() const;

    RootFolder root_;
    std::string path_;
    std::string name_;
};

/// All that have health data, ATA ones before NVMe ones.
std::vector<DiskRecord> findDisks(const RootFolder& root);

} // namespace meridal
