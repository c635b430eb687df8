// SPDX-License-Identifier: Apache-2.0
// Database files on real disks that are full or read-only: a small file system in memory is mounted for each test.

#include "collectors/StatCollector.h"
#include "history/HistoryRecorder.h"
#include "tests/database/DatabaseFixture.h"
#include "tests/support/FakeHost.h"

#include <fstream>
#include <sys/mount.h>

namespace meridal::test {
namespace {

/// A small file system of its own, which only root can have.
class SmallDisk {
public:
    explicit SmallDisk(const std::filesystem::path& folder) : folder_(folder)
    {
        std::filesystem::create_directories(folder);
        mounted_ = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=8m") == 0;
    }
    ~SmallDisk()
    {
        if (mounted_) {
            ::umount2(folder_.c_str(), MNT_DETACH);
        }
    }
    bool mounted() const { return mounted_; }
    bool setReadOnly(bool readOnly) const
    {
        const unsigned long flags = MS_REMOUNT | static_cast<unsigned long>(readOnly ? MS_RDONLY : 0);
        return ::mount("tmpfs", folder_.c_str(), "tmpfs", flags, "size=8m") == 0;
    }

private:
    std::filesystem::path folder_;
    bool mounted_ = false;
};

class SmallDiskTest : public DatabaseTest {
protected:
    void SetUp() override
    {
        if (!disk.mounted()) {
            GTEST_SKIP() << "a file system of limited size, or a read-only one, takes the right to mount";
        }
        item->declareTable({.table = "rows", .create = create_});
    }

    const SmallDisk disk{folder_.root() / "disk"};
    const std::filesystem::path file = folder_.root() / "disk" / "history.db";
    const std::shared_ptr<HistoryDatabaseItem> item =
        std::make_shared<HistoryDatabaseItem>(machine_.context, file, HistoryDatabaseItem::Limits{});
};

TEST_F(SmallDiskTest, AFullDiskLosesNothingOnceThereIsRoomAgain)
{
    std::int64_t batch = 0;
    for (; batch < 3; ++batch) {
        writeBatch(*item, batch);
    }
    {
        std::ofstream(folder_.root() / "disk" / "filler", std::ios::binary) << std::string(8 * 1024 * 1024, 'x');
    }
    for (; batch < 60; ++batch) {
        writeBatch(*item, batch, 100);
    }
    EXPECT_GT(item->statistics().batchesFailed, 0U);
    EXPECT_GT(item->statistics().statementsWaiting, 0U);
    EXPECT_LE(linesWith("history.db"), 2U);
    std::filesystem::remove(folder_.root() / "disk" / "filler");
    item->commitSync();
    EXPECT_EQ(item->statistics().statementsWaiting, 0U);
    EXPECT_EQ(OtherProgram(file).value("SELECT count(*) FROM rows"), std::to_string(3 * 10 + 57 * 100));
    EXPECT_EQ(OtherProgram(file).value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(item->statistics().filesSetAside, 0U);
}

TEST_F(SmallDiskTest, AReadOnlyDiskIsWaitedFor)
{
    writeBatch(*item, 1);
    item->close();
    ASSERT_TRUE(disk.setReadOnly(true));
    writeBatch(*item, 2);
    writeBatch(*item, 3);
    EXPECT_EQ(item->statistics().statementsWaiting, 20U);
    ASSERT_TRUE(disk.setReadOnly(false));
    item->commitSync();
    EXPECT_EQ(OtherProgram(file).value("SELECT count(*) FROM rows"), "30");
    EXPECT_EQ(item->statistics().filesSetAside, 0U);
}

class MeasuringCollector final : public StatCollector {
public:
    MeasuringCollector(Context& context, const HistoryTraits& traits)
        : StatCollector(context), history_(context, traits)
    {
    }
    void updateStats() override
    {
        const std::optional<double> one = 1;
        history_.own().addSample(context().runtime.wallTime(), {&one, 1});
    }
    void updateHistory() override { history_.updateHistory(); }

private:
    HistoryRecorder history_;
};

/// A mount point can be neither opened nor renamed. The other file does not wait for it, and it joins when it is free.
TEST_F(SmallDiskTest, AMountPointInPlaceOfTheLongTermFileHoldsUpNothingElse)
{
    HistoryDatabaseController databases(machine_.context);
    machine_.context.databases = &databases;
    MeasuringCollector collector(machine_.context,
        {.description = "Measuring",
            .columns = {"value"},
            .storageType = StorageType::Collector,
            .dbTablePrefix = "disk",
            .dbpath = path(),
            .dbpathLong = folder_.root() / "disk"});
    collector.startLogging();
    machine_.runtime.advance(700);
    databases.commitAllSync();
    EXPECT_GT(std::stoi(OtherProgram(path()).value("SELECT count(*) FROM hour_diskhistory")), 100);
    ASSERT_EQ(::umount2((folder_.root() / "disk").c_str(), MNT_DETACH), 0);
    machine_.runtime.advance(700);
    databases.commitAllSync();
    EXPECT_EQ(OtherProgram(folder_.root() / "disk").value("SELECT count(*) FROM diskhistory"), "3");
    EXPECT_GE(linesWith("cannot be used, nor moved aside"), 1U);
    EXPECT_EQ(linesWith("stored history cannot be read"), 1U);
}

} // namespace
} // namespace meridal::test
