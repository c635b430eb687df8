// Pages of a table of years: whole, in order, and never long to read.

#include "history/HistoryReader.h"

#include "database/HistoryDatabaseController.h"
#include "tests/collectors/RecordingCollector.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace meridal::test {
namespace {

constexpr double start = 1.7e9; // s since 1970
constexpr std::int64_t samples = 10'000;

double timeOf(std::int64_t sample) { return start + 300.0 * static_cast<double>(sample); }

/// Ten items with a value a period, and a rare one with a single value long ago. For ten periods the clock stood in 1970.
class HistoryReaderTest : public testing::Test {
protected:
    HistoryReaderTest()
    {
        EXPECT_TRUE(database_.openInMemory());
        run("CREATE TABLE t (sample INTEGER, uuid TEXT, time REAL, id REAL, PRIMARY KEY (sample, uuid)) WITHOUT ROWID");
        run("BEGIN");
        for (std::int64_t sample = 1; sample <= samples; ++sample) {
            const double time = sample >= 9000 && sample < 9010 ? 5.0 : timeOf(sample);
            for (int item = 0; item < 10; ++item) {
                run("INSERT INTO t VALUES (?, ?, ?, ?)",
                    {sample, "item" + std::to_string(item), time, static_cast<double>(sample)});
            }
        }
        run("INSERT INTO t VALUES (?, ?, ?, ?)", {std::int64_t{10}, "rare", timeOf(10), 10.0});
        run("COMMIT");
    }
    void run(const std::string& sql, const SqlValues& args = {}) { EXPECT_TRUE(database_.execute(sql, args)); }

    /// All pages: their samples, newest first.
    std::vector<std::uint64_t> readAll(HistoryPageQuestion question)
    {
        std::vector<std::uint64_t> found;
        pages_ = 0;
        for (bool more = true; more && pages_ < 100; ++pages_) {
            const auto page = readPage(database_, "t", plan_, question);
            if (!page) {
                ADD_FAILURE() << "not read";
                break;
            }
            EXPECT_LE(page->samples.rows.size(), question.limit);
            for (std::size_t row = page->samples.rows.size(); row-- > 0;) {
                found.push_back(page->samples.rows[row].sampleID);
                EXPECT_EQ(page->samples.valuesOf(row)[0], static_cast<double>(found.back()));
            }
            more = page->more;
            EXPECT_TRUE(!more || !question.before || page->next < *question.before) << "must get on";
            question.before = page->next;
        }
        return found;
    }

    SQLiteConnection database_;
    const HistoryReadPlan plan_{.tables = {}, .addSampleMap = {{"id", 0}}, .valueCount = 1, .onlyKey = {}};
    int pages_ = 0;
};

TEST_F(HistoryReaderTest, PagesJoinUpWithoutHoleOrOverlap)
{
    const auto all =
        readAll({.index = StorageIndex::LongTerm, .key = "item3", .until = {}, .before = {}, .limit = 999});
    ASSERT_EQ(all.size(), static_cast<std::size_t>(samples));
    for (std::size_t place = 0; place < all.size(); ++place) {
        ASSERT_EQ(all[place], static_cast<std::uint64_t>(samples) - place);
    }
    EXPECT_EQ(pages_, 11);
}

TEST_F(HistoryReaderTest, WhatIsRareIsFoundAFewPagesOn)
{
    EXPECT_EQ(readAll({.key = "rare", .until = {}, .before = {}}), std::vector<std::uint64_t>{10});
    EXPECT_EQ(pages_, 5); // of 2048 identifiers each
    EXPECT_TRUE(readAll({.key = "nobody", .until = {}, .before = {}}).empty());
    EXPECT_EQ(pages_, 5);
    EXPECT_EQ(
        readAll({.key = "item1", .from = start, .until = timeOf(3), .before = {}}), (std::vector<std::uint64_t>{2, 1}));
}

TEST_F(HistoryReaderTest, NothingIsLookedForBeforeTheSpan)
{
    EXPECT_TRUE(readAll({.key = "item1", .from = 1e12, .until = {}, .before = {}}).empty());
    EXPECT_EQ(pages_, 1);
    // The periods in which the clock was wrong are no end: what was before them belongs to the span.
    const auto span = readAll({.key = "item1", .from = timeOf(8000), .until = {}, .before = {}, .limit = 1000});
    EXPECT_EQ(span.size(), 2001U - 10);
    EXPECT_EQ(span.back(), 8000U);
}

TEST_F(HistoryReaderTest, ATableThatIsNotThereIsAnEmptyPage)
{
    const auto page = readPage(database_, "nowhere", plan_, {.key = "item1", .until = {}, .before = {}});
    ASSERT_TRUE(page);
    EXPECT_TRUE(page->samples.rows.empty());
    EXPECT_FALSE(page->more);
}

/// Rows of two files, and the questions that put them back into memory.
class ReadBackTest : public testing::Test {
protected:
    class Reader final : public StatCollector {
    public:
        Reader(Context& context, StorageType type) : StatCollector(context, historyOf(type, 1))
        {
            config() = historyConfiguration(type);
            config()["sqlInsertLong"] = config()["sqlInsert"];
            config()["sqlInsertKeysLong"] = {"sample", "when"};
            setDbTablePrefix("t");
            setDbpath(context.paths.support / "short.db");
            setDbpathLong(context.paths.support / "long.db");
        }
        std::shared_ptr<StatCollectorItem> makeItem() override
        {
            return std::make_shared<StatCollectorItem>(context(), 1, StorageLayout::forHistory());
        }
    };

    ReadBackTest()
    {
        machine_.context.paths.support = folder_.root();
        machine_.context.databases = &controller_;
    }
    void query(const std::string& file, const std::function<void(SQLiteConnection&)>& block)
    {
        controller_.databaseWithPath(folder_.root() / file)->queryDatabase(block);
    }
    /// A table's rows: time is ten times the identifier, value the identifier and a little more.
    void fill(StatCollector& collector, StorageIndex index, std::int64_t rows, double more)
    {
        query(index == StorageIndex::LongTerm ? "long.db" : "short.db", [&](SQLiteConnection& database) {
            EXPECT_TRUE(collector.checkIfTablesExist(index, database, false));
            const auto items = collector.itemTableAtIndex(index);
            const std::string numbers = fmt::format(
                "WITH RECURSIVE n(i) AS (VALUES (0) UNION ALL SELECT i + 1 FROM n WHERE i < {}) ", rows - 1);
            const auto insert = [&](const std::string& into) {
                EXPECT_TRUE(database.execute(fmt::format("{} INSERT INTO {}", numbers, into))) << into;
            };
            insert(fmt::format("{} SELECT i, i * 10.0{} FROM n", *collector.tableAtIndex(index),
                items ? "" : fmt::format(", 0, i + {}", more)));
            for (const char* uuid : {"fan", "disk", "stranger"}) {
                if (items) {
                    insert(fmt::format("{} SELECT i, '{}', i * 10.0, i + {} + {} FROM n", *items, uuid, more,
                        uuid == std::string("disk") ? 5000 : 0));
                }
            }
        });
    }
    static std::vector<double> column(const std::vector<Dictionary>& rows, const char* name)
    {
        std::vector<double> values;
        for (const Dictionary& row : rows) {
            values.push_back(number(row, name).value_or(-1));
        }
        return values;
    }

    TemporaryTree folder_{TemporaryTree::Place::Memory};
    FakeMachine machine_;
    HistoryDatabaseController controller_{machine_.context};
};

TEST_F(ReadBackTest, RowsComeBackOldestFirstAndBounded)
{
    Reader collector(machine_.context, StorageType::Collector);
    EXPECT_EQ(collector.lastLongTermSample(), std::nullopt);
    fill(collector, StorageIndex::Hour, 701, 0.25);
    fill(collector, StorageIndex::LongTerm, 50, 0.5);
    const auto last = column(collector.samplesFromTable("hour_thistory"), "sample");
    ASSERT_EQ(last.size(), 603U);
    EXPECT_EQ(last.front(), 98);
    EXPECT_EQ(last.back(), 700);
    const auto upTo = column(collector.samplesFromTable("hour_thistory", 690.9), "sample");
    ASSERT_EQ(upTo.size(), 603U);
    EXPECT_EQ(upTo.front(), 88);
    EXPECT_EQ(upTo.back(), 690);
    EXPECT_EQ(column(collector.samplesFromTable("hour_thistory", 2), "value"), (std::vector<double>{0.25, 1.25, 2.25}));
    EXPECT_EQ(collector.lastLongTermSample().value().at("value"), 49.5);

    fill(collector, StorageIndex::Day, 3, 0.75);
    for (const auto index : {StorageIndex::Week, StorageIndex::Month, StorageIndex::ThreeMonths,
             StorageIndex::SixMonths, StorageIndex::Year}) {
        fill(collector, index, 2, 0);
    }
    collector.loadPreviousSamplesAtIndex(StorageIndex::Hour);
    EXPECT_EQ(collector.lastIDForType(StorageIndex::Day), 0U) << "the one storage only";
    for (std::size_t slot = 0; slot < 168; ++slot) {
        const statsample sample = collector.sampleAtIndex(SlotIndex{slot}, StorageIndex::Hour);
        ASSERT_EQ(sample.sampleID, 700 - slot);
        ASSERT_EQ(sample.time, 10.0 * static_cast<double>(700 - slot));
        ASSERT_EQ(sample.values[0], static_cast<double>(700 - slot) + 0.25);
    }
    collector.loadPreviousSamples();
    EXPECT_EQ(collector.sampleAtIndex(newest, StorageIndex::Day).values[0], 2.75);
    EXPECT_EQ(collector.lastIDForType(StorageIndex::Year), 1U) << "up to the coarsest";
    EXPECT_EQ(collector.lastIDForType(StorageIndex::Hour), 700U);
}

TEST_F(ReadBackTest, EachItemGetsItsOwnRows)
{
    Reader collector(machine_.context, StorageType::Items);
    const auto fan = collector.newItemWithKey("fan");
    const auto disk = collector.newItemWithKey("disk");
    for (const auto index : {StorageIndex::Hour, StorageIndex::Day, StorageIndex::Week, StorageIndex::Month,
             StorageIndex::ThreeMonths, StorageIndex::SixMonths, StorageIndex::Year}) {
        fill(collector, index, 100, static_cast<double>(index) / 8);
    }
    const auto value = [](const std::shared_ptr<StatCollectorItem>& item, StorageIndex index, std::size_t slot) {
        return item->sampleAtIndex(SlotIndex{slot}, index).values[0];
    };
    collector.loadPreviousSamplesAtIndex(StorageIndex::Hour); // the newest 603 rows are 201 of each
    EXPECT_EQ(value(fan, StorageIndex::Hour, 0), 99.125);
    EXPECT_EQ(value(fan, StorageIndex::Hour, 97), 2.125);
    EXPECT_EQ(value(disk, StorageIndex::Hour, 1), 5098.125);
    EXPECT_EQ(value(fan, StorageIndex::Day, 0), 0);
    EXPECT_EQ(collector.itemWithKey("stranger"), nullptr) << "a row makes no item";

    collector.setIDForInterval(StorageIndex::Hour, 60);
    collector.loadPreviousSampleItemsAtIndex(StorageIndex::Hour);
    EXPECT_EQ(fan->sampleAtIndex(newest, StorageIndex::Hour).sampleID, 60U)
        << "cleared, and read up to the clock's own";
    EXPECT_EQ(value(disk, StorageIndex::Hour, 58), 5002.125);
    EXPECT_TRUE(fan->loadedHistory());
    for (std::size_t place = 1; place <= position(StorageIndex::Year); ++place) {
        collector.setIDForInterval(static_cast<StorageIndex>(place), 99);
    }
    collector.loadPreviousSampleItems();
    EXPECT_EQ(value(fan, StorageIndex::Day, 0), 99.25);
    EXPECT_EQ(value(disk, StorageIndex::Year, 0), 5099.875);

    // One item by itself, later than the rest.
    fan->clearAllStorages();
    bool replied = false;
    collector.loadPreviousSamplesForItem(fan, [&] { replied = true; });
    EXPECT_FALSE(replied);
    machine_.runtime.runDue();
    EXPECT_TRUE(replied);
    EXPECT_EQ(value(fan, StorageIndex::Year, 0), 99.875);
    EXPECT_EQ(value(fan, StorageIndex::Hour, 3), 96.125);

    struct Watcher final : StatCollectorDelegate {
        void collectorLoadedValueForItem(StatCollector&, StatCollectorItem& item) override { loaded = &item; }
        StatCollectorItem* loaded = nullptr;
    } watcher;
    collector.addDelegate(watcher);
    disk->setLoadedHistory(false);
    collector.loadPreviousSamplesForItemFull(disk, [&] { EXPECT_EQ(watcher.loaded, disk.get()); });
    EXPECT_TRUE(disk->loadingHistory());
    machine_.runtime.runDue();
    EXPECT_FALSE(disk->loadingHistory());
    EXPECT_TRUE(disk->loadedHistory());
    EXPECT_EQ(disk->sampleWithIdentifierFull(99, StorageIndex::Hour).values[0], 5099.125);
    int replies = 0;
    collector.setDatabaseEnabled(false); // nothing to read, but an answer
    collector.loadPreviousSamplesForItem(fan, [&] { ++replies; });
    collector.loadPreviousSamplesForItemFull(fan, [&] { ++replies; });
    machine_.runtime.runDue();
    EXPECT_EQ(replies, 2);
}

TEST_F(ReadBackTest, ASampleIsARowOfItsOwnTable)
{
    Reader collector(machine_.context, StorageType::Items);
    const Dictionary sample{{"sample", 7}, {"time", 70}, {"when", 71},
        {"items",
            {{{"uuid", "fan"}, {"sample", 7}, {"value", 1}}, // no time
                {{"uuid", "disk"}, {"sample", 7}, {"time", 70}, {"value", 2}, {"empty", true}}}}};
    std::vector<std::string> lines;
    machine_.log.addListener([&](LogLevel, std::string_view line) { lines.emplace_back(line); });
    for (const auto index : {StorageIndex::Live, StorageIndex::Hour, StorageIndex::LongTerm}) {
        query(index == StorageIndex::LongTerm ? "long.db" : "short.db",
            [&](SQLiteConnection& database) { collector.checkIfTablesExist(index, database, false); });
        collector.insertSampleIntoTableAtIndex(sample, index);
    }
    collector.runDatabaseQueue();
    const auto rows = [&](const std::string& file, const std::string& table) {
        Value found;
        query(file, [&](SQLiteConnection& database) { found = database.rows("SELECT * FROM " + table).value(); });
        return found.dump();
    };
    EXPECT_EQ(rows("short.db", "hour_tidhistory"), R"([{"sample":7,"time":70.0}])");
    EXPECT_EQ(rows("long.db", "tidhistory"), R"([{"sample":7,"time":71.0}])") << "by its own keys";
    EXPECT_EQ(rows("short.db", "hour_thistory"), R"([{"sample":7,"time":null,"uuid":"fan","value":1.0}])")
        << "a missing value leaves the others where they belong";
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                  [](const std::string& line) { return line.find("missing item key - 'time'") != std::string::npos; }),
        1);
}

TEST(HistoryTables, OnlyTheLongTermStoreAsksForLongTermTables)
{
    FakeMachine machine;
    RecordingCollector collector(machine, historyOf(StorageType::Collector));
    collector.config()["sqlCreate"] = "CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time REAL)";
    collector.setDbTablePrefix("own");
    SQLiteConnection database;
    ASSERT_TRUE(database.openInMemory());
    for (const bool before : {false, true}) {
        EXPECT_EQ(collector.checkIfLongTermTablesExist(StorageIndex::Hour, database, before), before);
        EXPECT_FALSE(*database.tableExists("hour_ownhistory"));
    }
    EXPECT_TRUE(collector.checkIfLongTermTablesExist(StorageIndex::LongTerm, database, false));
    EXPECT_FALSE(collector.checkIfLongTermTablesExist(StorageIndex::LongTerm, database, false)); // there by now
}

} // namespace
} // namespace meridal::test
