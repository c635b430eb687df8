// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/LinuxDisks.h"

#include "platform/linux/disks/LinuxSMARTDevice.h"
#include "platform/linux/disks/SysfsDisk.h"
#include "platform/linux/kernel/Uevents.h"

#include <utility>

namespace meridal {

namespace {

class UeventObservation final : public Disks::Observation {
public:
    UeventObservation(Runtime& runtime, const std::filesystem::path& root, const std::function<void()>& changed)
        : uevents_(runtime, root, {"block", "nvme"}, changed)
    {
    }
    bool isOpen() const { return uevents_.isOpen(); }

private:
    Uevents uevents_; ///< a controller is the disk of NVMe, and leaves after its block devices
};

} // namespace

LinuxDisks::LinuxDisks(
    Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations, DiskOptions options)
    : runtime_(runtime)
    , root_(root)
    , limitations_(std::move(limitations))
    , insist_(options.insist)
    , helper_{.socket = std::move(options.socket), .root = root}
{
    if (!helper_.isThere() && limitations_->all().count("smart") == 0) {
        limitations_->set("smart", "asking disks for their health takes the program meridal-disks, which is not there");
    }
}

std::vector<DiskRecord> LinuxDisks::disks() { return findDisks(root_); }

std::optional<std::int64_t> LinuxDisks::requests(const DiskRecord& disk)
{
    return SysfsDisk(root_, disk.path).requests();
}

std::unique_ptr<SMARTDevice> LinuxDisks::device(const DiskRecord& disk)
{
    return std::make_unique<LinuxSMARTDevice>(root_, disk, helper_, insist_);
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
