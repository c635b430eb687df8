// SPDX-License-Identifier: Apache-2.0
#include "history/HistoryTables.h"

#include "database/HistoryDatabaseController.h"
#include "database/SeriesNames.h"
#include "history/BandColumns.h"
#include "platform/Context.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

bool isAveragedFromLive(StorageIndex index)
{
    return storageConstants[position(index)].historyIndex == StorageIndex::Live;
}

std::string tableName(const HistoryTraits& traits, StorageIndex index, std::string_view suffix)
{
    return fmt::format("{}{}{}", storageConstants[position(index)].tablePrefix, traits.dbTablePrefix, suffix);
}

} // namespace

HistoryTables::HistoryTables(Context& context, HistoryTraits traits) : context_(context), traits_(std::move(traits))
{
    plan_.columns = traits_.columns;
    for (const StorageIndex index : recordedStorages) {
        prepareStorage(index);
    }
    const HistoryReadPlan::Tables& longTerm = plan_.tables[position(StorageIndex::LongTerm)];
    thinning_ = std::make_shared<LongTermThinning>(LongTermTables{.table = longTerm.table,
        .itemTable = longTerm.itemTable,
        .values = {traits_.columns.begin(), traits_.columns.end()}});
}

/// Names and statements are built once.
void HistoryTables::prepareStorage(StorageIndex index)
{
    const StorageConstants& constants = storageConstants[position(index)];
    const std::string table = tableName(traits_, index, isOfItems() ? "idhistory" : "history");
    const std::string itemTable = isOfItems() ? tableName(traits_, index, "history") : "";
    const bool isPruned = index != StorageIndex::LongTerm;
    plan_.tables[position(index)] = {.table = table,
        .itemTable = itemTable,
        .slots = constants.slots,
        .isPruned = isPruned,
        .marksEmpty = isPruned && !isOfItems()};

    Storage& storage = storages_[position(index)];
    const auto text = [](const std::string& of, std::string_view format) {
        return std::make_shared<const StatementText>(of, format);
    };
    constexpr std::string_view prune = "DELETE FROM %@ WHERE sample < ?";
    const std::string pruneEmpty = "DELETE FROM %@ WHERE sample >= ? AND sample < ? AND ";
    storage.prune = text(table, prune);
    if (!isOfItems()) {
        storage.insert = text(table, insertText(index, false));
        storage.pruneEmpty = text(table, pruneEmpty + "empty <> 0");
        return;
    }
    storage.insert = text(table, "INSERT INTO %@ (sample, time) VALUES (?, ?)");
    storage.insertItem = text(itemTable, insertText(index, true));
    storage.pruneItem = text(itemTable, prune);
    storage.pruneEmpty = text(table,
        fmt::format("{}NOT EXISTS (SELECT 1 FROM {} AS items WHERE items.sample = %@.sample)", pruneEmpty, itemTable));
}

std::shared_ptr<HistoryDatabaseItem> HistoryTables::databaseForIndex(StorageIndex index) const
{
    if (!context_.databases) {
        return nullptr;
    }
    const std::string& path = fileOf(index) == HistoryFile::LongTerm ? traits_.dbpathLong : traits_.dbpath;
    std::error_code failure;
    return isRecording_ || std::filesystem::exists(path, failure) ? context_.databases->databaseWithPath(path)
                                                                  : nullptr;
}

/// The statement that adds a row of values: of the recorder itself, or of an item. What live samples lie between is among
/// its arguments. What coarser periods lie between is asked of the rows that they are averaged of, by their identifiers:
/// the tables know it, and memory need not hold two figures more for each of the hundreds of samples of every item.
std::string HistoryTables::insertText(StorageIndex index, bool ofItems) const
{
    constexpr std::size_t labels = 3;
    std::string names = ofItems ? "sample, uuid, time" : "sample, time, empty";
    std::string bands;
    std::string places;
    for (std::size_t place = 1; place <= labels + traits_.columns.size(); ++place) {
        places += fmt::format("{}?{}", places.empty() ? "" : ", ", place);
    }
    std::size_t next = labels + traits_.columns.size() + 1;
    for (const std::string& column : traits_.columns) {
        names += ", " + column;
    }
    for (const std::string& column : traits_.columns) {
        names += fmt::format(", {}, {}", lowColumn(column), highColumn(column));
        bands += isAveragedFromLive(index) ? fmt::format(", ?{}, ?{}", next, next + 1)
                                           : fmt::format(", {}, {}", lowTerm(column), highTerm(column));
        next += 2;
    }
    if (isAveragedFromLive(index)) {
        return fmt::format("INSERT INTO %@ ({}) VALUES ({}{})", names, places, bands);
    }
    const StorageConstants& constants = storageConstants[position(index)];
    const std::string source = tableName(traits_, constants.historyIndex, "history");
    const std::string identifiers = tableName(traits_, constants.historyIndex, "idhistory");
    const std::size_t oldest = labels + traits_.columns.size() + 1;
    // CROSS JOIN: one step into the index for each identifier, past all other items' rows.
    const std::string from = ofItems
        ? fmt::format("{} AS ids CROSS JOIN {} AS finer ON finer.sample = ids.sample AND finer.uuid = ?2 WHERE "
                      "ids.sample",
            identifiers, source)
        : fmt::format("{} AS finer WHERE finer.sample", source);
    const std::size_t end = ofItems ? 3 : 2;
    return fmt::format("INSERT INTO %@ ({}) SELECT {}{} FROM {} BETWEEN ?{} AND ?{} AND finer.time > ?{} - {} AND "
                       "finer.time <= ?{}",
        names, places, bands, from, oldest, oldest + 1, end, constants.interval, end);
}

/// A table of values: of the recorder itself, or of its items.
TableSchema HistoryTables::schemaOf(const std::string& table, bool ofItems) const
{
    const std::string& figure = traits_.types.figure;
    std::string text = ofItems
        ? fmt::format("CREATE TABLE %@ (sample INTEGER, uuid {}, time {}", traits_.types.key, figure)
        : fmt::format("CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time {}, empty INTEGER", figure);
    TableSchema schema{.table = table, .create = {}};
    const auto add = [&](const std::string& column) { text += fmt::format(", {} {}", column, figure); };
    std::for_each(traits_.columns.begin(), traits_.columns.end(), add);
    for (const std::string& column : traits_.columns) {
        for (const std::string& bound : {lowColumn(column), highColumn(column)}) {
            add(bound);
            schema.added.push_back(
                {.column = bound, .alter = fmt::format("ALTER TABLE %@ ADD COLUMN {} {}", bound, figure)});
        }
    }
    schema.create = text + (ofItems ? ", PRIMARY KEY (sample, uuid)) WITHOUT ROWID" : ")");
    return schema;
}

void HistoryTables::declareTables(HistoryFile which)
{
    for (const StorageIndex index : recordedStorages) {
        const auto file = fileOf(index) == which ? databaseForIndex(index) : nullptr;
        const HistoryReadPlan::Tables& tables = plan_.tables[position(index)];
        if (!file) {
            continue;
        }
        if (!isOfItems()) {
            file->declareTable(schemaOf(tables.table, false));
            continue;
        }
        file->declareTable({.table = tables.table,
            .create = fmt::format("CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time {})", traits_.types.figure)});
        file->declareTable(schemaOf(tables.itemTable, true));
        declareSeriesNames(*file, {tables.itemTable});
    }
}

// Rows in

void HistoryTables::addFigures(const SampleAverages& averages, StorageIndex index)
{
    const auto figures = averages.figures();
    const auto isPresent = [&](std::size_t column) { return column < figures.size() && !std::isnan(figures[column]); };
    for (std::size_t column = 0; column < traits_.columns.size(); ++column) {
        rowArgs_.push_back(isPresent(column) ? SqlValue(figures[column]) : SqlValue());
    }
    if (!isAveragedFromLive(index)) {
        rowArgs_.emplace_back(static_cast<std::int64_t>(averages.oldest));
        rowArgs_.emplace_back(static_cast<std::int64_t>(averages.newest));
        return;
    }
    for (std::size_t column = 0; column < traits_.columns.size(); ++column) {
        const bool isWide = isPresent(column) && averages.lowest[column] < averages.highest[column];
        rowArgs_.push_back(isWide ? SqlValue(averages.lowest[column]) : SqlValue());
        rowArgs_.push_back(isWide ? SqlValue(averages.highest[column]) : SqlValue());
    }
}

void HistoryTables::insertSample(const PeriodSample& sample, StorageIndex index)
{
    Storage& storage = storages_[position(index)];
    if (sample.isMeasured()) {
        storage.measured.push_back(sample.sampleID);
        if (storage.measured.size() > keptSamples) {
            storage.measured.pop_front();
        }
    }
    const auto file = databaseForIndex(index);
    if (!file) {
        return;
    }
    const auto sampleID = static_cast<std::int64_t>(sample.sampleID);
    rowArgs_.assign({sampleID, sample.time});
    if (!isOfItems()) {
        rowArgs_.emplace_back(std::int64_t{sample.own.samples == 0 ? 1 : 0});
        addFigures(sample.own, index);
    }
    file->addItem(storage.insert, rowArgs_);
    for (const PeriodSample::Item& item : sample.items) {
        rowArgs_.clear();
        rowArgs_.emplace_back(sampleID);
        rowArgs_.emplace_back(item.key);
        rowArgs_.emplace_back(sample.time);
        addFigures(item.averages, index);
        file->addItem(storage.insertItem, rowArgs_);
    }
}

// Rows out

void HistoryTables::setMeasured(StorageIndex index, const std::vector<std::uint64_t>& measured)
{
    storages_[position(index)].measured.assign(measured.begin(), measured.end());
}

void HistoryTables::removeOldSamplesAtIndex(StorageIndex index, double newestID)
{
    const auto file = index != StorageIndex::LongTerm ? databaseForIndex(index) : nullptr;
    if (!file || newestID < historyIntervals) {
        return;
    }
    const auto queue = [&](const Text& text, std::initializer_list<std::uint64_t> identifiers) {
        rowArgs_.clear();
        for (const std::uint64_t identifier : identifiers) {
            rowArgs_.emplace_back(static_cast<std::int64_t>(identifier));
        }
        if (text) {
            file->addItem(text, rowArgs_);
        }
    };
    Storage& storage = storages_[position(index)];
    const auto cut = static_cast<std::uint64_t>(newestID - historyIntervals);
    const bool isFull = storage.measured.size() >= keptSamples;
    const std::uint64_t measuredCut = isFull ? std::min(cut, storage.measured.front()) : 0;
    if (measuredCut > 0) {
        queue(storage.prune, {measuredCut});
        queue(storage.pruneItem, {measuredCut});
    }
    const std::uint64_t empty = std::max(storage.cleanedUpTo, measuredCut);
    if (empty < cut) {
        queue(storage.pruneEmpty, {empty, cut});
    }
    storage.cleanedUpTo = cut;
}

void HistoryTables::thinLongTerm(double now, LongTermThinning::Oldest oldest)
{
    if (const auto file = databaseForIndex(StorageIndex::LongTerm)) {
        file->queryDatabaseAsync([thinning = thinning_, now, age = context_.longTermAge, oldest](
                                     SQLiteConnection& database) { thinning->step(database, now, age, oldest); });
    }
}

void HistoryTables::runDatabaseQueue()
{
    const auto file = databaseForIndex(StorageIndex::Hour);
    const auto longTerm = databaseForIndex(StorageIndex::LongTerm);
    if (file) {
        file->commit();
    }
    if (longTerm && longTerm != file) { // nothing else would ever commit it
        longTerm->commit();
    }
}

} // namespace meridal
