// SPDX-License-Identifier: Apache-2.0
#include "history/RecordedSeries.h"

#include "base/Value.h"
#include "database/HistoryDatabaseItem.h"
#include "database/SeriesNames.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <utility>

namespace meridal {

namespace {

/// Seconds after which a row is written again: the file may have been started afresh.
constexpr double renewal = 1000;
/// s for which what earlier runs kept is waited for. A disk that does not answer holds up nobody for longer.
constexpr double longestLoad = 5;

bool isSame(const HistorySeries& first, const HistorySeries& second)
{
    return first.name == second.name && first.origin == second.origin && first.unit == second.unit
        && first.step == second.step;
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
            .step = number(row, "step").value_or(0),
            .origin = text(row, "origin").value_or("")});
    }
    return all;
}

} // namespace

RecordedSeries::RecordedSeries(Runtime& runtime, std::string collector, std::vector<std::string> values)
    : runtime_(runtime), collector_(std::move(collector)), values_(std::move(values))
{
}

void RecordedSeries::load(HistoryDatabaseItem& file)
{
    if (std::exchange(isLoaded_, true)) {
        return;
    }
    isLoading_ = true;
    runtime_.after(longestLoad, lifetime_.guard([this] { endWait(); }));
    file.declareTable(recordedSeriesTable());
    auto adopt = lifetime_.guard([this](std::optional<std::vector<HistorySeries>> stored) {
        isLoaded_ = stored.has_value(); // else it is tried again
        for (HistorySeries& series : stored ? *stored : std::vector<HistorySeries>()) {
            series.values = values_;
            const std::string key = series.key;
            known_.emplace(key, std::move(series)); // what this run has noted is newer
        }
        endWait();
    });
    file.queryDatabaseAsync(
        [collector = collector_, adopt, &mainQueue = runtime_.mainQueue()](SQLiteConnection& database) {
            mainQueue.post([adopt, stored = read(database, collector)]() mutable { adopt(std::move(stored)); });
        });
}

void RecordedSeries::endWait()
{
    isLoading_ = false;
    for (const Task& task : std::exchange(waiting_, {})) {
        task();
    }
}

void RecordedSeries::note(const Files& files, const HistorySeries& series)
{
    if (files.empty() || !files.front()) {
        return;
    }
    load(*files.front());
    const auto entry = known_.find(series.key);
    double& renewAt = renewAt_[series.key];
    const double now = runtime_.monotonicTime();
    if (entry != known_.end() && isSame(entry->second, series) && now < renewAt) {
        return;
    }
    renewAt = now + renewal;
    known_.insert_or_assign(series.key, series);
    for (const auto& file : files) {
        if (file) {
            file->addItem(seriesNameStatement(series.key,
                {.collector = collector_,
                    .name = series.name,
                    .origin = series.origin,
                    .unit = series.unit,
                    .step = series.step}));
        }
    }
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
