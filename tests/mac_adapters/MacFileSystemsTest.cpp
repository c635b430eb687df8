// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"
#include "simulated/mac/SimulatedMac.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace meridal {
namespace {

struct statfs mountOf(const std::string& type, const std::string& device, const std::string& place, std::uint32_t flags)
{
    struct statfs status { };
    type.copy(status.f_fstypename, sizeof status.f_fstypename - 1);
    device.copy(status.f_mntfromname, sizeof status.f_mntfromname - 1);
    place.copy(status.f_mntonname, sizeof status.f_mntonname - 1);
    status.f_flags = flags;
    status.f_bsize = 4096;
    status.f_iosize = 1 << 20;
    status.f_blocks = 1000;
    status.f_bfree = 400;
    status.f_bavail = 300;
    return status;
}

std::string placesOf(const std::vector<FileSystemRecord>& records)
{
    std::string places;
    for (const FileSystemRecord& each : records) {
        places += each.mount + ' ';
    }
    return places;
}

TEST(MacFileSystems, AreThoseWhosePlacesPeopleSee)
{
    test::SimulatedMac mac;
    const auto systems = makeMacFileSystems();
    EXPECT_TRUE(systems->read().empty());
    // As on a Mac with Apple silicon; the share is invented.
    auto& mounts = mac.kernel.mounts;
    mounts = {mountOf("smbfs", "//ada@server/films", "/Volumes/films", 0),
        mountOf("apfs", "/dev/disk3s1s1", "/", MNT_RDONLY | MNT_DONTBROWSE),
        mountOf("devfs", "devfs", "/dev", MNT_DONTBROWSE),
        mountOf("apfs", "/dev/disk3s5", "/System/Volumes/Data", MNT_DONTBROWSE),
        mountOf("autofs", "map auto_home", "/System/Volumes/Data/home", 0)};
    const auto records = systems->read();
    ASSERT_EQ(placesOf(records), "/ /Volumes/films ");
    EXPECT_TRUE(records[0].readOnly);
    EXPECT_FALSE(records[1].readOnly);
    EXPECT_EQ(records[1].device, "//ada@server/films");
    EXPECT_EQ(records[1].type, "smbfs");
    const FileSystemRoom room = {.totalBytes = 4'096'000, .usedBytes = 600 * 4096, .availableBytes = 300 * 4096};
    EXPECT_EQ(records[1].room, room) << "in the units of its size, not those of transfers";

    mounts[0].f_blocks = 0;
    EXPECT_EQ(placesOf(systems->read()), "/ ") << "one that holds nothing";
    mac.kernel.meanwhile = [&](const std::string& call) {
        for (int number = 0; call == "getfsstat, size" && number < 20; ++number) {
            mounts.push_back(mountOf("hfs", "/dev/disk9", "/Volumes/image" + std::to_string(number), 0));
        }
    };
    EXPECT_GE(systems->read().size(), 8U) << "those that came meanwhile, as far as there is room";
    mac.kernel.meanwhile = nullptr;
    EXPECT_EQ(systems->read().size(), 21U);
    mac.ledger.fail("getfsstat", EIO);
    EXPECT_TRUE(systems->read().empty());
}

TEST(MacClockSource, ASynchronisedClockHasABoundOfItsError)
{
    test::SimulatedMac mac;
    const auto clock = makeMacClockSource();
    const auto isSynchronised = [&](int state, long bound) {
        mac.kernel.clock.time_state = state;
        mac.kernel.clock.maxerror = bound;
        return clock->isSynchronised();
    };
    EXPECT_TRUE(isSynchronised(TIME_OK, 100'000));
    EXPECT_TRUE(isSynchronised(TIME_OK + 1, 100'000)) << "a leap second is announced";
    EXPECT_FALSE(isSynchronised(TIME_ERROR, 100'000));
    EXPECT_FALSE(isSynchronised(-1, 0)) << "an error of the call";
    EXPECT_FALSE(isSynchronised(TIME_OK, 16'000'000)) << "nobody has set it for hours";
}

} // namespace
} // namespace meridal
