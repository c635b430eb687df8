// The part of StatCollector that deals in database files: names of tables, rows in, rows out.

#include "base/Log.h"
#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "database/HistoryDatabaseController.h"
#include "database/SeriesNames.h"
#include "history/HistoryReader.h"
#include "history/LongTermThinning.h"
#include "platform/Context.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// The configuration's entry for the long-term store where there is one, else the general one.
std::string longOr(const Dictionary& config, std::string_view key, StorageIndex index)
{
    std::string longKey = std::string(key) + "Long";
    return index == StorageIndex::LongTerm && find(config, longKey) ? longKey : std::string(key);
}

} // namespace

// Files and tables

std::shared_ptr<HistoryDatabaseItem> StatCollector::databaseForIndex(StorageIndex index) const
{
    if (!context_.databases || !databaseEnabled_) {
        return nullptr;
    }
    return context_.databases->databaseWithPath(index == StorageIndex::LongTerm ? dbpathLong_ : dbpath_);
}

void StatCollector::nameTables()
{
    const bool perItem = storageType_ == StorageType::Items;
    for (std::size_t index = 0; index < storageCount; ++index) {
        const std::string_view prefix = storageConstants[index].tablePrefix;
        dbTables_[index] = fmt::format("{}{}{}", prefix, dbTablePrefix_, perItem ? "idhistory" : "history");
        dbTablesItems_[index] = perItem ? fmt::format("{}{}history", prefix, dbTablePrefix_) : std::string();
    }
}

std::optional<std::string> StatCollector::tableAtIndex(StorageIndex index)
{
    if (index == StorageIndex::Live || position(index) >= storageCount) {
        return std::nullopt;
    }
    if (dbTables_[0].empty()) {
        nameTables();
    }
    return dbTables_[position(index)];
}

std::optional<std::string> StatCollector::itemTableAtIndex(StorageIndex index)
{
    const auto table = tableAtIndex(index);
    return table && storageType_ == StorageType::Items ? std::optional(dbTablesItems_[position(index)]) : std::nullopt;
}

std::vector<TableSchema> StatCollector::historyTables(StorageIndex index)
{
    std::vector<TableSchema> schemas;
    const auto add = [&](const std::optional<std::string>& table, std::string_view key, std::string_view longKey) {
        const bool isLong = index == StorageIndex::LongTerm && find(config_, longKey);
        if (const auto create = text(config_, isLong ? longKey : key); table && create) {
            schemas.push_back({.table = *table, .create = *create});
        }
    };
    if (storageType_ == StorageType::Items) {
        add(tableAtIndex(index), "sqlCreateID", "sqlCreateIDLong");
        add(itemTableAtIndex(index), "sqlCreate", "sqlCreateLong");
    } else {
        add(tableAtIndex(index), "sqlCreate", "sqlCreateLong");
    }
    return schemas;
}

bool StatCollector::checkIfTablesExist(StorageIndex index, SQLiteConnection& database, bool result)
{
    for (const TableSchema& schema : historyTables(index)) {
        const auto exists = database.tableExists(schema.table);
        if (exists && !*exists) {
            result = database.execute(sqlText(schema.create, schema.table)).has_value() || result;
        }
    }
    return result;
}

bool StatCollector::checkIfLongTermTablesExist(StorageIndex index, SQLiteConnection& database, bool result)
{
    return index == StorageIndex::LongTerm ? checkIfTablesExist(index, database, result) : result;
}

bool StatCollector::prepareDatabase()
{
    if (std::exchange(preparedDatabase_, true)) {
        return false;
    }
    databaseForIndex(StorageIndex::Hour);
    return migrateDatabase();
}

bool StatCollector::migrateDatabase() { return false; }

void StatCollector::declareTables(HistoryFile which)
{
    for (std::size_t place = 1; place < sampleIndex_.size(); ++place) {
        const auto index = static_cast<StorageIndex>(place);
        const auto file = databaseForIndex(index);
        if (file && fileOf(index) == which) {
            for (TableSchema& schema : historyTables(index)) {
                file->declareTable(std::move(schema));
            }
            if (const auto table = itemTableAtIndex(index)) {
                declareSeriesNames(*file, {*table});
            }
        }
    }
}

// Rows in

void StatCollector::addPruning(HistoryStatements& statements, const std::string& table, const std::string& itemTable)
{
    constexpr std::string_view prune = "DELETE FROM %@ WHERE sample < ?";
    const std::string pruneEmpty = "DELETE FROM %@ WHERE sample >= ? AND sample < ? AND ";
    const auto& keys = statements.insert.keys;
    statements.prune = std::make_shared<const StatementText>(table, prune);
    if (!itemTable.empty()) {
        statements.pruneItem = std::make_shared<const StatementText>(itemTable, prune);
        statements.pruneEmpty = std::make_shared<const StatementText>(table,
            fmt::format(
                "{}NOT EXISTS (SELECT 1 FROM {} AS items WHERE items.sample = %@.sample)", pruneEmpty, itemTable));
    } else if (std::find(keys.begin(), keys.end(), "empty") != keys.end()) {
        statements.pruneEmpty = std::make_shared<const StatementText>(table, pruneEmpty + "empty <> 0");
    }
}

const HistoryStatements& StatCollector::statementsForIndex(StorageIndex index)
{
    auto& statements = statements_[position(index)];
    if (!statements) {
        const std::string table = tableAtIndex(index).value_or("");
        const std::string itemTable = itemTableAtIndex(index).value_or("");
        const auto name = [&](std::string_view key) { return longOr(config_, key, index); };
        statements = std::make_unique<HistoryStatements>();
        statements->insert = makeInsertPlan(config_, name("sqlInsert"), name("sqlInsertKeys"), table);
        statements->insertItem = makeInsertPlan(config_, name("sqlInsertItem"), name("sqlInsertItemKeys"), itemTable);
        if (index != StorageIndex::LongTerm && !table.empty()) {
            addPruning(*statements, table, itemTable);
        }
    }
    return *statements;
}

void StatCollector::insertRow(
    HistoryDatabaseItem& file, const InsertPlan& plan, const Dictionary& sample, std::string_view complaint)
{
    if (!plan.text) {
        return;
    }
    rowArgs_.clear();
    for (const std::string& key : plan.keys) {
        const Value* entry = find(sample, key);
        // A value that is missing leaves its own column NULL; the others stay in theirs.
        rowArgs_.push_back(entry ? sqlValue(*entry) : SqlValue());
        if (!entry && missingKeys_.insert(key).second) { // once a key, not once a second
            context_.log.warning(fmt::format("{} - {} - '{}'", description_, complaint, key));
        }
    }
    file.addItem(plan.text, rowArgs_);
}

void StatCollector::insertSampleIntoTableAtIndex(const Dictionary& sample, StorageIndex index)
{
    if (index == StorageIndex::Live || position(index) >= storageCount) {
        return;
    }
    const auto file = databaseForIndex(index);
    if (!file) {
        return;
    }
    const HistoryStatements& statements = statementsForIndex(index);
    insertRow(*file, statements.insert, sample, "missing key");
    const Value* items = find(sample, "items");
    if (storageType_ != StorageType::Items || !items || !items->is_array()) {
        return;
    }
    for (const Value& itemSample : *items) {
        if (!isEmptySample(itemSample)) {
            insertRow(*file, statements.insertItem, itemSample, "missing item key");
        }
    }
}

void StatCollector::removeOldSamplesAtIndex(StorageIndex index)
{
    const SampleStorage* found = sampleIndex_.find(index);
    const auto file = found ? databaseForIndex(index) : nullptr;
    const double newest = found ? found->record.sampleID - historyIntervals : -1;
    if (!file || newest < 0) {
        return;
    }
    const auto queue = [&](const std::shared_ptr<const StatementText>& text, std::uint64_t from, std::uint64_t cut) {
        std::array<SqlValue, 2> args{static_cast<std::int64_t>(from), static_cast<std::int64_t>(cut)};
        if (text) {
            file->addItem(text, std::span(args).last(text == statementsForIndex(index).pruneEmpty ? 2 : 1));
        }
    };
    const HistoryStatements& statements = statementsForIndex(index);
    KeptPeriods& kept = kept_[position(index)];
    const auto cut = static_cast<std::uint64_t>(newest);
    const bool isFull = kept.measured.size() >= keptSamples;
    // Where rows do not tell whether they are empty, all count as measured.
    const std::uint64_t measuredCut = !statements.pruneEmpty ? cut : isFull ? std::min(cut, kept.measured.front()) : 0;
    if (measuredCut > 0) {
        queue(statements.prune, 0, measuredCut);
        queue(statements.pruneItem, 0, measuredCut);
    }
    const std::uint64_t empty = std::max(kept.cleanedUpTo, measuredCut);
    if (empty < cut) {
        queue(statements.pruneEmpty, empty, cut);
    }
    kept.cleanedUpTo = cut;
}

/// What is too old for rows of five minutes.
void StatCollector::thinLongTerm(double now)
{
    const auto file = databaseForIndex(StorageIndex::LongTerm);
    if (!file || !statementsForIndex(StorageIndex::LongTerm).insert.text) {
        return;
    }
    if (!thinning_) {
        LongTermTables tables{.table = tableAtIndex(StorageIndex::LongTerm).value_or(""),
            .itemTable = itemTableAtIndex(StorageIndex::LongTerm).value_or(""),
            .values = {}};
        if (const Value* map = find(config_, "addSampleMap"); map && map->is_object()) {
            for (const auto& entry : map->items()) {
                tables.values.insert(entry.key());
            }
        }
        thinning_ = std::make_shared<LongTermThinning>(std::move(tables));
    }
    const auto oldest = isClockSynchronised() ? LongTermThinning::Oldest::Removed : LongTermThinning::Oldest::Kept;
    file->queryDatabaseAsync(
        [thinning = thinning_, now, oldest](SQLiteConnection& database) { thinning->step(database, now, oldest); });
}

void StatCollector::runDatabaseQueue()
{
    if (!databaseEnabled_) {
        return;
    }
    const auto file = databaseForIndex(StorageIndex::Hour);
    const auto longTerm = databaseForIndex(StorageIndex::LongTerm);
    if (file) {
        file->commit();
    }
    if (longTerm && longTerm != file) { // nothing else would ever commit it
        longTerm->commit();
    }
}

// Rows out

std::vector<Dictionary> StatCollector::query(StorageIndex index, const std::string& sql, const SqlValues& args)
{
    std::vector<Dictionary> rows;
    if (const auto file = databaseForIndex(index)) {
        file->queryDatabase([&](SQLiteConnection& database) {
            if (auto found = database.rows(sql, args)) {
                rows = std::move(*found);
            }
        });
    }
    return rows;
}

std::vector<Dictionary> StatCollector::samplesFromTable(const std::string& table)
{
    auto rows = query(StorageIndex::Hour, fmt::format("SELECT * FROM {} ORDER BY sample DESC LIMIT 603", table), {});
    std::reverse(rows.begin(), rows.end());
    return rows;
}

std::vector<Dictionary> StatCollector::samplesFromTable(const std::string& table, double identifier)
{
    const auto newest = static_cast<std::int64_t>(identifier);
    const auto oldest = static_cast<std::int64_t>(std::max(0.0, identifier - historyIntervals));
    return query(StorageIndex::Hour,
        fmt::format("SELECT * FROM {} WHERE sample <= ? AND sample >= ? ORDER BY sample ASC", table), {newest, oldest});
}

std::optional<Dictionary> StatCollector::lastLongTermSample()
{
    auto rows = query(StorageIndex::LongTerm,
        fmt::format("SELECT * FROM {} ORDER BY sample DESC LIMIT 1", *tableAtIndex(StorageIndex::LongTerm)), {});
    return rows.empty() ? std::nullopt : std::optional(std::move(rows.front()));
}

void StatCollector::loadPreviousSamples()
{
    for (std::size_t index = position(StorageIndex::Hour); index <= position(StorageIndex::Year); ++index) {
        loadPreviousSamplesAtIndex(static_cast<StorageIndex>(index));
    }
}

void StatCollector::loadPreviousSampleItems()
{
    for (std::size_t index = position(StorageIndex::Hour); index <= position(StorageIndex::Year); ++index) {
        loadPreviousSampleItemsAtIndex(static_cast<StorageIndex>(index));
    }
}

void StatCollector::addItemRows(const std::vector<Dictionary>& rows, StorageIndex index)
{
    for (const Dictionary& row : rows) {
        const auto uuid = text(row, "uuid");
        if (const auto item = uuid ? itemWithKey(*uuid) : nullptr) {
            item->addSample(row, index);
        }
    }
}

void StatCollector::loadPreviousSamplesAtIndex(StorageIndex index)
{
    if (const auto table = tableAtIndex(index)) {
        for (const Dictionary& row : samplesFromTable(*table)) {
            addSample(row, index);
        }
    }
    if (const auto table = itemTableAtIndex(index)) {
        addItemRows(samplesFromTable(*table), index);
    }
}

void StatCollector::loadPreviousSampleItemsAtIndex(StorageIndex index)
{
    const auto table = itemTableAtIndex(index);
    if (!table) {
        return;
    }
    for (const auto& item : items_) {
        item->clearStorageForType(index); // this storage only: the others were loaded by calls of their own
    }
    addItemRows(samplesFromTable(*table, idForInterval(index)), index);
    for (const auto& item : items_) {
        item->setLoadedHistory(true);
    }
}

void StatCollector::loadPreviousSamplesForItem(const std::shared_ptr<StatCollectorItem>& item, Task reply)
{
    HistoryReadPlan plan = readPlan();
    plan.onlyKey = item->key();
    plan.tables[position(StorageIndex::LongTerm)] = {};
    const auto file = databaseForIndex(StorageIndex::Hour);
    if (!file || !plan.onlyKey) {
        context_.runtime.mainQueue().post(std::move(reply));
        return;
    }
    auto stored = std::make_shared<StoredHistory>();
    Task adopt = lifetime_.guard([item, stored, reply = std::move(reply)] {
        for (std::size_t index = 1; index < storageCount; ++index) {
            item->addStoredRows(stored->storages[index], static_cast<StorageIndex>(index));
        }
        reply();
    });
    Queue& mainQueue = context_.runtime.mainQueue();
    file->queryDatabaseAsync([plan = std::move(plan), stored, adopt = std::move(adopt), &mainQueue](auto& database) {
        for (std::size_t index = 1; index < storageCount; ++index) {
            readStorage(database, plan, static_cast<StorageIndex>(index), stored->storages[index]);
        }
        mainQueue.post(adopt);
    });
}

void StatCollector::loadPreviousSamplesForItemFull(const std::shared_ptr<StatCollectorItem>& item, Task reply)
{
    const auto file = databaseForIndex(StorageIndex::Hour);
    const auto table = itemTableAtIndex(StorageIndex::Hour);
    if (!file || !table || !item->key()) {
        context_.runtime.mainQueue().post(std::move(reply));
        return;
    }
    item->setLoadingHistory(true);
    item->loadFullStorageAtIndex(StorageIndex::Hour);
    auto rows = std::make_shared<std::vector<Dictionary>>();
    Task adopt = lifetime_.guard([this, item, rows, reply = std::move(reply)] {
        std::for_each(rows->rbegin(), rows->rend(),
            [&](const Dictionary& row) { item->addSampleToFullStorage(row, StorageIndex::Hour); });
        item->setLoadingHistory(false);
        item->setLoadedHistory(true);
        itemLoadedValues(*item);
        reply();
    });
    Queue& mainQueue = context_.runtime.mainQueue();
    const std::string sql = fmt::format("SELECT * FROM {} WHERE uuid = ? ORDER BY sample DESC LIMIT 603", *table);
    file->queryDatabaseAsync([sql, key = *item->key(), rows, adopt = std::move(adopt), &mainQueue](auto& database) {
        const SqlValue argument = key;
        if (auto found = database.rows(sql, {&argument, 1})) {
            *rows = std::move(*found);
        }
        mainQueue.post(adopt);
    });
}

void StatCollector::readHistory(
    const HistoryPageQuestion& question, std::function<void(const std::optional<HistoryPage>&)> reply)
{
    const auto file = databaseForIndex(question.index);
    const auto table =
        storageType_ == StorageType::Items ? itemTableAtIndex(question.index) : tableAtIndex(question.index);
    Queue& mainQueue = context_.runtime.mainQueue();
    if (!file || !table) {
        mainQueue.post([reply = std::move(reply)] { reply(HistoryPage()); });
        return;
    }
    file->commit();
    file->queryDatabaseAsync([plan = readPlan(), question, table = *table, reply = std::move(reply), &mainQueue](
                                 SQLiteConnection& database) {
        mainQueue.post([page = readPage(database, table, plan, question), reply] { reply(page); });
    });
}

} // namespace meridal
