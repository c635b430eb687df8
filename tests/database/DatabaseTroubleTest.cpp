// SPDX-License-Identifier: Apache-2.0
// What a disk and other programs do to a database file, one trouble after another: the daemon goes on, nothing that was
// stored is deleted, what waited is written when the trouble is over, and the log says so without chattering.

#include "tests/database/DatabaseFixture.h"
#include "tests/database/FaultyVfs.h"

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>

namespace meridal::test {
namespace {

namespace fs = std::filesystem;

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
    /// Keeps file and log of a process that was killed when it had written batch 1, and nothing else.
    void keepOpenFile(const std::string& file, const std::string& log)
    {
        const auto item = openItem();
        writeBatch(*item, 1);
        fs::copy_file(path(), folder_.root() / "kept");
        fs::copy_file(path().string() + "-wal", folder_.root() / "kept-wal");
        item->close();
        removeAll();
        fs::rename(folder_.root() / "kept", folder_.root() / file);
        fs::rename(folder_.root() / "kept-wal", folder_.root() / log);
        lines_.clear();
    }
    std::string batches() const { return OtherProgram(path()).value("SELECT group_concat(DISTINCT batch) FROM rows"); }
};

TEST_F(DatabaseTroubleTest, WhatIsInTheWayIsRenamedAndRecordingGoesOn)
{
    const std::string file = path().string();
    const auto patch = [&](std::size_t offset, const std::string& bytes) { // of a sound file's header
        makeSoundFile();
        std::fstream header(file, std::ios::in | std::ios::out | std::ios::binary);
        header.seekp(static_cast<std::streamoff>(offset));
        header << bytes;
    };
    struct Case {
        const char* what;
        std::function<void()> make;
        const char* rows = "1";
        std::uintmax_t bytesAside = 0; ///< of a file that is kept as it was
    };
    const Case cases[] = {
        {"no database", [&] { folder_.write("history.db", std::string(5000, 'x')); }, "1", 5000},
        {"a folder", [&] { fs::create_directories(file + "/inner"); }},
        {"a FIFO", [&] { ::mkfifo(file.c_str(), 0600); }},
        {"a link to a device", [&] { fs::create_symlink("/dev/zero", file); }},
        {"a link that leads nowhere", [&] { fs::create_symlink("/nowhere/at.all", file); }},
        {"a link to itself", [&] { fs::create_symlink(file, file); }},
        {"an unknown schema format", [&] { patch(44, std::string("\0\0\0\x63", 4)); }},
        {"a version that is only read", [&] { patch(18, "\x07"); }, "2001"},
        {"a folder for a log", [&] { makeSoundFile(), fs::remove(file + "-wal"), fs::create_directory(file + "-wal"); },
            "2001"},
        {"a FIFO for an index",
            [&] { makeSoundFile(), fs::remove(file + "-shm"), ::mkfifo((file + "-shm").c_str(), 0600); }, "2001"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.what);
        one.make();
        {
            const auto item = openItem();
            writeBatch(*item, 5, 1);
            EXPECT_EQ(rowCount(), one.rows);
            const auto aside = filesWith("history.db.damaged-20231114-");
            ASSERT_FALSE(aside.empty());
            EXPECT_TRUE(one.bytesAside == 0 || fs::file_size(aside.front()) == one.bytesAside);
            EXPECT_EQ(linesWith("kept as"), 1U);
            EXPECT_EQ(item->statistics().filesSetAside, linesWith("fresh one is started"));
        }
        removeAll();
        lines_.clear();
    }
}

TEST_F(DatabaseTroubleTest, AFileOfAnotherUserIsRenamedAndReadWhereItCanBe)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make such a file";
    }
    for (const mode_t mode : {mode_t{0600}, mode_t{0644}}) {
        makeSoundFile();
        const pid_t child = ::fork();
        if (child == 0) { // an ordinary user, to whom the folder belongs
            std::filesystem::permissions(path(), static_cast<std::filesystem::perms>(mode));
            const bool done = ::chown(folder_.root().c_str(), 12345, 12345) == 0 && ::setgroups(0, nullptr) == 0
                && ::setgid(12345) == 0 && ::setuid(12345) == 0;
            const auto item = openItem();
            writeBatch(*item, 5, 1);
            std::_Exit(done && rowCount() == (mode == 0600U ? "1" : "2001") && linesWith("another user") == 1 ? 0 : 1);
        }
        int status = 1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << std::oct << mode;
        ASSERT_EQ(::chown(folder_.root().c_str(), 0, 0), 0);
        removeAll();
    }
}

TEST_F(DatabaseTroubleTest, AnEmptyFileIsNotTakenForANewOneInSilence)
{
    folder_.write("history.db", "");
    openItem()->close();
    EXPECT_EQ(linesWith("is an empty file"), 1U);
    for (const bool isThere : {true, false}) {
        removeAll();
        keepOpenFile("file", "log");
        if (isThere) {
            folder_.write("history.db", "");
        }
        fs::rename(folder_.root() / "log", path().string() + "-wal");
        const auto item = openItem();
        writeBatch(*item, 2);
        EXPECT_EQ(batches(), "1,2") << "all that was recorded is in the log";
    }
}

/// A process that is killed, or a disk that fails, at any moment of the way from a damaged file to a fresh one.
TEST_F(DatabaseTroubleTest, WhatIsSetAsideIsReadToItsEndInALaterRun)
{
    FaultyVfs vfs("meridal-salvage");
    const auto makeCutFile = [&] {
        removeAll();
        makeSoundFile();
        fs::resize_file(path(), fs::file_size(path()) * 3 / 4);
    };
    makeCutFile();
    openItem()->close();
    const std::string readable = rowCount();
    ASSERT_GT(std::stoi(readable), 500);
    int cutShort = 0;
    for (const int code : {SQLITE_FULL, SQLITE_IOERR_WRITE, SQLITE_CORRUPT}) {
        for (int nth = 1; nth <= 40; ++nth) {
            makeCutFile();
            vfs.failEvery(nth, code);
            openItem({.vfs = "meridal-salvage"})->close();
            vfs.failEvery(0);
            cutShort += filesWith(".salvage").empty() ? 0 : 1;
            openItem()->close();
            EXPECT_EQ(rowCount(), readable) << "write " << nth << " failed with " << code;
            EXPECT_TRUE(filesWith(".salvage").empty());
        }
    }
    EXPECT_GT(cutShort, 30);

    const std::string aside = path().string() + ".damaged-20231114-000000";
    const fs::path note = path().string() + ".salvage";
    for (const bool logCanBeMoved : {true, false}) { // killed after the file, before its log
        removeAll();
        keepOpenFile(fs::path(aside).filename(), "history.db-wal");
        fs::create_symlink(fs::path(aside).filename(), note);
        if (!logCanBeMoved) {
            fs::create_directories(aside + "-wal/inner");
        }
        EXPECT_EQ(openItem()->openIfNeeded(), logCanBeMoved);
        EXPECT_EQ(fs::exists(path()), logCanBeMoved) << "SQLite deletes a log that has no file";
        EXPECT_GT(fs::file_size(logCanBeMoved ? aside + "-wal" : path().string() + "-wal"), 0U);
    }
    fs::remove_all(aside + "-wal");
    openItem()->close();
    EXPECT_EQ(batches(), "1");
    fs::create_symlink("history.db.damaged-20231114-000001", note); // killed before the file was renamed
    openItem()->close();
    EXPECT_EQ(batches(), "1");
    EXPECT_TRUE(filesWith(".salvage").empty());
}

TEST_F(DatabaseTroubleTest, ADamagedPageCostsItsOwnRowsOnly)
{
    constexpr std::int64_t pageSize = 4096;
    const auto makeTables = [&](HistoryDatabaseItem& item) {
        for (const char* table : {"plain", "numbered", "keyed"}) {
            const std::string layout = table == std::string("plain") ? "(sample INTEGER, value REAL)"
                : table == std::string("numbered")
                ? "(sample INTEGER PRIMARY KEY AUTOINCREMENT, value REAL)"
                : "(sample INTEGER, uuid TEXT, value REAL, PRIMARY KEY (sample, uuid)) WITHOUT ROWID";
            item.declareTable({.table = table, .create = "CREATE TABLE %@ " + layout});
        }
    };
    {
        const auto item = openItem();
        makeTables(*item);
        item->queryDatabase([](SQLiteConnection& database) {
            const char* numbers = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) ";
            for (const std::string insert :
                {"INSERT INTO plain SELECT i, i * 0.5 FROM n", "INSERT INTO numbered SELECT i, i * 0.5 FROM n",
                    "INSERT INTO keyed SELECT i / 5, i % 5, 1 FROM n"}) {
                ASSERT_TRUE(database.execute(numbers + insert));
            }
            ASSERT_TRUE(database.execute("DELETE FROM numbered WHERE sample > 4990"));
        });
        item->close();
    }
    const std::int64_t pages = static_cast<std::int64_t>(std::filesystem::file_size(path())) / pageSize;
    std::vector<int> roots;
    for (const std::string& root : OtherProgram(path()).column("SELECT rootpage FROM sqlite_master")) {
        roots.push_back(std::stoi(root));
    }
    int ruined = 0;
    for (std::int64_t page = 12; page < pages; page += 8) { // some pages of each table, never a root
        if (std::find(roots.begin(), roots.end(), page + 1) == roots.end()) {
            std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(page * pageSize);
            file << std::string(pageSize, 'x');
            ++ruined;
        }
    }
    ASSERT_GE(ruined, 5);
    const auto item = openItem();
    makeTables(*item);
    item->addItem({.table = "numbered", .format = "INSERT INTO %@ (value) VALUES (?)", .args = {1.0}});
    item->commitSync();
    OtherProgram reader(path());
    EXPECT_EQ(reader.value("PRAGMA integrity_check"), "ok");
    std::int64_t rows = 0;
    for (const std::string table : {"plain", "numbered", "keyed"}) {
        const std::int64_t count = std::stoll(reader.value("SELECT count(*) FROM " + table));
        EXPECT_GT(count, 3500) << table;
        rows += count;
    }
    EXPECT_LT(rows, 14'991);
    EXPECT_GT(rows, 14'991 - ruined * 600) << "a page holds some 400 rows, half of them when it was split";
    EXPECT_EQ(reader.value("SELECT count(*) FROM plain WHERE rowid <> sample OR value <> sample * 0.5"), "0");
    EXPECT_EQ(reader.value("SELECT max(sample) FROM numbered"), "5001") << "a number is never given out twice";
    EXPECT_EQ(linesWith("rows of 4 tables were read out of"), 1U);
    EXPECT_EQ(linesWith("not all of"), 1U);
    EXPECT_EQ(item->statistics().filesSetAside, 1U);
}

TEST_F(DatabaseTroubleTest, WhatACutFileStillHoldsIsReadOutOfIt)
{
    makeSoundFile();
    OtherProgram(path()).run("PRAGMA ignore_check_constraints = ON; CREATE TABLE odd (a INTEGER CHECK (abs(a) >= 0)); "
                             "INSERT INTO odd VALUES (1), (-9223372036854775808), (3)"); // whose abs() is an error
    {
        const auto item = openItem();
        writeBatch(*item, 3, 4000);
        item->close();
    }
    std::filesystem::resize_file(path(), std::filesystem::file_size(path()) * 3 / 4);
    const auto item = openItem();
    writeBatch(*item, 2);
    EXPECT_EQ(OtherProgram(path()).value("SELECT group_concat(a) FROM odd"), "1,3");
    EXPECT_EQ(linesWith("; 1 rows could not be written"), 1U);
    EXPECT_EQ(filesWith(".damaged-20231114-").size(), 1U);
    EXPECT_EQ(item->statistics().filesSetAside, 1U);
    EXPECT_GT(std::stoi(rowCount()), 500) << batches();
}

TEST_F(DatabaseTroubleTest, ATableThatVanishesIsMadeAgainAndNothingIsLeftOut)
{
    const auto item = openItem();
    writeBatch(*item, 1);
    for (const char* sql : {"DROP TABLE rows", "ALTER TABLE rows RENAME COLUMN row TO other"}) {
        OtherProgram(path()).run(sql);
        writeBatch(*item, 2);
        EXPECT_EQ(batches(), "2") << sql;
    }
    EXPECT_EQ(linesWith("a table was gone"), 1U);
    EXPECT_EQ(item->statistics().statementsFailed, 0U);
    OtherProgram(path()).run("DROP TABLE rows");
    item->queryDatabase([](SQLiteConnection& database) { static_cast<void>(database.execute("DELETE FROM rows")); });
    EXPECT_EQ(rowCount(), "0");
    EXPECT_EQ(linesWith("not read or not written: "), 1U);
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
    EXPECT_EQ(filesWith(".damaged-").size(), 5U);
    EXPECT_GT(linesWith("such files are kept already"), 0U);
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
    EXPECT_TRUE(item->statistics().failing);
    EXPECT_EQ(linesWith("kept for later"), 1U);
    locker.run("COMMIT");
    item->commitSync();
    EXPECT_FALSE(item->statistics().failing);
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
