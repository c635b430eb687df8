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

namespace meridal::test {
namespace {

constexpr std::int64_t rowsInBatch = 10;

class DatabaseCrashTest : public DatabaseTest {
protected:
    /// The newest batch; -1 when there is none. Batches 0 to the newest must be there, whole.
    static std::int64_t expectWholeBatches(const std::filesystem::path& file)
    {
        if (!std::filesystem::exists(file)) {
            return -1;
        }
        OtherProgram reader(file);
        EXPECT_EQ(reader.value("PRAGMA integrity_check"), "ok");
        if (reader.value("SELECT count(*) FROM sqlite_master WHERE name = 'rows'") == "0") {
            return -1;
        }
        EXPECT_TRUE(reader.column("SELECT batch FROM rows GROUP BY batch HAVING count(*) <> 10").empty());
        const std::int64_t newest = std::stoll(reader.value("SELECT coalesce(max(batch), -1) FROM rows"));
        EXPECT_EQ(reader.value("SELECT count(DISTINCT batch) FROM rows"), std::to_string(newest + 1));
        return newest;
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
            if (code == SQLITE_CORRUPT) { // files were set aside on the way; each is sound as far as it goes
                for (const auto& file : filesWith("history.db")) {
                    std::filesystem::remove(file);
                }
                continue;
            }
            EXPECT_EQ(expectWholeBatches(path()), 29) << "every " << nth << " failing with " << code;
            std::filesystem::remove(path());
        }
    }
}

TEST_F(DatabaseCrashTest, PowerLossLeavesWholeBatches)
{
    FaultyVfs vfs("meridal-power");
    std::mt19937 random(7);
    const auto item = openItem({.vfs = "meridal-power"});
    // A log of a few pages before it is copied back, so that losses also hit checkpoints.
    item->queryDatabase(
        [](SQLiteConnection& database) { static_cast<void>(database.execute("PRAGMA wal_autocheckpoint = 20")); });
    std::int64_t survived = -1;
    for (std::int64_t batch = 0; batch < (slowBuild ? 60 : 300); ++batch) {
        writeBatch(*item, batch, rowsInBatch);
        const auto after = folder_.root() / "after.db";
        vfs.powerLoss(path(), after, random);
        const std::int64_t newest = expectWholeBatches(after);
        EXPECT_LE(newest, batch);
        survived = std::max(survived, newest);
        for (const char* part : {"", "-wal", "-shm"}) {
            std::filesystem::remove(after.string() + part);
        }
    }
    EXPECT_GT(survived, 0);
}

/// Commits batch after batch, counting on from what the file holds, and says so on the pipe after each.
[[noreturn]] void commitUntilKilled(const std::filesystem::path& path, int pipe)
{
    FakeMachine machine;
    const auto item = std::make_shared<HistoryDatabaseItem>(machine.context, path, HistoryDatabaseItem::Limits{});
    item->declareTable(
        {.table = "rows", .create = "CREATE TABLE %@ (batch INTEGER, row INTEGER, PRIMARY KEY (batch, row))"});
    std::int64_t batch = -1;
    item->queryDatabase([&](SQLiteConnection& database) {
        static_cast<void>(database.forEachRow("SELECT coalesce(max(batch), -1) FROM rows", {},
            [&](std::span<const SqlValue> row) { batch = static_cast<std::int64_t>(sqlNumber(row[0])); }));
    });
    for (;;) {
        ++batch;
        for (std::int64_t row = 0; row < rowsInBatch; ++row) {
            item->addItem({.table = "rows", .format = "INSERT INTO %@ VALUES (?, ?)", .args = {batch, row}});
        }
        item->commitSync();
        if (::write(pipe, "c", 1) != 1) {
            std::_Exit(1);
        }
    }
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
            commitUntilKilled(path(), ends[1]);
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
