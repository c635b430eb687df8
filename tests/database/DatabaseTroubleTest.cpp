// What a disk and other programs do to a database file, one trouble after another: the daemon goes on, nothing that was
// stored is deleted, what waited is written when the trouble is over, and the log says so without chattering.

#include "tests/database/DatabaseFixture.h"
#include "tests/database/FaultyVfs.h"

#include <fstream>

namespace meridal::test {
namespace {

class DatabaseTroubleTest : public DatabaseTest {
protected:
    /// A file that held 200 batches and was closed.
    void makeSoundFile()
    {
        const auto item = openItem();
        writeBatch(*item, 1, 2000);
        item->close();
        lines_.clear();
    }
    std::string batches() const { return OtherProgram(path()).value("SELECT group_concat(DISTINCT batch) FROM rows"); }
    void expectFreshFile()
    {
        const auto sizeAside = std::filesystem::file_size(path());
        const auto item = openItem();
        writeBatch(*item, 1);
        EXPECT_EQ(rowCount(), "10");
        const auto aside = filesWith(".damaged-20231114-");
        ASSERT_EQ(aside.size(), 1U);
        EXPECT_EQ(std::filesystem::file_size(aside.front()), sizeAside);
        EXPECT_EQ(linesWith("fresh one is started"), 1U);
        EXPECT_EQ(item->statistics().filesSetAside, 1U);
    }
};

TEST_F(DatabaseTroubleTest, AFileThatIsNoDatabaseIsKeptAside)
{
    folder_.write("history.db", std::string(5000, 'x'));
    expectFreshFile();
}

TEST_F(DatabaseTroubleTest, ATruncatedFileIsKeptAside)
{
    makeSoundFile();
    std::filesystem::resize_file(path(), std::filesystem::file_size(path()) / 2);
    expectFreshFile();
}

TEST_F(DatabaseTroubleTest, AFileWithRuinedPagesIsKeptAsideWhenTheyAreMet)
{
    makeSoundFile();
    const auto size = std::filesystem::file_size(path());
    std::filesystem::resize_file(path(), 4096);
    std::ofstream(path(), std::ios::app | std::ios::binary) << std::string(size - 4096, 'x');
    expectFreshFile();
}

TEST_F(DatabaseTroubleTest, ADiskThatRuinsEveryFileIsNotFilledWithThem)
{
    const auto item = openItem();
    for (int minute = 0; minute < 60; ++minute) {
        item->close();
        folder_.write("history.db", std::string(5000, 'x'));
        addBatch(*item, minute);
        item->commitSync();
        machine_.runtime.advance(60);
    }
    EXPECT_LE(filesWith(".damaged-").size(), 7U);
    item->close();
    std::filesystem::remove(path());
    item->commitSync();
    EXPECT_EQ(item->statistics().statementsWaiting, 0U);
    EXPECT_EQ(item->statistics().statementsDropped, 0U);
}

TEST_F(DatabaseTroubleTest, AFileThatVanishesIsStartedAfresh)
{
    const auto item = openItem();
    writeBatch(*item, 1);
    std::filesystem::remove(path());
    writeBatch(*item, 2);
    EXPECT_EQ(batches(), "2");

    removeAll();
    writeBatch(*item, 3);
    EXPECT_EQ(batches(), "3");

    std::filesystem::remove(path().string() + "-wal");
    writeBatch(*item, 4);
    EXPECT_EQ(batches(), "3,4");
    EXPECT_EQ(linesWith("vanished"), 1U); // once a minute
}

TEST_F(DatabaseTroubleTest, AFileThatIsReplacedIsNotMixedWithTheLogOfTheOldOne)
{
    const auto backup = folder_.root() / "backup.db";
    for (const bool closedFirst : {false, true}) {
        {
            const auto item = openItem();
            writeBatch(*item, 1, 2000);
            item->close();
            std::filesystem::copy_file(path(), backup);
            item->queryDatabase([](SQLiteConnection& database) { // whose pages lie elsewhere
                static_cast<void>(database.execute("DELETE FROM rows"));
                static_cast<void>(database.execute("CREATE TABLE IF NOT EXISTS other (a, b)"));
                static_cast<void>(database.execute("VACUUM"));
            });
            item->close();
        }
        auto item = openItem();
        for (std::int64_t batch = 100; batch < 130; ++batch) {
            writeBatch(*item, batch, 50);
        }
        std::filesystem::rename(backup, path());
        if (closedFirst) { // the daemon ends before it has noticed
            item->close();
            item = openItem();
        }
        writeBatch(*item, 1000);
        OtherProgram reader(path());
        EXPECT_EQ(reader.value("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(batches(), "1,1000");
        EXPECT_EQ(reader.value("SELECT count(*) FROM rows"), "2010");
        EXPECT_EQ(item->statistics().filesSetAside, 0U);
        EXPECT_FALSE(filesWith(".replaced-20231114-").empty()) << "the log is kept";
        item->close();
        removeAll();
    }
}

TEST_F(DatabaseTroubleTest, ALogThatCannotBeCopiedBackIsTroubleLikeAnyOther)
{
    FaultyVfs vfs("meridal-checkpoint");
    for (const int code : {SQLITE_IOERR_WRITE, SQLITE_CORRUPT}) {
        const auto item = openItem({.walBytes = 32 * 1024, .busyTimeout = 1, .vfs = "meridal-checkpoint"});
        {
            OtherProgram reader(path());
            reader.run("BEGIN");
            EXPECT_EQ(reader.value("SELECT count(*) FROM rows"), "0");
            for (std::int64_t batch = 0; batch < 20; ++batch) {
                writeBatch(*item, batch, 100);
            }
        }
        EXPECT_GT(item->statistics().statementsWaiting, 0U);
        vfs.failEvery(2, code); // the log's sync before the copying gets through, the copying does not
        item->commitSync();
        vfs.failEvery(0);
        if (code == SQLITE_CORRUPT) {
            EXPECT_EQ(item->statistics().filesSetAside, 1U);
        } else {
            EXPECT_FALSE(item->statistics().open) << "what the connection remembers is not to be trusted";
        }
        item->commitSync();
        EXPECT_EQ(item->statistics().statementsWaiting, 0U);
        EXPECT_EQ(item->statistics().statementsDropped, 0U);
        item->close();
        removeAll();
    }
}

TEST_F(DatabaseTroubleTest, AFolderThatCannotBeHadIsTriedAgain)
{
    folder_.write("state", "in the way");
    const auto file = folder_.root() / "state" / "history.db";
    const auto item = std::make_shared<HistoryDatabaseItem>(machine_.context, file, HistoryDatabaseItem::Limits{});
    EXPECT_FALSE(item->openIfNeeded());
    item->declareTable({.table = "rows", .create = create_});
    for (std::int64_t batch = 1; batch <= 20; ++batch) {
        writeBatch(*item, batch);
        machine_.runtime.advance(2);
    }
    EXPECT_EQ(linesWith("Could not open db."), 1U);
    EXPECT_EQ(item->statistics().statementsWaiting, 200U);
    folder_.remove("state");
    item->commitSync();
    EXPECT_EQ(OtherProgram(file).value("SELECT count(*) FROM rows"), "200");
    EXPECT_EQ(linesWith("can be written again"), 1U);
}

TEST_F(DatabaseTroubleTest, WhatCannotBeWrittenForLongLosesItsOldest)
{
    const auto item = openItem({.keptStatements = 100, .busyTimeout = 1});
    OtherProgram locker(path());
    ASSERT_EQ(locker.run("BEGIN IMMEDIATE"), SQLITE_OK);
    for (std::int64_t batch = 1; batch <= 15; ++batch) {
        writeBatch(*item, batch);
    }
    EXPECT_EQ(item->statistics().statementsDropped, 50U);
    EXPECT_EQ(item->statistics().batchesFailed, 15U);
    EXPECT_EQ(linesWith("kept for later"), 1U);
    locker.run("COMMIT");
    item->commitSync();
    EXPECT_EQ(
        OtherProgram(path()).value("SELECT min(batch) || ' ' || max(batch) || ' ' || count(*) FROM rows"), "6 15 100");
}

TEST_F(DatabaseTroubleTest, ADiskThatHangsCannotFillTheMemory)
{
    const auto item = openItem({.batchStatements = 20, .keptStatements = 100});
    machine_.runtime.runDue();
    for (std::int64_t batch = 1; batch <= 100; ++batch) { // nothing of it runs: the queue hangs
        addBatch(*item, batch);
        item->commit();
        EXPECT_LE(item->statistics().statementsWaiting, 200U);
    }
    EXPECT_EQ(item->statistics().statementsDropped, 800U);
    machine_.runtime.runDue();
    EXPECT_EQ(OtherProgram(path()).value("SELECT min(batch) || ' ' || max(batch) FROM rows"), "81 100");
    EXPECT_EQ(item->statistics().statementsWaiting, 0U);
}

TEST_F(DatabaseTroubleTest, AReaderThatNeverEndsCannotGrowTheLogWithoutBound)
{
    constexpr std::uintmax_t limit = 256 * 1024;
    const auto item = openItem({.walBytes = limit, .busyTimeout = 1});
    writeBatch(*item, 0);
    OtherProgram reader(path());
    reader.run("BEGIN");
    EXPECT_EQ(reader.value("SELECT count(*) FROM rows"), "10");
    const std::filesystem::path log = path().string() + "-wal";
    for (std::int64_t batch = 1; batch <= 200; ++batch) {
        writeBatch(*item, batch, 100);
        ASSERT_LT(std::filesystem::file_size(log), limit + 128 * 1024);
    }
    EXPECT_GT(item->statistics().statementsWaiting, 1000U);
    EXPECT_EQ(linesWith("a reader has held its transaction"), 1U);
    reader.run("COMMIT");
    item->commitSync();
    EXPECT_EQ(reader.value("SELECT count(*) FROM rows"), "20010");
    EXPECT_EQ(item->statistics().statementsWaiting, 0U);
}

} // namespace
} // namespace meridal::test
