#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/Registry.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>

namespace meridal {

class Runtime;

/// Disks from sysfs, with what udev noted of each where it runs. Entries are device folders; their paths are relative to
/// the root. No device is opened for any of it: the pages that SCSI disks announce themselves with were read by the
/// kernel when it found them.
class LinuxRegistry final : public Registry {
public:
    LinuxRegistry(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations);

    std::vector<RegistryEntryPtr> entriesWithTrue(std::string_view property) override;
    std::unique_ptr<Observation> observeDisks(std::function<void()> changed) override;

private:
    Runtime& runtime_;
    RootFolder root_;
    std::filesystem::path rootPath_;
    std::shared_ptr<Limitations> limitations_;
};

} // namespace meridal
