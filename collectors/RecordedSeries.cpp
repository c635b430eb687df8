#include "collectors/RecordedSeries.h"

#include "base/Runtime.h"
#include "base/Value.h"
#include "database/HistoryDatabaseItem.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

namespace meridal {

namespace {

constexpr const char* keep = "insert or replace into %@ (collector, uuid, name, unit, step) values (?, ?, ?, ?, ?)";

bool isSame(const HistorySeries& first, const HistorySeries& second)
{
    return first.name == second.name && first.unit == second.unit && first.step == second.step;
}

/// The newest rows; older ones beyond the most are dropped. Absent when the file cannot be read.
std::optional<std::vector<HistorySeries>> read(SQLiteConnection& database, const std::string& collector)
{
    const SqlValues limits = {collector, static_cast<std::int64_t>(RecordedSeries::most), collector};
    static_cast<void>(database.execute("delete from recorded_series where rowid <= (select rowid from recorded_series "
                                       "where collector = ? order by rowid desc limit 1 offset ?) and collector = ?",
        limits));
    const auto rows = database.rows("select * from recorded_series where collector = ?", SqlValues{collector});
    if (!rows) {
        return std::nullopt;
    }
    std::vector<HistorySeries> all;
    for (const Dictionary& row : *rows) {
        all.push_back({.key = text(row, "uuid").value_or(""),
            .name = text(row, "name").value_or(""),
            .unit = text(row, "unit").value_or(""),
            .values = {},
            .step = number(row, "step").value_or(0)});
    }
    return all;
}

} // namespace

RecordedSeries::RecordedSeries(Queue& mainQueue, std::string collector, std::vector<std::string> values)
    : mainQueue_(mainQueue), collector_(std::move(collector)), values_(std::move(values))
{
}

const TableSchema& RecordedSeries::table()
{
    static const TableSchema table{.table = "recorded_series",
        .create = "create table %@ (collector varchar(32), uuid varchar(100), name varchar, unit varchar(16), "
                  "step double, primary key (collector, uuid))"};
    return table;
}

void RecordedSeries::load(HistoryDatabaseItem& file)
{
    if (std::exchange(isLoaded_, true)) {
        return;
    }
    file.declareTable(table());
    auto adopt = lifetime_.guard([this](std::optional<std::vector<HistorySeries>> stored) {
        isLoaded_ = stored.has_value(); // else it is tried again
        for (HistorySeries& series : stored ? *stored : std::vector<HistorySeries>()) {
            series.values = values_;
            const std::string key = series.key;
            known_.emplace(key, std::move(series)); // what this run has noted is newer
        }
    });
    file.queryDatabaseAsync([collector = collector_, adopt, &mainQueue = mainQueue_](SQLiteConnection& database) {
        mainQueue.post([adopt, stored = read(database, collector)]() mutable { adopt(std::move(stored)); });
    });
}

void RecordedSeries::note(HistoryDatabaseItem& file, const HistorySeries& series)
{
    load(file);
    const auto entry = known_.find(series.key);
    if (entry != known_.end() && isSame(entry->second, series) && noted_.contains(series.key)) {
        return;
    }
    noted_.insert(series.key);
    known_.insert_or_assign(series.key, series);
    file.addItem({.table = table().table,
        .format = keep,
        .args = {collector_, series.key, series.name, series.unit, series.step}});
}

void RecordedSeries::addAbsent(std::vector<HistorySeries>& series) const
{
    std::set<std::string> present;
    for (const HistorySeries& each : series) {
        present.insert(each.key);
    }
    for (const auto& [key, known] : known_) {
        if (!present.contains(key)) {
            series.push_back(known);
        }
    }
}

} // namespace meridal
