// SPDX-License-Identifier: Apache-2.0
#include "base/AsioRuntime.h"
#include "tests/database/DatabaseFixture.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>

namespace meridal::test {
namespace {

class HistoryDatabaseItemTest : public DatabaseTest { };

TEST_F(HistoryDatabaseItemTest, ACommitWritesWhatWasAddedBeforeItAndNothingElse)
{
    const auto item = openItem();
    addBatch(*item, 1);
    item->commit();
    addBatch(*item, 2);
    EXPECT_EQ(rowCount(), "0"); // nothing is written on the caller's time
    machine_.runtime.runDue();
    EXPECT_EQ(rowCount(), "10");
    EXPECT_EQ(item->statistics().statementsWaiting, 10U);
    item->commitSync();
    EXPECT_EQ(rowCount(), "20");
    EXPECT_EQ(item->statistics().rowsWritten, 20U);
    EXPECT_EQ(item->statistics().batchesWritten, 2U);
    EXPECT_FALSE(item->busy());
    EXPECT_EQ(item->lastUse(), machine_.runtime.wallTime());
}

TEST_F(HistoryDatabaseItemTest, AFailingStatementDoesNotStopTheOthers)
{
    const auto item = openItem();
    writeBatch(*item, 1);
    item->addItem({.table = "rows", .format = insert_, .args = {std::int64_t{1}, std::int64_t{3}}}); // there already
    item->addItem({.table = "nowhere", .format = "INSERT INTO %@ VALUES (1)", .args = {}});
    item->addItem({.table = "rows", .format = "INSERT INTO %@ VALUES (", .args = {}});
    addBatch(*item, 2);
    item->commitSync();
    EXPECT_EQ(rowCount(), "20");
    EXPECT_EQ(item->statistics().statementsFailed, 3U);
    EXPECT_EQ(linesWith("statements failed"), 1U);
}

TEST_F(HistoryDatabaseItemTest, ValuesKeepTheirKindAndMissingOnesAreNull)
{
    const auto item = openItem();
    item->addItem({.table = "things", .format = "CREATE TABLE %@ (a, b, c, d, e)", .args = {}});
    item->addItem({.table = "things",
        .format = "INSERT INTO %@ VALUES (?, ?, ?, ?, ?)",
        .args = {sqlValue(true), sqlValue(0.5), sqlValue("caf\xe9 \xf0\x9f\x94\x8b"), sqlValue(~std::uint64_t{0})}});
    item->commitSync();
    std::vector<Dictionary> rows;
    item->queryDatabase([&](SQLiteConnection& database) { rows = *database.rows("SELECT * FROM things"); });
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].at("a"), 1);
    EXPECT_EQ(rows[0].at("b"), 0.5);
    EXPECT_EQ(rows[0].at("c"), "caf\xef\xbf\xbd \xf0\x9f\x94\x8b"); // repaired on its way out
    EXPECT_EQ(rows[0].at("d"), 18446744073709551615.0);
    EXPECT_TRUE(rows[0].at("e").is_null());
}

TEST_F(HistoryDatabaseItemTest, RowsOfOneStatementKeepEachTheirValues)
{
    const auto item = openItem();
    item->addItem({.table = "things", .format = "CREATE TABLE %@ (a, b)", .args = {}});
    const auto text = std::make_shared<const StatementText>("things", "INSERT INTO %@ VALUES (?, ?)");
    const std::vector<SqlValues> given = {{std::string("one"), std::int64_t{-1}},
        {{}, std::string("text that is longer than what was there before it")}, {std::string("t\0o", 3), std::string()},
        {2.5, std::string("short")}, {std::int64_t{1} << 62, {}}};
    for (const SqlValues& row : given) {
        item->addItem(text, row);
    }
    item->commitSync();
    std::vector<SqlValues> stored;
    item->queryDatabase([&](SQLiteConnection& database) {
        static_cast<void>(database.forEachRow("SELECT * FROM things", {},
            [&](std::span<const SqlValue> row) { stored.emplace_back(row.begin(), row.end()); }));
    });
    EXPECT_EQ(stored, given);
}

TEST_F(HistoryDatabaseItemTest, AColumnThatGoesLeavesKeptStatementsUsable)
{
    const auto item = openItem();
    writeBatch(*item, 1, 1);
    const std::string sql = "SELECT * FROM rows";
    const auto see = [&](auto change, const std::vector<std::string>& columns) {
        item->queryDatabase([&](SQLiteConnection& database) {
            ASSERT_TRUE(database.rows(sql));
            change(database);
            EXPECT_EQ(database.columns(sql).value(), columns);
            std::size_t width = 0;
            EXPECT_TRUE(database.forEachRow(sql, {}, [&](std::span<const SqlValue> row) { width = row.size(); }));
            EXPECT_EQ(width, columns.size());
            EXPECT_EQ(database.rows(sql).value().at(0).size(), columns.size());
        });
    };
    const auto run = [](const char* change) {
        return [change](SQLiteConnection& database) { ASSERT_TRUE(database.execute(change)); };
    };
    see(run("ALTER TABLE rows ADD COLUMN extra INTEGER"), {"batch", "row", "extra"});
    see(run("alter table rows add column late INTEGER"), {"batch", "row", "extra", "late"});
    see(run("ALTER TABLE rows DROP COLUMN extra"), {"batch", "row", "late"});
    see([&](SQLiteConnection&) { OtherProgram(path()).run("ALTER TABLE rows DROP COLUMN late"); }, {"batch", "row"});
    item->queryDatabase([&](SQLiteConnection& database) { // without a look at the columns first, too
        OtherProgram(path()).run("ALTER TABLE rows RENAME COLUMN row TO other; CREATE TABLE beside (a)");
        EXPECT_TRUE(database.rows(sql));
        OtherProgram(path()).run("DROP TABLE rows; CREATE TABLE rows (batch); INSERT INTO rows VALUES (7)");
        EXPECT_EQ(database.rows(sql).value().at(0).at("batch"), 7);
        EXPECT_FALSE(database.forEachRow(sql, {}, [](auto) { throw std::length_error("too long"); }));
    });
}

TEST_F(HistoryDatabaseItemTest, MoreStatementsThanAreKeptMayBeLookedAt)
{
    openItem()->queryDatabase([](SQLiteConnection& database) {
        for (int number = 0; number < 300; ++number) {
            const auto columns = database.columns(fmt::format("SELECT {} AS c{}", number, number));
            ASSERT_EQ(columns.value(), std::vector{fmt::format("c{}", number)});
        }
    });
}

TEST_F(HistoryDatabaseItemTest, BetweenBatchesNeitherPagesNorStatementsOfBeforeAreHeld)
{
    const auto item = openItem();
    writeBatch(*item, 1);
    const auto before = sqlite3_memory_used();
    item->queryDatabase([](SQLiteConnection& database) {
        for (int number = 0; number < 100; ++number) {
            ASSERT_TRUE(database.rows(fmt::format("SELECT batch + {} FROM rows", number)));
        }
    });
    writeBatch(*item, 2, 10'000); // 400 KB of pages
    EXPECT_GT(sqlite3_memory_used() - before, 100'000) << "what has just run is kept";
    writeBatch(*item, 3);
    EXPECT_LT(sqlite3_memory_used() - before, 50'000);
    EXPECT_EQ(rowCount(), "10020");
}

TEST_F(HistoryDatabaseItemTest, ManyStatementsDoNotWaitToBeTold)
{
    const auto item = openItem({.batchStatements = 100});
    addBatch(*item, 1, 250);
    machine_.runtime.runDue();
    EXPECT_EQ(rowCount(), "200");
}

TEST_F(HistoryDatabaseItemTest, AQueryThatLeavesATransactionOpenHoldsNobodyUp)
{
    const auto item = openItem();
    item->queryDatabase([](SQLiteConnection& database) { static_cast<void>(database.execute("BEGIN IMMEDIATE")); });
    writeBatch(*item, 1);
    EXPECT_EQ(rowCount(), "10");
}

TEST_F(HistoryDatabaseItemTest, FilesAreForTheirOwnerAndHisGroupOnly)
{
    const auto item = openItem();
    writeBatch(*item, 1);
    using std::filesystem::perms;
    for (const auto& file : filesWith("history.db")) {
        EXPECT_EQ(
            std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write | perms::group_read)
            << file;
    }
    EXPECT_EQ(filesWith("history.db").size(), 3U);
}

TEST(HistoryDatabaseItem, ManyThreadsShareAFile)
{
    const TemporaryTree folder(TemporaryTree::Place::Memory);
    AsioRuntime runtime;
    FakeMachine machine;
    Context context{runtime, machine.host, machine.notifications, machine.log, {}};
    const auto item =
        std::make_shared<HistoryDatabaseItem>(context, folder.root() / "history.db", HistoryDatabaseItem::Limits{});
    item->declareTable({.table = "rows", .create = "CREATE TABLE %@ (writer INTEGER, row INTEGER)"});
    const auto text = std::make_shared<const StatementText>("rows", "INSERT INTO %@ VALUES (?, ?)");
    const auto write = [&](std::int64_t writer) {
        for (std::int64_t row = 0; row < 2000; ++row) {
            SqlValues args{writer, row};
            item->addItem(text, args);
            if (row % 100 == 0) {
                item->commit();
                static_cast<void>(item->statistics());
            }
        }
    };
    std::vector<std::thread> writers;
    for (std::int64_t writer = 0; writer < 4; ++writer) {
        writers.emplace_back(write, writer);
    }
    std::for_each(writers.begin(), writers.end(), [](std::thread& writer) { writer.join(); });
    item->commitSync();
    OtherProgram reader(folder.root() / "history.db");
    EXPECT_EQ(reader.value("SELECT count(*) FROM rows"), "8000");
    // Each writer's rows in the order in which it added them.
    EXPECT_EQ(reader.value("SELECT count(*) FROM (SELECT row - lag(row) OVER (PARTITION BY writer ORDER BY rowid) AS "
                           "step FROM rows) WHERE step <> 1"),
        "0");
    item->close();
}

TEST_F(HistoryDatabaseItemTest, ATableOfAnotherLayoutIsKeptUnderADatedName)
{
    folder_.write("history.db", "");
    OtherProgram(path()).run("CREATE TABLE rows (batch INTEGER); INSERT INTO rows VALUES (7)");
    const auto item = openItem();
    writeBatch(*item, 1);
    OtherProgram reader(path());
    EXPECT_EQ(reader.value("SELECT count(*) FROM rows"), "10");
    EXPECT_EQ(reader.value("SELECT batch FROM \"rows-20231114-221320\""), "7");
    EXPECT_EQ(linesWith("another layout"), 1U);
    item->close();
    openItem(); // the layout is right now: nothing more to set aside
    EXPECT_EQ(linesWith("another layout"), 1U);
}

class HistoryDatabaseControllerTest : public DatabaseTest {
protected:
    std::shared_ptr<HistoryDatabaseItem> item()
    {
        auto item = controller_.databaseWithPath(path());
        item->declareTable({.table = "rows", .create = create_});
        return item;
    }
    HistoryDatabaseController controller_{machine_.context};
};

TEST_F(HistoryDatabaseControllerTest, OneItemAFileName)
{
    const auto item = controller_.databaseWithPath(path());
    EXPECT_EQ(item, controller_.databaseWithPath(folder_.root() / "elsewhere" / "history.db"));
    EXPECT_NE(item, controller_.databaseWithPath(folder_.root() / "other.db"));
    EXPECT_EQ(controller_.databaseWithPath({}), nullptr);
    EXPECT_EQ(item->queue()->label(), "dbqueue-history.db");
    EXPECT_EQ(controller_.statistics().size(), 2U);
    controller_.deleteDatabase(path());
    EXPECT_TRUE(filesWith("history.db").empty());
}

TEST_F(HistoryDatabaseControllerTest, ClosingWritesWhatWaits)
{
    const auto item = this->item();
    addBatch(*item, 1);
    controller_.commitAllSync();
    EXPECT_EQ(rowCount(), "10");
    addBatch(*item, 2);
    controller_.closeAll();
    EXPECT_EQ(rowCount(), "20");
    EXPECT_TRUE(controller_.statistics().empty());
}

TEST_F(HistoryDatabaseControllerTest, AFileThatWasClosedHasOneConnectionAndItsTablesAgain)
{
    const auto kept = item(); // by somebody who does not ask again
    writeBatch(*kept, 1);
    controller_.closeDatabase(path());
    EXPECT_TRUE(controller_.statistics().empty());
    writeBatch(*kept, 2);
    writeBatch(*controller_.databaseWithPath(path()), 3);
    EXPECT_EQ(rowCount(), "30");

    controller_.deleteDatabase(path());
    writeBatch(*controller_.databaseWithPath(path()), 4);
    EXPECT_EQ(rowCount(), "10");

    const auto backup = folder_.root() / "backup.db"; // from before there was such a table
    folder_.write("backup.db", "");
    OtherProgram(backup).run("CREATE TABLE other (a)");
    EXPECT_TRUE(controller_.restoreBackup(backup, path()));
    writeBatch(*kept, 5);
    writeBatch(*controller_.databaseWithPath(path()), 6);
    EXPECT_EQ(rowCount(), "20");
    EXPECT_TRUE(filesWith(".replaced").empty());
}

TEST_F(HistoryDatabaseControllerTest, ABackupTakesTheFilesPlaceOnlyWhenItIsADatabase)
{
    const auto item = this->item();
    writeBatch(*item, 1);
    item->close();
    const auto backup = folder_.root() / "backup.db";
    std::filesystem::copy_file(path(), backup);
    item->openIfNeeded();
    writeBatch(*item, 2);

    EXPECT_FALSE(controller_.restoreBackup(folder_.root() / "missing.db", path()));
    EXPECT_EQ(rowCount(), "20");
    EXPECT_TRUE(controller_.restoreBackup(backup, path()));
    EXPECT_EQ(rowCount(), "10");
    folder_.write("bad.db", std::string(8192, 'x'));
    EXPECT_FALSE(controller_.restoreBackup(folder_.root() / "bad.db", path()));
    EXPECT_TRUE(filesWith("history.db").empty());
}

} // namespace
} // namespace meridal::test
