// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/LinuxSMARTDevice.h"

#include "platform/DriveDatabaseFile.h"

#include <cerrno>
#include <utility>

namespace meridal {

LinuxSMARTDevice::LinuxSMARTDevice(RootFolder root, const DiskRecord& disk, DiskHelperPlace helper, bool insist)
    : root_(std::move(root))
    , helper_(std::move(helper), disk.path)
    , spins_(disk.rotational.value_or(true))
    , insist_(insist)
{
}

DiskPower LinuxSMARTDevice::powerMode()
{
    const DiskPower power = ask(DiskVerb::PowerMode).power;
    const bool maySleep = spins_ && !insist_; // nobody has looked
    return power != DiskPower::Unknown || maySleep ? power : DiskPower::Awake;
}

bool LinuxSMARTDevice::isDenied() const { return error_ == EACCES || error_ == EPERM; }

std::optional<bool> LinuxSMARTDevice::isFailing()
{
    const DiskVerdict verdict = ask(DiskVerb::Page, DiskPage::Status).verdict;
    return verdict == DiskVerdict::Unknown ? std::nullopt : std::optional(verdict == DiskVerdict::Failing);
}

DiskReply LinuxSMARTDevice::ask(DiskVerb verb, DiskPage page)
{
    DiskReply reply = helper_.ask({.verb = verb, .page = page, .shortCommands = shortCommands_});
    error_ = reply.error;
    shortCommands_ = shortCommands_ || reply.shortCommands; // kept for the next conversation
    return reply;
}

// Where smartctl looks, and what smartmontools' own updates fetch before what came with the package.
std::string LinuxSMARTDevice::driveDatabase() const
{
    const auto at = [this](const char* path) { return root_.path(path); };
    return readDriveDatabase({at("etc/smart_drivedb.h")})
        + readDriveDatabase({at("var/lib/smartmontools/drivedb/drivedb.h"), at("var/lib/smartmontools/drivedb.h"),
            at("usr/local/share/smartmontools/drivedb.h"), at("usr/share/smartmontools/drivedb.h")});
}

} // namespace meridal
