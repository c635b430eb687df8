// SPDX-License-Identifier: Apache-2.0
// Writes that fail, power that fails, a process that is killed: afterwards the file opens clean, every batch is there as
// a whole or not at all, none is missing before one that is there, and no row is there twice.

#include "tests/database/DatabaseFixture.h"
#include "tests/database/FaultyVfs.h"
#include "tests/support/SlowBuild.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <random>
#include <set>

namespace meridal::test {
namespace {

constexpr std::int64_t rowsInBatch = 10;

class DatabaseCrashTest : public DatabaseTest {
protected:
    /// The batches of a sound file, all of them whole.
    static std::vector<std::string> batchesOf(const std::filesystem::path& file)
    {
        OtherProgram reader(file);
        EXPECT_EQ(reader.value("PRAGMA integrity_check"), "ok") << file;
        if (reader.value("SELECT count(*) FROM sqlite_master WHERE name = 'rows'") == "0") {
            return {};
        }
        EXPECT_TRUE(reader.column("SELECT batch FROM rows GROUP BY batch HAVING count(*) <> 10").empty());
        return reader.column("SELECT DISTINCT batch FROM rows ORDER BY batch");
    }
    /// The newest batch; -1 when there is none. Batches 0 to the newest must be there, whole.
    static std::int64_t expectWholeBatches(const std::filesystem::path& file)
    {
        const auto batches = std::filesystem::exists(file) ? batchesOf(file) : std::vector<std::string>();
        const std::int64_t newest = batches.empty() ? -1 : std::stoll(batches.back());
        EXPECT_EQ(batches.size(), static_cast<std::size_t>(newest + 1));
        return newest;
    }
    /// Every database of the folder: the live one and those set aside.
    std::vector<std::filesystem::path> databases() const
    {
        auto files = filesWith("history.db");
        std::erase_if(files, [](const std::filesystem::path& file) {
            return file.string().ends_with("-wal") || file.string().ends_with("-shm");
        });
        return files;
    }
    /// What a power loss leaves after each of so many commits: all that was there two commits before, at least.
    void losePower(std::int64_t batches, std::int64_t step, const char* setting)
    {
        FaultyVfs vfs("meridal-power");
        std::mt19937 random(7);
        const auto item = openItem({.vfs = "meridal-power"});
        if (setting) {
            item->queryDatabase([&](SQLiteConnection& database) { static_cast<void>(database.execute(setting)); });
        }
        const auto after = folder_.root() / "after.db";
        for (std::int64_t batch = 0; batch < batches; ++batch) {
            writeBatch(*item, batch, rowsInBatch);
            if (batch % step != 0) {
                continue;
            }
            vfs.powerLoss(path(), after, random);
            const std::int64_t newest = expectWholeBatches(after);
            ASSERT_GE(newest, std::max<std::int64_t>(batch - 2, 0)) << "of batch " << batch;
            ASSERT_LE(newest, batch);
            for (const char* part : {"", "-wal", "-shm"}) {
                std::filesystem::remove(after.string() + part);
            }
        }
        item->close();
    }
    /// Commits batch after batch, counting on from what the file holds, and says so on the pipe after each.
    [[noreturn]] void commitUntilKilled(int pipe)
    {
        const auto item = openItem();
        const std::string newest = OtherProgram(path()).value("SELECT coalesce(max(batch), -1) FROM rows");
        for (std::int64_t batch = std::stoll(newest) + 1;; ++batch) {
            writeBatch(*item, batch, rowsInBatch);
            if (::write(pipe, "c", 1) != 1) {
                std::_Exit(1);
            }
        }
    }
};

TEST_F(DatabaseCrashTest, FailureAtEveryNthWriteLosesNothing)
{
    FaultyVfs vfs("meridal-nth-write");
    for (const int code : {SQLITE_IOERR_WRITE, SQLITE_FULL, SQLITE_CORRUPT}) {
        for (int nth = 2; nth <= (slowBuild ? 8 : 25); ++nth) {
            const auto item = openItem({.vfs = "meridal-nth-write"});
            vfs.failEvery(nth, code);
            for (std::int64_t batch = 0; batch < 30; ++batch) {
                writeBatch(*item, batch, rowsInBatch);
            }
            vfs.failEvery(0);
            item->commitSync();
            EXPECT_EQ(item->statistics().statementsWaiting, 0U);
            EXPECT_EQ(item->statistics().statementsDropped, 0U);
            item->close();
            if (code == SQLITE_CORRUPT) {  // files were set aside on the way; together they hold everything
                std::set<std::string> all; // one whose sync failed may be in two files: set aside, and tried again
                for (const auto& file : databases()) {
                    const auto batches = batchesOf(file);
                    all.insert(batches.begin(), batches.end());
                }
                EXPECT_EQ(all.size(), 30U) << "every " << nth;
            } else {
                EXPECT_EQ(expectWholeBatches(path()), 29) << "every " << nth << " failing with " << code;
            }
            removeAll();
        }
    }
}

TEST_F(DatabaseCrashTest, PowerLossTakesTwoBatchesAtMost)
{
    losePower(slowBuild ? 200 : 1500, 9, nullptr); // long enough for the log to be copied back and start over
}

TEST_F(DatabaseCrashTest, PowerLossAmongCheckpointsTakesTwoBatchesAtMost)
{
    losePower(slowBuild ? 60 : 300, 1, "PRAGMA wal_autocheckpoint = 20");
}

TEST_F(DatabaseCrashTest, KilledAtAnyInstantTheFileOpensClean)
{
    std::mt19937 random(11);
    std::int64_t committed = -1;
    for (int round = 0; round < (slowBuild ? 30 : 300); ++round) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ends[0]);
            commitUntilKilled(ends[1]);
        }
        ::close(ends[1]);
        std::int64_t heard = 0;
        char byte = 0;
        for (auto wanted = static_cast<std::int64_t>(random() % 6); heard < wanted; ++heard) {
            ASSERT_EQ(::read(ends[0], &byte, 1), 1);
        }
        for (auto spin = random() % 2000; spin > 0; --spin) { // somewhere inside the next commit
            pollfd wait{.fd = ends[0], .events = POLLIN, .revents = 0};
            ::poll(&wait, 1, 0);
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        while (::read(ends[0], &byte, 1) == 1) {
            ++heard;
        }
        ::close(ends[0]);
        const std::int64_t newest = expectWholeBatches(path());
        ASSERT_GE(newest, committed + heard); // what a commit has answered for is there
        ASSERT_LE(newest, committed + heard + 1);
        committed = newest;
    }
}

} // namespace
} // namespace meridal::test
