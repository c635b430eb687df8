// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"
#include "platform/macos/processes/MacAdapters.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace meridal {
namespace {

class LibprocProcessSourceTest : public testing::Test {
protected:
    ProcessRecord ownRecord(ProcessFields wanted)
    {
        const auto rows = source.readProcesses(wanted);
        const auto own = std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row.pid == getpid(); });
        return own == rows.end() ? ProcessRecord{} : *own;
    }

    Limitations limitations;
    const std::unique_ptr<MachineInfo> machine = makeMacMachineInfo();
    const std::unique_ptr<ProcessSource> ours = makeLibprocProcessSource(machine->systemRelease(), limitations);
    ProcessSource& source = *ours;
};

TEST_F(LibprocProcessSourceTest, OwnProcessIsInTheTableWithWhatWasAskedFor)
{
    const ProcessRecord record = ownRecord(ProcessFields::All);
    ASSERT_EQ(record.pid, getpid());
    EXPECT_EQ(record.parentPid, getppid());
    EXPECT_EQ(record.status, ProcessStatus::Alive);
    EXPECT_EQ(record.present, ProcessFields::All);
    EXPECT_EQ(record.name, "test_macos");
    EXPECT_GT(record.startIdentity, 1'600'000'000'000'000U);

    EXPECT_EQ(ownRecord(ProcessFields::None).present, ProcessFields::None);
    EXPECT_EQ(ownRecord(ProcessFields::Disk).present, ProcessFields::Disk);
}

TEST_F(LibprocProcessSourceTest, CpuTimeAndMemoryFollowWhatTheProcessDoes)
{
    const ProcessRecord before = ownRecord(ProcessFields::All);
    constexpr std::size_t size = 64 << 20;
    std::vector<char> touched(size, 1);
    volatile std::size_t sum = 0;
    for (std::size_t round = 0; round < 8; ++round) {
        for (std::size_t index = 0; index < size; ++index) {
            touched[index] = static_cast<char>(index * 2'654'435'761U >> 13); // not compressible
            sum = sum + 1;
        }
    }
    const ProcessRecord after = ownRecord(ProcessFields::All);
    EXPECT_GE(after.physFootprint, before.physFootprint + size * 9 / 10);
    EXPECT_LE(after.physFootprint, before.physFootprint + size * 12 / 10);
    ASSERT_GT(source.timeBase(), 0);
    const double seconds = static_cast<double>(after.cpuTime - before.cpuTime) / source.timeBase();
    EXPECT_GT(seconds, 0.01);
    EXPECT_LT(seconds, 60);
}

TEST_F(LibprocProcessSourceTest, OtherUsersProcessesAreThereWhoeverAsks)
{
    const auto rows = source.readProcesses(ProcessFields::All);
    const auto first = std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row.pid == 1; });
    ASSERT_NE(first, rows.end());
    EXPECT_EQ(first->name, "launchd");
    EXPECT_EQ(first->user, 0U);
    EXPECT_GT(first->startIdentity, 1'600'000'000'000'000U);
    EXPECT_EQ(first->present, getuid() == 0 ? ProcessFields::All : ProcessFields::None) << "refused, and not 0";
    EXPECT_EQ(source.commandName(1), "launchd");
    EXPECT_EQ(source.executablePath(1, "launchd"), "/sbin/launchd");
}

TEST_F(LibprocProcessSourceTest, FullNamesComeFromTheArgumentArea)
{
    const auto path = source.executablePath(getpid(), "test_macos");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->substr(path->rfind('/') + 1), "test_macos");
    EXPECT_EQ(source.executablePath(0, ""), std::nullopt) << "the kernel has no argument area";
}

} // namespace
} // namespace meridal
