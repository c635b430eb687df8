#include "history/HistoryTables.h"

#include "database/HistoryDatabaseController.h"
#include "database/SeriesNames.h"
#include "platform/Context.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

/// The statement that adds a row: these columns and those of the values.
std::string insertText(std::string_view labels, const std::vector<std::string>& columns)
{
    const auto labelCount = static_cast<std::size_t>(std::count(labels.begin(), labels.end(), ',')) + 1;
    const std::vector<std::string_view> places(labelCount + columns.size(), "?");
    return fmt::format("INSERT INTO %@ ({}{}{}) VALUES ({})", labels, columns.empty() ? "" : ", ",
        fmt::join(columns, ", "), fmt::join(places, ", "));
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
    const std::string stem = fmt::format("{}{}", constants.tablePrefix, traits_.dbTablePrefix);
    const std::string table = stem + (isOfItems() ? "idhistory" : "history");
    const std::string itemTable = isOfItems() ? stem + "history" : "";
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
        storage.insert = text(table, insertText("sample, time, empty", traits_.columns));
        storage.pruneEmpty = text(table, pruneEmpty + "empty <> 0");
        return;
    }
    storage.insert = text(table, insertText("sample, time", {}));
    storage.insertItem = text(itemTable, insertText("sample, uuid, time", traits_.columns));
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

/// The CREATE statement of a table of values: of the recorder itself, or of its items.
std::string HistoryTables::createText(bool ofItems) const
{
    const std::string& figure = traits_.types.figure;
    std::string text = ofItems
        ? fmt::format("CREATE TABLE %@ (sample INTEGER, uuid {}, time {}", traits_.types.key, figure)
        : fmt::format("CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time {}, empty INTEGER", figure);
    for (const std::string& column : traits_.columns) {
        text += fmt::format(", {} {}", column, figure);
    }
    return text + (ofItems ? ", PRIMARY KEY (sample, uuid)) WITHOUT ROWID" : ")");
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
            file->declareTable({.table = tables.table, .create = createText(false)});
            continue;
        }
        file->declareTable({.table = tables.table,
            .create = fmt::format("CREATE TABLE %@ (sample INTEGER PRIMARY KEY, time {})", traits_.types.figure)});
        file->declareTable({.table = tables.itemTable, .create = createText(true)});
        declareSeriesNames(*file, {tables.itemTable});
    }
}

// Rows in

void HistoryTables::addFigures(const SampleAverages& averages)
{
    const auto figures = averages.figures();
    for (std::size_t column = 0; column < traits_.columns.size(); ++column) {
        const bool isPresent = column < figures.size() && !std::isnan(figures[column]);
        rowArgs_.push_back(isPresent ? SqlValue(figures[column]) : SqlValue());
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
        addFigures(sample.own);
    }
    file->addItem(storage.insert, rowArgs_);
    for (const PeriodSample::Item& item : sample.items) {
        rowArgs_.clear();
        rowArgs_.emplace_back(sampleID);
        rowArgs_.emplace_back(item.key);
        rowArgs_.emplace_back(sample.time);
        addFigures(item.averages);
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
