// SPDX-License-Identifier: Apache-2.0
// Mount tables of a Debian laptop with btrfs, snaps and a container engine, and the machine that runs the tests.

#include "base/ThreadedSlowWork.h"
#include "platform/linux/machine/LinuxFileSystems.h"
#include "platform/linux/machine/MountTable.h"
#include "tests/support/HandWork.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <sys/statvfs.h>

namespace meridal {
namespace {

std::vector<std::string> pointsOf(std::string_view table)
{
    std::vector<std::string> points;
    for (const Mount& mount : mountsWithData(parseMountInfo(table))) {
        points.push_back(mount.point);
    }
    return points;
}

TEST(MountTable, DataIsListedOnceAndWhatTheSystemMakesUpIsNot)
{
    using Points = std::vector<std::string>;
    EXPECT_EQ(pointsOf("22 27 0:21 / /proc rw,relatime - proc proc rw\n"
                       "25 1 0:30 /@ / rw,noatime shared:1 master:2 - btrfs /dev/nvme0n1p3 rw,subvol=/@\n"
                       "26 25 0:30 /@home /home rw - btrfs /dev/nvme0n1p3 rw,subvol=/@home\n"
                       "27 25 259:1 / /boot rw - vfat /dev/nvme0n1p1 rw\n"
                       "28 25 7:1 / /snap/core/1 ro,nodev - squashfs /dev/loop1 ro\n"
                       "29 25 0:40 / /var/lib/docker/overlay2/x/merged rw - overlay overlay rw\n"
                       "30 25 0:41 / /net rw - autofs systemd-1 rw\n"
                       "31 25 8:1 /srv/a /mnt/part rw - ext4 /dev/sda1 rw\n"
                       "32 25 8:1 / /media/big\\040disk rw - ext4 /dev/sda1 rw\n"
                       "33 25 0:50 / /home/shared rw - nfs4 server:/export rw\n"
                       "34 25 0:51 / /tmp rw - tmpfs tmpfs rw\nnonsense\n"),
        (Points{"/", "/boot", "/home/shared", "/media/big disk"}));
    EXPECT_EQ(pointsOf("1 0 0:70 / / rw - overlay overlay rw\n2 1 8:1 /hosts /etc/hosts rw - ext4 /dev/sda1 rw\n"),
        (Points{"/", "/etc/hosts"}))
        << "in a container";
    EXPECT_EQ(pointsOf("1 0 8:1 / /a rw - ext4 /dev/sda1 rw\n2 0 0:9 / /a rw - tmpfs none rw\n"), Points()) << "hidden";
    const auto mounts =
        parseMountInfo("1 0 8:1 / /a ro - ext4 /dev/sda1 rw\n1 0 8:1 / /b rw - ext4 x ro,errors=remount-ro\n"
                       "1 0 8:1 / /c rw - ext4 x rw\n");
    EXPECT_TRUE(mounts.at(0).readOnly && mounts.at(1).readOnly && !mounts.at(2).readOnly);
}

TEST(LinuxFileSystems, OneThatHangsIsAbsentAskedOnceAndHoldsUpNobody)
{
    const test::TemporaryTree tree{{"proc/self/mountinfo",
                                       "1 0 8:1 / /a rw - ext4 /dev/sda1 rw\n"
                                       "2 0 8:2 / /b rw - nfs server:/b rw\n"},
        {"a/x", ""}, {"b/x", ""}};
    const auto script = std::make_shared<test::HandWork::Script>();
    script->hang = 1;
    LinuxFileSystems systems(tree.root(), std::make_unique<test::HandWork>(script));
    for (int look = 0; look < 2; ++look) {
        const auto found = systems.read();
        ASSERT_EQ(found.size(), 2U);
        EXPECT_GT(found[0].room.value().totalBytes, found[0].room->usedBytes);
        EXPECT_EQ(found[1].room, std::nullopt);
        EXPECT_EQ(found[1].device, "server:/b");
    }
    EXPECT_EQ(script->posts, 3) << "the second only once";
    script->hanging.front()(); // it comes back
    EXPECT_TRUE(systems.read()[1].room);
}

TEST(LinuxFileSystems, WhatIsReadOnlyForTheDaemonAloneIsNot)
{
    const test::TemporaryTree tree{
        {"proc/self/mountinfo",
            "1 0 8:1 / /a ro - ext4 /dev/sda1 rw\n2 0 8:2 / /b ro - ext4 /dev/sda2 rw\n3 0 8:3 / /c ro - ext4 x rw\n"},
        {"proc/1/mountinfo",
            "1 0 8:1 / /a rw - ext4 /dev/sda1 rw\n2 0 8:2 / /b ro - ext4 /dev/sda2 rw\n3 0 8:9 / /c rw - ext4 x rw\n"},
        {"a/x", ""}, {"b/x", ""}, {"c/x", ""}};
    const auto script = std::make_shared<test::HandWork::Script>();
    std::vector<bool> readOnly;
    for (const FileSystemRecord& each :
        LinuxFileSystems(tree.root(), std::make_unique<test::HandWork>(script)).read()) {
        readOnly.push_back(each.readOnly);
    }
    EXPECT_EQ(readOnly, (std::vector{false, true, true})) << "the last is another one there";
}

TEST(LinuxFileSystems, TheRootOfThisMachineIsAsFullAsItSays)
{
    LinuxFileSystems systems("/", std::make_unique<ThreadedSlowWork>());
    struct statvfs status { };
    ASSERT_EQ(::statvfs("/", &status), 0);
    const auto found = systems.read();
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found.front().mount, "/");
    ASSERT_TRUE(found.front().room);
    EXPECT_EQ(found.front().room->totalBytes, status.f_blocks * status.f_frsize);
    EXPECT_EQ(found.front().room->totalInodes.value_or(0), status.f_files);
}

} // namespace
} // namespace meridal
