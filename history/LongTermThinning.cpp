// SPDX-License-Identifier: Apache-2.0
#include "history/LongTermThinning.h"

#include "database/SQLiteConnection.h"
#include "history/BandColumns.h"

#include <fmt/format.h>

#include <cmath>
#include <vector>

namespace meridal {

namespace {

constexpr std::int64_t mergedAtOnce = 1000; ///< identifiers that one call merges
constexpr std::size_t rowsAtOnce = 20'000;  ///< looked at in one call
constexpr std::size_t rowsOnChunk = 256;    ///< read by one query: when nothing is to be done, it is the only one
constexpr std::size_t oldestAtOnce = 512;   ///< identifiers removed in one call
constexpr double aheadOfNow = 300;          ///< s; what claims to be later was written by a clock that was wrong

struct Labelled {
    std::int64_t sampleID = 0;
    double time = 0; ///< 0 when the row has none
};

bool readLabels(SQLiteConnection& database, const std::string& table, std::int64_t from, std::size_t count,
    std::vector<Labelled>& rows)
{
    rows.clear();
    const auto sql = fmt::format("SELECT sample, time FROM {} WHERE sample >= ? ORDER BY sample LIMIT ?", table);
    return database
        .forEachRow(sql, SqlValues{from, static_cast<std::int64_t>(count)},
            [&](std::span<const SqlValue> row) {
                rows.push_back({sqlInteger(row[0]), sqlNumber(row[1])});
            })
        .has_value();
}

} // namespace

void LongTermThinning::step(SQLiteConnection& database, double now, double longestAge, Oldest oldest)
{
    const auto exists = database.tableExists(tables_.table);
    if (!exists || !*exists || !findColumns(database) || !database.execute("BEGIN IMMEDIATE")) {
        return;
    }
    auto from = from_;
    bool good = oldest == Oldest::Kept || removeOldest(database, now - longestAge);
    // The coarsest first, so that what lay there for years is averaged once.
    for (std::size_t place = longTermSteps.size(); good && place-- > 0;) {
        const auto merged = thin(database, longTermSteps[place], now, from[place]);
        good = merged.has_value();
        if (merged.value_or(0) >= mergedAtOnce) {
            break;
        }
    }
    if (good && database.execute("COMMIT")) {
        from_ = from;
    } else if (database.inTransaction()) {
        static_cast<void>(database.execute("ROLLBACK"));
    }
}

/// What a column is in a row that takes the place of some. Columns that are no values take the greatest of theirs.
std::string LongTermThinning::termOf(const std::string& column) const
{
    if (column == "sample" || column == "time") {
        return column == "sample" ? "?1" : "?2";
    }
    for (const std::string& value : tables_.values) {
        if (column == value) {
            return fmt::format("avg({})", column);
        }
        if (column == lowColumn(value) || column == highColumn(value)) {
            return column == lowColumn(value) ? lowTerm(value) : highTerm(value);
        }
    }
    return fmt::format("max({})", column);
}

bool LongTermThinning::findColumns(SQLiteConnection& database)
{
    if (!mergeSql_.empty()) {
        return true;
    }
    const std::string& table = tables_.itemTable.empty() ? tables_.table : tables_.itemTable;
    const auto columns = database.columns(fmt::format("SELECT * FROM {}", table));
    if (!columns) {
        return false;
    }
    std::string names;
    std::string terms;
    std::string condition = "sample BETWEEN ?3 AND ?1";
    for (const std::string& column : *columns) {
        condition += column == "empty" ? " AND empty = 0" : "";
        names += (names.empty() ? "" : ", ") + column;
        terms += (terms.empty() ? "" : ", ") + termOf(column);
    }
    mergeSql_ = fmt::format("INSERT OR REPLACE INTO {0} ({1}) SELECT {2} FROM {0} WHERE {3} GROUP BY {4}", table, names,
        terms, condition, tables_.itemTable.empty() ? "NULL" : "uuid");
    return true;
}

/// Walks over the identifiers that are old enough and merges what shares a step. Answers how many were merged; absent when
/// the file failed.
std::optional<std::int64_t> LongTermThinning::thin(
    SQLiteConnection& database, const LongTermStep& step, double now, std::int64_t& from) const
{
    std::vector<Labelled> rows;
    Group group;
    std::int64_t merged = 0;
    std::int64_t next = from;
    const auto finish = [&] {
        merged += group.identifiers > 1 ? group.identifiers : 0;
        return !group.sound || merge(database, group);
    };
    for (std::size_t looked = 0; looked < rowsAtOnce && merged < mergedAtOnce; looked += rows.size()) {
        if (!readLabels(database, tables_.table, next, rowsOnChunk, rows)) {
            return std::nullopt;
        }
        for (const Labelled& row : rows) {
            const bool sound = row.time > 0 && row.time <= now + aheadOfNow;
            const double slot = std::ceil(row.time / step.step);
            if (sound && slot * step.step > now - step.age) {
                return finish() ? std::optional(merged) : std::nullopt;
            }
            if (!group.sound || !sound || slot != group.slot) {
                if (!finish()) {
                    return std::nullopt;
                }
                from = row.sampleID; // all before is thinned
                group = {.first = row.sampleID, .last = 0, .identifiers = 0, .slot = slot, .time = 0, .sound = sound};
            }
            group.last = row.sampleID;
            group.time = row.time;
            ++group.identifiers;
            next = row.sampleID + 1;
        }
        if (rows.size() < rowsOnChunk) {
            break; // the newest may get company yet
        }
    }
    return merged;
}

bool LongTermThinning::merge(SQLiteConnection& database, const Group& group) const
{
    if (group.identifiers < 2) {
        return true;
    }
    if (!database.execute(mergeSql_, SqlValues{group.last, group.time, group.first})) {
        return false;
    }
    const auto remove = [&](const std::string& table) {
        const auto sql = fmt::format("DELETE FROM {} WHERE sample >= ? AND sample < ?", table);
        return database.execute(sql, SqlValues{group.first, group.last}).has_value();
    };
    return remove(tables_.table) && (tables_.itemTable.empty() || remove(tables_.itemTable));
}

bool LongTermThinning::removeOldest(SQLiteConnection& database, double before) const
{
    std::vector<Labelled> rows;
    if (!readLabels(database, tables_.table, 0, 1, rows) || rows.empty() || rows.front().time >= before) {
        return !rows.empty();
    }
    if (!readLabels(database, tables_.table, 0, oldestAtOnce, rows)) {
        return false;
    }
    std::int64_t last = rows.front().sampleID;
    for (auto row = rows.begin(); row != rows.end() && row->time < before; ++row) {
        last = row->sampleID;
    }
    for (const std::string& table : {tables_.itemTable, tables_.table}) {
        if (!table.empty()
            && !database.execute(fmt::format("DELETE FROM {} WHERE sample <= ?", table), SqlValues{last})) {
            return false;
        }
    }
    return true;
}

} // namespace meridal
