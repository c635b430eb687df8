// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/LinuxDisks.h"

#include "platform/linux/disks/LinuxSMARTDevice.h"
#include "platform/linux/disks/SysfsDisk.h"
#include "platform/linux/kernel/Uevents.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

/// The device folder behind a link such as sys/class/block/sda, relative to the root.
std::string targetOf(const RootFolder& root, const std::string& link)
{
    std::error_code failure;
    const std::filesystem::path target = std::filesystem::read_symlink(root.path(link), failure);
    if (failure) {
        return link;
    }
    return (std::filesystem::path(link).parent_path() / target).lexically_normal().string();
}

class UeventObservation final : public Disks::Observation {
public:
    UeventObservation(Runtime& runtime, const std::filesystem::path& root, const std::function<void()>& changed)
        : disks_(runtime, root, "block", changed), controllers_(runtime, root, "nvme", changed)
    {
    }
    bool isOpen() const { return disks_.isOpen(); }

private:
    Uevents disks_;
    Uevents controllers_; ///< which are the disks of NVMe, and leave after their block devices
};

} // namespace

LinuxDisks::LinuxDisks(
    Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations, bool insist)
    : runtime_(runtime), root_(root), limitations_(std::move(limitations)), insist_(insist)
{
}

std::vector<DiskRecord> LinuxDisks::disks()
{
    std::vector<DiskRecord> found;
    for (const std::string folder : {"sys/class/block/", "sys/class/nvme/"}) {
        for (const std::string& name : root_.list(folder)) {
            if (auto disk = SysfsDisk(root_, targetOf(root_, folder + name)).record()) {
                found.push_back(*std::move(disk));
            }
        }
    }
    return found;
}

std::optional<std::int64_t> LinuxDisks::requests(const DiskRecord& disk)
{
    return SysfsDisk(root_, disk.path).requests();
}

std::unique_ptr<SMARTDevice> LinuxDisks::device(const DiskRecord& disk)
{
    std::string name = disk.path.substr(disk.path.rfind('/') + 1);
    std::replace(name.begin(), name.end(), '!', '/'); // how sysfs spells a name with a slash
    const auto uevent = root_.read(disk.path + "/uevent");
    std::string node = valueOfKey(uevent.value_or(""), "DEVNAME", '=').value_or(name);
    if (node.starts_with("/dev/")) {
        node.erase(0, 5);
    }
    DiskLocation location{.node = root_.path("dev/" + node).string(),
        .powerState = SysfsDisk(root_, disk.path).deviceFolder() + "/power/runtime_status",
        .spins = disk.rotational.value_or(true),
        .insist = insist_};
    return std::make_unique<LinuxSMARTDevice>(root_, disk.kind, std::move(location));
}

std::unique_ptr<Disks::Observation> LinuxDisks::observe(std::function<void()> changed)
{
    auto observation = std::make_unique<UeventObservation>(runtime_, root_.path(""), changed);
    if (!observation->isOpen()) {
        limitations_->set("disk-changes", "disks that come and go are not announced: no uevents here");
    }
    return observation;
}

} // namespace meridal
