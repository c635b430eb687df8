// SPDX-License-Identifier: Apache-2.0
// How samples become rows, and whose rows a recorder goes on with.

#include "database/HistoryDatabaseController.h"
#include "history/HistoryRecorder.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

class HistoryTablesTest : public testing::Test {
protected:
    HistoryTablesTest() { machine_.context.databases = &controller_; }

    HistoryTraits traits(StorageType type) const
    {
        return {.description = "Tables",
            .columns = {"heat", "wear"},
            .storageType = type,
            .dbTablePrefix = "t",
            .dbpath = folder_.path("short.db"),
            .dbpathLong = folder_.path("long.db")};
    }
    void query(const std::function<void(SQLiteConnection&)>& block, const char* file = "short.db")
    {
        controller_.databaseWithPath(folder_.path(file))->queryDatabase(block);
    }
    std::string rows(const std::string& sql, const char* file = "short.db")
    {
        Value found;
        query([&](SQLiteConnection& database) { found = database.rows(sql).value(); }, file);
        return found.dump();
    }
    /// Of one item; absentFigure is what it lacks.
    static SampleAverages averages(double heat, double wear)
    {
        return {.values = {heat, wear},
            .lowest = {heat, wear - 1},
            .highest = {heat, wear * 1.5},
            .valueCount = 2,
            .samples = 3};
    }

    TemporaryTree folder_{TemporaryTree::Place::Memory};
    FakeMachine machine_;
    HistoryDatabaseController controller_{machine_.context};
};

TEST_F(HistoryTablesTest, ASampleIsARowOfItsOwnTableAndEachFigureInItsOwnColumn)
{
    HistoryTables ofItems(machine_.context, traits(StorageType::Items));
    for (const HistoryFile file : historyFiles) {
        ofItems.declareTables(file);
    }
    const PeriodSample sample{
        .sampleID = 7, .time = 70, .items = {{"disk", averages(absentFigure, 3)}, {"fan", averages(41, absentFigure)}}};
    ofItems.insertSample(sample, StorageIndex::Hour);
    ofItems.insertSample(sample, StorageIndex::LongTerm);
    ofItems.runDatabaseQueue();
    for (const auto& [file, prefix] : {std::pair("short.db", "hour_"), {"long.db", ""}}) {
        const std::string from = std::string("SELECT sample, uuid, time, heat, wear, wear_high FROM ") + prefix;
        EXPECT_EQ(rows(std::string("SELECT * FROM ") + prefix + "tidhistory", file), R"([{"sample":7,"time":70.0}])");
        EXPECT_EQ(rows(from + "thistory", file),
            R"([{"heat":null,"sample":7,"time":70.0,"uuid":"disk","wear":3.0,"wear_high":4.5},)"
            R"({"heat":41.0,"sample":7,"time":70.0,"uuid":"fan","wear":null,"wear_high":null}])");
    }

    HistoryTraits own = traits(StorageType::Collector);
    own.dbTablePrefix = "own";
    HistoryTables ofOne(machine_.context, own);
    ofOne.declareTables(HistoryFile::Short);
    ofOne.insertSample({.sampleID = 8, .time = 80, .own = averages(absentFigure, 5), .items = {}}, StorageIndex::Day);
    ofOne.insertSample({.sampleID = 9, .time = 90, .items = {}}, StorageIndex::Day);
    ofOne.runDatabaseQueue();
    EXPECT_EQ(rows("SELECT sample, time, empty, heat, wear FROM day_ownhistory"),
        R"([{"empty":0,"heat":null,"sample":8,"time":80.0,"wear":5.0},)"
        R"({"empty":1,"heat":null,"sample":9,"time":90.0,"wear":null}])");
}

/// Files that an earlier daemon made, one in the words of sensors: nothing in them is set aside, rows are taken up, and
/// identifiers go on.
TEST_F(HistoryTablesTest, FilesOfEarlierDaemonsAreGoneOnWith)
{
    query([](SQLiteConnection& database) {
        for (const char* sql :
            {"create table hour_tidhistory (sample integer primary key, time double)",
                "create table hour_thistory (sample integer, uuid varchar(100), time double, heat double, wear double, "
                "primary key (sample, uuid)) without rowid",
                "insert into hour_tidhistory values (500, 1699999990)",
                "insert into hour_thistory values (500, 'fan', 1699999990, 12, null)"}) {
            EXPECT_TRUE(database.execute(sql)) << sql;
        }
    });
    HistoryTraits old = traits(StorageType::Items);
    old.types = {.figure = "double", .key = "varchar(100)"};
    HistoryRecorder recorder(machine_.context, old);
    const auto fan = recorder.item("fan");
    for (int second = 0; second < 20; ++second) {
        const std::array<std::optional<double>, 2> sample = {30 + second, std::nullopt};
        fan->addSample(machine_.runtime.wallTime(), sample);
        recorder.updateHistory();
        machine_.runtime.advance(1);
    }
    recorder.runDatabaseQueue();
    EXPECT_EQ(rows("SELECT sample, heat, heat_low AS low, wear FROM hour_thistory ORDER BY sample LIMIT 3"),
        R"([{"heat":12.0,"low":null,"sample":500,"wear":null},{"heat":31.0,"low":30.0,"sample":502,"wear":null},)"
        R"({"heat":35.5,"low":33.0,"sample":503,"wear":null}])");
    EXPECT_EQ(
        rows("SELECT count(*) AS n FROM sqlite_master WHERE type = 'table' AND name LIKE 'hour%'"), R"([{"n":2}])");
    const SampleRing& ring = fan->storageForType(StorageIndex::Hour);
    ASSERT_TRUE(ring.find(500));
    EXPECT_EQ(ring.find(500)->values[0], 12);
    EXPECT_EQ(rows("SELECT name FROM sqlite_master WHERE type = 'view' AND name = 'hour_thistory_named'"),
        R"([{"name":"hour_thistory_named"}])");

    std::optional<HistoryPage> page;
    recorder.readHistory({.index = StorageIndex::Hour, .key = "fan", .until = 1.7e9, .before = {}},
        [&](const auto& answer) { page = answer; });
    machine_.runtime.runDue();
    ASSERT_TRUE(page);
    ASSERT_EQ(page->samples.rows.size(), 1U);
    EXPECT_TRUE(std::isnan(page->samples.valuesOf(0)[1])) << "absent is not zero";
}

/// Rows go with the newest 603 that were measured; empty ones go sooner.
TEST_F(HistoryTablesTest, EmptyPeriodsPushOutNoMeasurement)
{
    HistoryTables tables(machine_.context, traits(StorageType::Items));
    tables.declareTables(HistoryFile::Short);
    for (std::uint64_t sampleID = 1; sampleID <= 2000; ++sampleID) {
        PeriodSample sample{.sampleID = sampleID, .time = 6.0 * static_cast<double>(sampleID), .items = {}};
        if (sampleID <= 700 || sampleID > 1990) {
            sample.items.push_back({"fan", averages(1, 1)});
        }
        tables.insertSample(sample, StorageIndex::Hour);
        tables.removeOldSamplesAtIndex(StorageIndex::Hour, static_cast<double>(sampleID));
    }
    tables.runDatabaseQueue();
    EXPECT_EQ(rows("SELECT min(sample) AS first, count(*) AS n FROM hour_thistory"), R"([{"first":108,"n":603}])");
    EXPECT_EQ(rows("SELECT count(*) AS n FROM hour_tidhistory WHERE sample > 700"), R"([{"n":603}])");
}

} // namespace
} // namespace meridal::test
