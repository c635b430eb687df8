// SPDX-License-Identifier: Apache-2.0
// The whole chain on virtual time and real files: live samples, averages of averages, gaps, rows, pruning, restarts.
//
// A year passes for a collector whose samples are its own and for one whose samples are its items'. The machine is awake
// for some minutes at a time and for sixteen hours once, second by second, and asleep or switched off for the rest; the
// daemon is stopped or killed at random instants, and the wall clock steps both ways. Beside it runs a plain reference
// that keeps every sample in lists and works each average out from its definition.

#include "database/HistoryDatabaseController.h"
#include "history/HistoryReader.h"
#include "tests/database/FaultyVfs.h"
#include "tests/history/HistoryReference.h"
#include "tests/support/SlowBuild.h"
#include "tests/support/TemporaryTree.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <random>
#include <set>

namespace meridal::test {
namespace {

constexpr double hour = 3600;
constexpr double day = 24 * hour;

class HistoryChainTest : public testing::Test {
protected:
    HistoryChainTest() { machine_.context.paths.support = folder_.root(); }

    void start(const HistoryDatabaseItem::Limits& limits = {})
    {
        controller_ = std::make_unique<HistoryDatabaseController>(machine_.context, limits);
        machine_.context.databases = controller_.get();
        own_ = std::make_unique<ChainCollector>(machine_.context, StorageType::Collector, ownReference_, random_);
        items_ = std::make_unique<ChainCollector>(machine_.context, StorageType::Items, itemReference_, random_);
        own_->startLogging();
        items_->startLogging();
    }
    /// Ends the daemon, in good order or by a kill.
    void stop(bool killed)
    {
        if (!killed) {
            controller_->commitAllSync();
        }
        own_.reset();
        items_.reset();
        for (const auto& [name, figures] : controller_->statistics()) {
            EXPECT_EQ(figures.statementsFailed, 0U) << name;
        }
        machine_.context.databases = nullptr;
        controller_.reset();
        forget(ownReference_, "ownhistory");
        forget(itemReference_, "itemidhistory");
    }
    std::filesystem::path fileOf(StorageIndex index) const
    {
        return folder_.root() / (index == StorageIndex::LongTerm ? "long/chainlong.db" : "short/chain.db");
    }
    static std::string tableOf(StorageIndex index, const std::string& stem)
    {
        return std::string(storageConstants[position(index)].tablePrefix) + stem;
    }
    /// Takes what was not written out of the reference; in the files' place there is then the newest written row.
    void forget(Reference& reference, const std::string& stem)
    {
        std::array<std::int64_t, storageCount> newest = {};
        for (std::size_t index = 1; index < storageCount; ++index) {
            const auto storage = static_cast<StorageIndex>(index);
            const auto rows = read(storage, "SELECT coalesce(max(sample), -1) FROM " + tableOf(storage, stem));
            newest[index] = rows.empty() ? -1 : static_cast<std::int64_t>(sqlNumber(rows[0][0]));
        }
        for (auto& [key, series] : reference.series) {
            series.restart(newest);
        }
    }
    /// A file's place is taken by what cannot be renamed, which here is a folder that is none.
    void moveAway(StorageIndex index)
    {
        const auto folder = fileOf(index).parent_path();
        std::filesystem::rename(folder, folder.string() + ".away");
        std::ofstream(folder) << "in the way";
    }
    void moveBack(StorageIndex index)
    {
        const auto folder = fileOf(index).parent_path();
        std::filesystem::remove(folder);
        std::filesystem::rename(folder.string() + ".away", folder);
    }
    std::vector<SqlValues> read(StorageIndex index, const std::string& sql) const
    {
        std::vector<SqlValues> rows;
        SQLiteConnection database;
        if (std::filesystem::exists(fileOf(index)) && database.open(fileOf(index), {})) {
            static_cast<void>(database.forEachRow(
                sql, {}, [&](std::span<const SqlValue> row) { rows.emplace_back(row.begin(), row.end()); }));
        }
        return rows;
    }
    double single(StorageIndex index, const std::string& sql) const
    {
        const auto rows = read(index, sql);
        return rows.size() == 1 ? sqlNumber(rows[0][0]) : -1;
    }
    double measuredRows(double until);
    double between(double from, double to) { return std::uniform_real_distribution<double>(from, to)(random_); }

    void liveAndSleep();
    void checkTables(const Reference& reference, const std::string& stem, bool perItem);
    static std::set<std::uint64_t> keptIdentifiers(const Reference& reference, StorageIndex index);
    struct Expectation {
        std::set<std::uint64_t> kept; ///< identifiers
        double after = 0;             ///< s since 1970
    };
    static void checkTable(
        const Expectation& expected, const std::vector<SqlValues>& rows, const std::vector<Sample>& list, bool all);
    /// Later rows are in their table as they were written.
    double notThinned(StorageIndex index) const
    {
        return index == StorageIndex::LongTerm ? machine_.runtime.wallTime() - 92 * day : -1;
    }

    TemporaryTree folder_{TemporaryTree::Place::Memory};
    FakeMachine machine_;
    std::mt19937 random_{20231114};
    Reference ownReference_;
    Reference itemReference_;
    std::unique_ptr<HistoryDatabaseController> controller_;
    std::unique_ptr<ChainCollector> own_;
    std::unique_ptr<ChainCollector> items_;
};

/// Some minutes awake, then whatever comes: sleep, a clock that steps, a restart, a kill, a day switched off.
void HistoryChainTest::liveAndSleep()
{
    machine_.runtime.advance(between(10, 12 * 60));
    const auto event = random_() % 8;
    if (event < 2) {
        machine_.runtime.stepWallClock(event == 0 ? between(-2, 2) * hour : between(-20, 20));
    } else if (event < 4) {
        stop(random_() % 2 == 0);
        machine_.runtime.sleepMachine(between(0, event == 2 ? 300 : 12 * day));
        start();
    } else {
        machine_.runtime.sleepMachine(between(0, event == 4 ? 12 * day : 8 * day));
    }
}

/// Identifiers that a table must still have: the newest 603, and the newest 603 with a measurement.
std::set<std::uint64_t> HistoryChainTest::keptIdentifiers(const Reference& reference, StorageIndex index)
{
    std::set<std::uint64_t> measured;
    std::set<std::uint64_t> kept;
    for (const auto& [key, series] : reference.series) {
        const auto& list = series.list(index);
        for (const Sample& sample : list) {
            if (index == StorageIndex::LongTerm || sample.sampleID + 602 >= list.back().sampleID) {
                kept.insert(sample.sampleID);
            }
            if (!sample.empty) {
                measured.insert(sample.sampleID);
            }
        }
    }
    kept.insert(measured.size() > 603 ? std::prev(measured.end(), 603) : measured.begin(), measured.end());
    return kept;
}

void HistoryChainTest::checkTable(
    const Expectation& expected, const std::vector<SqlValues>& rows, const std::vector<Sample>& list, bool all)
{
    ASSERT_FALSE(list.empty());
    std::vector<Sample> wanted;
    std::copy_if(list.begin(), list.end(), std::back_inserter(wanted), [&](const Sample& sample) {
        return expected.kept.count(sample.sampleID) > 0 && (all || !sample.empty) && sample.time > expected.after;
    });
    ASSERT_EQ(rows.size(), wanted.size());
    for (std::size_t row = 0; row < rows.size(); ++row) {
        ASSERT_EQ(sqlNumber(rows[row][0]), static_cast<double>(wanted[row].sampleID));
        ASSERT_EQ(sqlNumber(rows[row][1]), wanted[row].time);
        if (rows[row].size() > 2 && !wanted[row].empty) {
            ASSERT_NEAR(sqlNumber(rows[row][2]), wanted[row].value, 1e-6);
            const bool isWide = wanted[row].low < wanted[row].high;
            ASSERT_EQ(!std::holds_alternative<std::monostate>(rows[row][3]), isWide) << wanted[row].sampleID;
            ASSERT_EQ(sqlNumber(rows[row][3]), isWide ? wanted[row].low : 0);
            ASSERT_EQ(sqlNumber(rows[row][4]), isWide ? wanted[row].high : 0);
        }
    }
}

void HistoryChainTest::checkTables(const Reference& reference, const std::string& stem, bool perItem)
{
    const std::string bands = "sample, time, value, value_low, value_high";
    for (std::size_t place = 1; place < storageCount; ++place) {
        const auto index = static_cast<StorageIndex>(place);
        SCOPED_TRACE(stem + " storage " + std::to_string(place));
        const Expectation expected{keptIdentifiers(reference, index), notThinned(index)};
        const auto rows = [&](const std::string& columns, const std::string& table, const std::string& where = "") {
            return read(index,
                fmt::format("SELECT {} FROM {} WHERE time > {}{} ORDER BY sample", columns,
                    tableOf(index, stem + table), notThinned(index), where));
        };
        if (!perItem) {
            checkTable(expected, rows(bands, "history"), reference.series.at("own").list(index), true);
            continue;
        }
        for (const std::string key : itemKeys) {
            const auto& list = reference.series.at(key).list(index);
            checkTable(expected, rows("sample, time", "idhistory"), list, true);
            checkTable(expected, rows(bands, "history", " AND uuid = '" + key + "'"), list, false);
        }
    }
}

TEST_F(HistoryChainTest, AYearOfSamplesEndsUpInTheTables)
{
    start();
    const double begin = machine_.runtime.wallTime();
    const double length = (slowBuild ? 4 : 365) * day;
    bool longDay = false;
    while (machine_.runtime.wallTime() < begin + length) {
        liveAndSleep();
        if (!longDay && machine_.runtime.wallTime() > begin + length / 4) {
            longDay = true;
            machine_.runtime.advance(16 * hour);
        }
    }
    machine_.runtime.advance(600);
    stop(false);
    EXPECT_EQ(ownReference_.wrong, 0U) << ownReference_.firstWrong;
    EXPECT_EQ(itemReference_.wrong, 0U) << itemReference_.firstWrong;
    EXPECT_GT(ownReference_.measured, slowBuild ? 60U : 10'000U);
    EXPECT_GT(itemReference_.measured, slowBuild ? 180U : 30'000U);
    checkTables(ownReference_, "own", false);
    checkTables(itemReference_, "item", true);
}

TEST_F(HistoryChainTest, AnItemThatComesBackFindsItsHistory)
{
    start();
    machine_.runtime.advance(20 * 60);
    stop(false);
    start();
    machine_.runtime.advance(10);
    const auto kept = [this]() -> const SampleRing& {
        return items_->samples.at(itemKeys[0])->storageForType(StorageIndex::Hour);
    };
    EXPECT_GT(kept().newestID(), 150U);
    EXPECT_GT(kept()[SlotIndex{100}].sampleID, 0U);
    items_->samples.at(itemKeys[0]).reset();
    machine_.runtime.advance(10);
    items_->samples.at(itemKeys[0]) = items_->history.item(itemKeys[0]);
    EXPECT_EQ(kept().newestID(), 0U);
    machine_.runtime.advance(10);
    EXPECT_GT(kept()[SlotIndex{100}].sampleID, 0U);
    EXPECT_EQ(kept()[SlotIndex{1}].sampleID + 1, kept().newestID());
}

/// A machine without a battery for its clock starts in 1970, and is put right when the network is there.
TEST_F(HistoryChainTest, AStartInThePastCostsNoHistory)
{
    start();
    machine_.runtime.advance(16 * hour);
    double right = machine_.runtime.wallTime();
    for (const bool restarts : {false, true, false}) { // while the clock is wrong
        stop(false);
        machine_.runtime.stepWallClock(5 - machine_.runtime.wallTime());
        start();
        machine_.runtime.advance(60);
        if (restarts) {
            stop(false);
            start();
            machine_.runtime.advance(60);
        }
        // First to a moment that is recorded already, by a clock that is nearly right.
        for (const double correction : {-hour, 0.5 * hour}) {
            right += correction;
            machine_.runtime.stepWallClock(right - machine_.runtime.wallTime());
            machine_.runtime.advance(600);
            right += 600;
        }
    }
    stop(false);
    const std::string recent = " AND time > 1000000000";
    for (const char* stem : {"ownhistory WHERE empty = 0", "itemhistory WHERE uuid = 'fan'"}) {
        EXPECT_GT(single(StorageIndex::Day, "SELECT count(*) FROM day_" + std::string(stem) + recent), 380) << stem;
        EXPECT_GE(single(StorageIndex::Year, "SELECT count(*) FROM year_" + std::string(stem) + recent), 1) << stem;
    }
    for (const char* table : {"ownhistory", "itemidhistory"}) {
        const std::string from = " FROM " + std::string(table);
        const double rows = single(StorageIndex::LongTerm, "SELECT count(*)" + from);
        EXPECT_EQ(rows, single(StorageIndex::LongTerm, "SELECT max(sample) + 1" + from)) << "none is missing";
        EXPECT_LT(rows, 16 * 12 + 40) << "none was made up for half a century";
        const std::string holes = "SELECT max(step) FROM (SELECT time - lag(time) OVER (ORDER BY time) AS step" + from
            + " WHERE time > 1000000000)";
        EXPECT_LE(single(StorageIndex::LongTerm, holes), 300) << table;
    }
}

/// Rows with a measurement in all tables of both collectors, of times up to a moment.
double HistoryChainTest::measuredRows(double until)
{
    double rows = 0;
    for (std::size_t place = 1; place < storageCount; ++place) {
        const auto index = static_cast<StorageIndex>(place);
        const std::string time = fmt::format("time <= {}", until);
        rows += single(index, "SELECT count(*) FROM " + tableOf(index, "ownhistory WHERE empty = 0 AND ") + time);
        rows += single(index, "SELECT count(*) FROM " + tableOf(index, "itemhistory WHERE ") + time);
    }
    return rows;
}

/// A clock that is a year ahead for some seconds is not believed; one that stays there, or is synchronised, is, and even
/// then takes nothing that was measured.
TEST_F(HistoryChainTest, AClockFarAheadTakesNothing)
{
    struct Case {
        double seconds;
        bool synchronised;
        bool believed;
    };
    for (const auto& [seconds, synchronised, believed] :
        {Case{6, false, false}, {230, false, false}, {400, false, true}, {10, true, true}}) {
        if (slowBuild && seconds < 100) {
            continue;
        }
        SCOPED_TRACE(fmt::format("{} s, synchronised {}", seconds, synchronised));
        folder_.remove("short");
        folder_.remove("long");
        ownReference_ = {};
        itemReference_ = {};
        machine_.clockSource().synchronised = false;
        start();
        machine_.runtime.advance(70 * 60); // until the "hour" tables are full
        controller_->commitAllSync();
        const double right = machine_.runtime.wallTime();
        const double before = measuredRows(right);
        machine_.clockSource().synchronised = synchronised;
        machine_.runtime.stepWallClock(365 * day);
        machine_.runtime.advance(seconds);
        machine_.clockSource().synchronised = false;
        machine_.runtime.stepWallClock(-365 * day);
        machine_.runtime.advance(600);
        stop(false);
        // The "hour" tables are full: each new row pushes an old one out. Own samples, and those of three items.
        EXPECT_GE(measuredRows(right), before - 4 * ((seconds + 600) / 6 + 2));
        EXPECT_GE(measuredRows(1e12) - measuredRows(right), 4 * (600 - 12) / 6) << "recording went on";
        const std::string future = fmt::format("SELECT count(*) FROM ownhistory WHERE time > {}", right + day);
        const double longTermRows = single(StorageIndex::LongTerm, future);
        EXPECT_EQ(longTermRows > 0, believed);
        EXPECT_LE(longTermRows, 93 * 288 + 2) << "a gap is not written in full when it would be thinned at once";
        const double later = single(
            StorageIndex::Year, fmt::format("SELECT count(*) FROM year_ownhistory WHERE time > {}", right + day));
        EXPECT_EQ(later > 0, believed);
    }
}

/// A clock that is set back by less than it takes to be doubted: recording goes on at once, what was recorded stays, and
/// is not recorded again as a gap until the clock is past it.
TEST_F(HistoryChainTest, AClockSetBackIsFollowedAtOnce)
{
    start();
    machine_.runtime.advance(3 * hour);
    machine_.runtime.stepWallClock(-2 * hour);
    const double back = machine_.runtime.wallTime();
    machine_.runtime.advance(1200);
    controller_->commitAllSync();
    const std::string measured = "SELECT count(*) FROM hour_ownhistory WHERE empty = 0 AND time BETWEEN {} AND {}";
    EXPECT_GT(single(StorageIndex::Hour, fmt::format(fmt::runtime(measured), back, back + 1200)), 190);
    machine_.runtime.sleepMachine(600); // behind what is recorded: no gap
    machine_.runtime.advance(60);
    controller_->commitAllSync();
    EXPECT_EQ(single(StorageIndex::Hour, "SELECT count(*) FROM hour_ownhistory WHERE empty <> 0 AND sample > 0"), 0);
    machine_.runtime.sleepMachine(3 * hour); // past it: a gap since then
    const double awake = machine_.runtime.wallTime();
    machine_.runtime.advance(300);
    stop(false);
    const double end = back + 2 * hour;
    const double periods = std::floor(awake / 300) - std::ceil(end / 300);
    EXPECT_EQ(single(StorageIndex::LongTerm,
                  fmt::format("SELECT count(*) FROM ownhistory WHERE time BETWEEN {} AND {}", end + 300, awake)),
        periods)
        << "each period once";
    EXPECT_EQ(single(StorageIndex::LongTerm, "SELECT max(sample) + 1 - count(*) FROM ownhistory"), 0);
}

/// Whatever becomes of the table that identifiers go on from, none is given out twice.
TEST_F(HistoryChainTest, IdentifiersGoOnFromWhateverIsLeft)
{
    start();
    for (const char* damage : {"DELETE FROM {}", "DROP TABLE {}", "ALTER TABLE {0} RENAME TO {0}_aside",
             "UPDATE {0} SET time = 0 WHERE sample = (SELECT max(sample) FROM {0})",
             "UPDATE {0} SET time = NULL WHERE sample = (SELECT max(sample) FROM {0})", "UPDATE {} SET time = 'noon'",
             "DELETE FROM {0}; INSERT INTO {0} (sample, time) VALUES (9007199254740990, 1.7e9), (-5, 1.7e9)"}) {
        SCOPED_TRACE(damage);
        machine_.runtime.advance(1300);
        stop(false);
        std::map<StorageIndex, double> newest;
        for (const StorageIndex index : {StorageIndex::Hour, StorageIndex::Day, StorageIndex::LongTerm}) {
            newest[index] = single(index, "SELECT max(sample) FROM " + tableOf(index, "itemhistory"));
            SQLiteConnection database;
            ASSERT_TRUE(database.open(fileOf(index), {}));
            const std::string sql = fmt::format(fmt::runtime(damage), tableOf(index, "itemidhistory"));
            const std::size_t end = std::min(sql.find("; "), sql.size());
            EXPECT_TRUE(database.execute(sql.substr(0, end)));
            EXPECT_TRUE(end == sql.size() || database.execute(sql.substr(end + 2)));
        }
        itemReference_ = {};
        start();
        machine_.runtime.advance(700);
        controller_->commitAllSync();
        for (const auto& [index, before] : newest) {
            const double first = single(index,
                fmt::format("SELECT min(sample) FROM {} WHERE time > {}", tableOf(index, "itemhistory"),
                    machine_.runtime.wallTime() - 650));
            EXPECT_GT(first, before);
            EXPECT_LT(first, before + 200);
        }
    }
    stop(false); // no statement was refused
}

/// One of the two files cannot be had, or both: measuring goes on, the other one records, and what was away joins later
/// and goes on where it ended.
TEST_F(HistoryChainTest, EachFileRecordsWhateverBecomesOfTheOther)
{
    constexpr std::array files = {StorageIndex::Hour, StorageIndex::LongTerm};
    std::size_t told = 0;
    machine_.log.addListener([&](LogLevel, std::string_view line) {
        told += line.find("cannot be read") != std::string_view::npos ? 1U : 0U;
    });
    for (const std::set<StorageIndex>& away : {std::set{files[1]}, std::set{files[0]}, std::set{files[0], files[1]}}) {
        SCOPED_TRACE(std::to_string(away.size()) + " away, the first is " + std::to_string(position(*away.begin())));
        std::map<StorageIndex, double> before;
        start();
        machine_.runtime.advance(1300);
        stop(false);
        for (const StorageIndex index : files) {
            before[index] = single(index, "SELECT max(sample) FROM " + tableOf(index, "itemidhistory"));
        }
        for (const StorageIndex index : away) {
            moveAway(index);
        }
        told = 0;
        start();
        machine_.runtime.advance(1000);
        EXPECT_EQ(told, 2 * away.size()) << "once a file and collector";
        EXPECT_EQ(own_->sampleIndex().sampleID, 1001.0);
        for (const StorageIndex index : files) {
            EXPECT_EQ(own_->history.sampleIndex(index).nextTime == 0, away.count(index) > 0);
        }
        std::optional<HistoryPage> page;
        own_->history.readHistory({.index = StorageIndex::Hour, .key = {}, .until = {}, .before = {}},
            [&](const auto& answer) { page = answer; });
        machine_.runtime.runDue();
        EXPECT_EQ(page.has_value(), away.count(StorageIndex::Hour) == 0);
        EXPECT_TRUE(!page || page->samples.rows.size() > 300);
        for (const StorageIndex index : away) {
            moveBack(index);
        }
        machine_.runtime.advance(700);
        stop(false); // no statement was refused
        for (const StorageIndex index : files) {
            const std::string from = " FROM " + tableOf(index, "itemidhistory");
            if (index == StorageIndex::LongTerm) { // whose empty periods are not pruned
                EXPECT_EQ(single(index, "SELECT max(sample) + 1 - count(*)" + from), 0) << "none is missing";
            }
            EXPECT_NEAR(single(index, "SELECT max(sample)" + from) - before[index],
                1700.0 / static_cast<double>(storageConstants[position(index)].interval), 2);
        }
        EXPECT_EQ(ownReference_.wrong, 0U) << ownReference_.firstWrong;
        EXPECT_EQ(itemReference_.wrong, 0U) << itemReference_.firstWrong;
    }
}

/// A file may be long in opening: it is looked through, or read out.
TEST_F(HistoryChainTest, ASlowDiskHoldsUpNoMeasurement)
{
    FaultyVfs disk("slow-chain");
    disk.whenOpened = [this] { machine_.runtime.advance(100); };
    start({.vfs = "slow-chain"});
    machine_.runtime.advance(2); // and 100 for each file
    EXPECT_GE(machine_.runtime.monotonicTime(), 1100);
    EXPECT_EQ(own_->sampleIndex().sampleID, std::floor(machine_.runtime.monotonicTime() - 1000) + 1);
    machine_.runtime.advance(60);
    EXPECT_GE(own_->history.sampleIndex(StorageIndex::Hour).sampleID, 8.0);
    stop(false);
}

} // namespace
} // namespace meridal::test
