// SPDX-License-Identifier: Apache-2.0
// What history costs: rows a second from a collector's samples to a committed file against the same rows written by bare
// SQLite in one transaction, and the share of a core that 200 items cost at one sample a second.

#include "base/AsioRuntime.h"
#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "collectors/StatCollector.h"
#include "database/HistoryDatabaseController.h"
#include "history/HistoryRecorder.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace meridal {
namespace {

constexpr int itemCount = 200;
constexpr int samples = 500; // of each item: 100,000 rows
constexpr const char* createItem =
    "CREATE TABLE %@ (sample INTEGER, uuid TEXT, time REAL, value REAL, PRIMARY KEY (sample, uuid)) WITHOUT ROWID";
constexpr const char* insertItem = "INSERT INTO %@ VALUES (?, ?, ?, ?)";

std::string keyOf(int item) { return "sensor" + std::to_string(1000 + item); }

HistoryTraits traitsIn(const Context& context)
{
    return {.description = "Bench",
        .columns = {"value"},
        .storageType = StorageType::Items,
        .dbTablePrefix = "bench",
        .dbpath = context.paths.support / "bench.db",
        .dbpathLong = context.paths.support / "benchlong.db"};
}

class BenchCollector final : public StatCollector {
public:
    explicit BenchCollector(Context& context) : StatCollector(context, "Bench"), history_(context, traitsIn(context))
    {
        for (int item = 0; item < itemCount; ++item) {
            samples_.push_back(history_.item(keyOf(item)));
        }
    }
    void updateStats() override
    {
        const double now = context().runtime.wallTime();
        const std::optional<double> value = now * 0.5;
        for (const auto& each : samples_) {
            each->addSample(now, {&value, 1});
        }
    }
    void updateHistory() override { history_.updateHistory(); }

private:
    HistoryRecorder history_;
    std::vector<std::shared_ptr<SampleStorages>> samples_;
};

void rowsByBareSQLite(benchmark::State& state)
{
    std::vector<std::string> keys;
    for (int item = 0; item < itemCount; ++item) {
        keys.push_back(keyOf(item));
    }
    for (auto _ : state) {
        state.PauseTiming();
        const test::TemporaryTree folder;
        sqlite3* database = nullptr;
        sqlite3_open((folder.root() / "bare.db").c_str(), &database);
        sqlite3_exec(database, "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL", nullptr, nullptr, nullptr);
        sqlite3_exec(database, sqlText(createItem, "rows").c_str(), nullptr, nullptr, nullptr);
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(database, sqlText(insertItem, "rows").c_str(), -1, &statement, nullptr);
        state.ResumeTiming();
        sqlite3_exec(database, "BEGIN", nullptr, nullptr, nullptr);
        for (int sample = 1; sample <= samples; ++sample) {
            for (const std::string& key : keys) {
                sqlite3_bind_int64(statement, 1, sample);
                sqlite3_bind_text(statement, 2, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
                sqlite3_bind_double(statement, 3, sample * 6.0);
                sqlite3_bind_double(statement, 4, sample * 0.5);
                sqlite3_step(statement);
                sqlite3_reset(statement);
            }
        }
        sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
        state.PauseTiming();
        sqlite3_finalize(statement);
        sqlite3_close(database);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * samples * itemCount);
}

/// A folder with the databases of a daemon's record, written in the background.
struct Record {
    Record(HistoryFile kind, StorageIndex index)
    {
        context.databases = &controller;
        tables.emplace(context, traitsIn(context));
        file = tables->databaseForIndex(index);
        tables->declareTables(kind);
    }
    ~Record() { controller.closeAll(); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    const test::TemporaryTree folder;
    AsioRuntime runtime;
    Host host;
    NotificationCenter notifications;
    Log log;
    Context context{runtime, host, notifications, log, Paths{folder.root(), {}, {}}};
    HistoryDatabaseController controller{context};
    std::optional<HistoryTables> tables;
    decltype(std::declval<HistoryTables&>().databaseForIndex(StorageIndex::Hour)) file;
};

PeriodSample sampleOf(int items)
{
    PeriodSample sample{.items = {}};
    for (int item = 0; item < items; ++item) {
        sample.items.push_back({keyOf(item), {.values = {0.5}, .valueCount = 1, .samples = 1}});
    }
    return sample;
}

/// The samples come as the recorder hands them over, the commit runs on the file's own queue meanwhile.
void rowsThroughTheCollector(benchmark::State& state)
{
    PeriodSample sample = sampleOf(itemCount);
    for (auto _ : state) {
        state.PauseTiming();
        {
            Record record(HistoryFile::Short, StorageIndex::Hour);
            record.file->queryDatabase([](SQLiteConnection&) {}); // they are made
            state.ResumeTiming();
            for (int number = 1; number <= samples; ++number) {
                sample.sampleID = static_cast<std::uint64_t>(number);
                sample.time = number * 6.0;
                for (PeriodSample::Item& item : sample.items) {
                    item.averages.values[0] = number * 0.5;
                }
                record.tables->insertSample(sample, StorageIndex::Hour);
            }
            record.file->commitSync();
            state.PauseTiming();
            if (record.file->statistics().rowsWritten != static_cast<std::uint64_t>(samples) * (itemCount + 1)) {
                state.SkipWithError("rows are missing");
            }
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * samples * itemCount);
}

/// Ten minutes of virtual time an iteration, after the start has settled; everything, SQLite included, on one thread.
/// "core" is the share of one core, "measuring" what of it the items' live samples alone cost.
void secondsOfHistory(benchmark::State& state)
{
    const test::TemporaryTree folder;
    VirtualRuntime runtime;
    Host host;
    NotificationCenter notifications;
    Log log;
    Context context{runtime, host, notifications, log, Paths{folder.root(), {}, {}}};
    HistoryDatabaseController controller(context);
    context.databases = &controller;
    BenchCollector collector(context);
    collector.setAutomaticSampleUpdates(state.range(0) != 0);
    collector.startLogging();
    runtime.advance(3600); // tables full: every row in is a row out
    constexpr double span = 600;
    for (auto _ : state) {
        runtime.advance(span);
    }
    // The rate is in virtual seconds a CPU second; its inverse is the share of a core.
    state.counters["core"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * span, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    controller.closeAll();
}

/// A row of each of twenty items more with its commit, or the newest page of one of them, in a long-term file that holds so many
/// days, a row every five minutes.
void longTermOf(benchmark::State& state)
{
    constexpr int items = 20;
    constexpr double period = 300;
    Record record(HistoryFile::LongTerm, StorageIndex::LongTerm);
    HistoryTables& tables = *record.tables;
    const auto& file = record.file;
    PeriodSample sample = sampleOf(items);
    const auto insert = [&] {
        sample.time = static_cast<double>(++sample.sampleID) * period;
        tables.insertSample(sample, StorageIndex::LongTerm);
    };
    for (std::int64_t row = 0; row < state.range(1) * 288; ++row) {
        insert();
        if (row % 2000 == 0) {
            file->commitSync();
        }
    }
    file->commitSync();
    HistoryPageQuestion question;
    question.index = StorageIndex::LongTerm;
    question.key = keyOf(7);
    const std::string& table = tables.readPlan().tables.at(static_cast<std::size_t>(StorageIndex::LongTerm)).itemTable;
    std::size_t rows = 0;
    for (auto _ : state) {
        if (state.range(0) != 0) {
            insert();
            file->commitSync();
            continue;
        }
        file->queryDatabase([&](SQLiteConnection& database) {
            const auto page = readPage(database, table, tables.readPlan(), question);
            rows = page ? page->samples.rows.size() : 0;
        });
        file->commitSync(); // behind it in the queue
    }
    state.counters["rows"] = static_cast<double>(rows);
}

BENCHMARK(longTermOf)
    ->ArgNames({"write", "days"})
    ->ArgsProduct({{0, 1}, {1, 365, 1825}})
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(100);
BENCHMARK(rowsByBareSQLite)->UseRealTime()->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(rowsThroughTheCollector)->UseRealTime()->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(secondsOfHistory)->ArgName("history")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
