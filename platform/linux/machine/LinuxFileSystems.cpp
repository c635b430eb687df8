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
    const std::uint64_t unit = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
    FileSystemRoom room{.totalBytes = status.f_blocks * unit,
        .usedBytes = (status.f_blocks - std::min(status.f_blocks, status.f_bfree)) * unit,
        .availableBytes = status.f_bavail * unit};
    if (status.f_files > 0) {
        room.totalInodes = status.f_files;
        room.usedInodes = status.f_files - std::min(status.f_files, status.f_ffree);
    }
    return room;
}

} // namespace

/// Shared with a thread that may never come back. The room is the poster's once it is done.
struct LinuxFileSystems::Answer {
    std::optional<FileSystemRoom> room;
    std::atomic<bool> isDone = false;
};

LinuxFileSystems::LinuxFileSystems(const std::filesystem::path& root, std::unique_ptr<SlowWork> work)
    : root_(root), table_(root / "proc/self/mountinfo"), work_(std::move(work))
{
}

LinuxFileSystems::~LinuxFileSystems() = default;

std::vector<FileSystemRecord> LinuxFileSystems::read()
{
    const std::vector<Mount> mounts = mountsWithData(parseMountInfo(table_.read().value_or("")));
    std::map<std::string, std::shared_ptr<Answer>> answers;
    for (const Mount& mount : mounts) {
        const auto before = underWay_.find(mount.point);
        auto& answer = answers[mount.point];
        if (before != underWay_.end()) {
            answer = before->second;
            continue;
        }
        answer = std::make_shared<Answer>();
        work_->post([answer, point = root_ / mount.point.substr(1)] {
            answer->room = roomIn(point);
            answer->isDone = true;
        });
    }
    work_->wait(
        [&] {
            return std::all_of(
                answers.begin(), answers.end(), [](const auto& each) { return each.second->isDone.load(); });
        },
        mostWait);
    std::vector<FileSystemRecord> records;
    for (const Mount& mount : mounts) {
        const auto& answer = answers[mount.point];
        FileSystemRecord record{.mount = validUtf8(mount.point),
            .device = validUtf8(mount.source),
            .type = validUtf8(mount.type),
            .readOnly = mount.readOnly,
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
