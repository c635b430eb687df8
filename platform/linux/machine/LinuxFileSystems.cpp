// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxFileSystems.h"

#include "base/Text.h"
#include "platform/linux/machine/MountTable.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace meridal {

namespace {

constexpr double mostWait = 0.1; // s

std::optional<FileSystemRoom> roomIn(const std::filesystem::path& point)
{
    struct statvfs status { };
    if (::statvfs(point.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return roomOf(status, status.f_frsize != 0 ? status.f_frsize : status.f_bsize);
}

/// Whether a mount is read-only for the machine: our unit makes all of them so for us.
bool isReadOnlyFor(const std::vector<Mount>& system, const Mount& mount)
{
    const auto same = std::find_if(system.rbegin(), system.rend(),
        [&mount](const Mount& each) { return each.point == mount.point && each.device == mount.device; });
    return same != system.rend() ? same->readOnly : mount.readOnly;
}

} // namespace

/// Shared with a thread that may never come back. The room is the poster's once it is done.
struct LinuxFileSystems::Answer {
    std::optional<FileSystemRoom> room;
    std::atomic<bool> isDone = false;
};

LinuxFileSystems::LinuxFileSystems(const std::filesystem::path& root, std::unique_ptr<SlowWork> work)
    : root_(root), table_(root / "proc/self/mountinfo"), systemTable_(root / "proc/1/mountinfo"), work_(std::move(work))
{
}

LinuxFileSystems::~LinuxFileSystems() = default;

std::vector<FileSystemRecord> LinuxFileSystems::read()
{
    const std::vector<Mount> mounts = mountsWithData(parseMountInfo(table_.read().value_or("")));
    const std::vector<Mount> system = parseMountInfo(systemTable_.read().value_or(""));
    std::map<std::string, std::shared_ptr<Answer>> answers;
    std::vector<std::shared_ptr<Answer>> awaited; // one that hangs since an earlier reading is not waited for again
    for (const Mount& mount : mounts) {
        auto& answer = answers[mount.point];
        if (const auto before = underWay_.find(mount.point); before != underWay_.end()) {
            answer = before->second;
            continue;
        }
        answer = awaited.emplace_back(std::make_shared<Answer>());
        work_->post([answer, point = root_ / mount.point.substr(1)] {
            answer->room = roomIn(point);
            answer->isDone = true;
        });
    }
    const auto isDone = [](const auto& each) { return each->isDone.load(); };
    work_->wait([&] { return std::all_of(awaited.begin(), awaited.end(), isDone); }, mostWait);
    std::vector<FileSystemRecord> records;
    for (const Mount& mount : mounts) {
        const auto& answer = answers[mount.point];
        FileSystemRecord record{.mount = validUtf8(mount.point),
            .device = validUtf8(mount.source),
            .type = validUtf8(mount.type),
            .readOnly = isReadOnlyFor(system, mount),
            .room = {}};
        if (answer->isDone) {
            record.room = answer->room;
            answers.erase(mount.point);
        }
        if (!record.room || record.room->totalBytes > 0) { // else the system made it up
            records.push_back(std::move(record));
        }
    }
    underWay_ = std::move(answers);
    return records;
}

} // namespace meridal
