// SPDX-License-Identifier: Apache-2.0
#include "history/HistoryReader.h"

#include "database/SQLiteConnection.h"
#include "history/BandColumns.h"
#include "history/SampleRecords.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// Half of what a clock can count: a greater one in a file is no count of periods, and would leave none to come.
constexpr std::int64_t largestStoredIdentifier = std::int64_t{1} << 52;

constexpr double latestMoment = 253'402'300'800.0; ///< s since 1970: the end of the year 9999

/// What the columns of a table mean, found once a query.
class RowReader {
public:
    RowReader(const std::vector<std::string>& columns, const HistoryReadPlan& plan, StoredRows& rows)
        : rows_(rows), hasBands_(plan.withBands)
    {
        rows.valueCount = plan.columns.size();
        for (const std::string& column : columns) {
            roles_.push_back(roleOf(column, plan));
        }
    }

    void add(std::span<const SqlValue> row)
    {
        StoredRows::Row& stored = rows_.rows.emplace_back();
        const std::size_t end = rows_.values.size() + rows_.valueCount;
        rows_.values.resize(end, absentFigure);
        if (hasBands_) {
            rows_.lowest.resize(end, absentFigure);
            rows_.highest.resize(end, absentFigure);
        }
        for (std::size_t index = 0; index < row.size(); ++index) {
            take(roles_[index], row[index], stored, end - rows_.valueCount);
        }
    }

private:
    enum class Kind { Nothing, Identifier, Time, Empty, Key, Slot, Lowest, Highest };
    struct Role {
        Kind kind = Kind::Nothing;
        std::size_t slot = 0;
    };

    static Role roleOf(const std::string& column, const HistoryReadPlan& plan)
    {
        if (column == "sample") {
            return {.kind = Kind::Identifier};
        }
        if (column == "time") {
            return {.kind = Kind::Time};
        }
        if (column == "empty") {
            return {.kind = Kind::Empty};
        }
        if (column == "uuid") {
            return {.kind = Kind::Key};
        }
        for (std::size_t slot = 0; slot < plan.columns.size(); ++slot) {
            const std::string& value = plan.columns[slot];
            const bool isBound = plan.withBands && column.starts_with(value);
            if (column == value || (isBound && (column == lowColumn(value) || column == highColumn(value)))) {
                return {column == value ? Kind::Slot : column == lowColumn(value) ? Kind::Lowest : Kind::Highest, slot};
            }
        }
        return {};
    }

    void take(Role role, const SqlValue& value, StoredRows::Row& stored, std::size_t first)
    {
        const auto put = [&](std::vector<double>& into, double figure) {
            if (!std::holds_alternative<std::monostate>(value) && std::isfinite(figure)) {
                into[first + role.slot] = figure;
            }
        };
        const double figure = sqlNumber(value);
        switch (role.kind) {
        case Kind::Identifier:
            stored.sampleID = figure >= 0 && figure < largestIdentifier ? static_cast<std::uint64_t>(figure) : 0;
            break;
        case Kind::Time:
            stored.time = figure > 0 && figure < latestMoment ? figure : 0;
            break;
        case Kind::Empty:
            stored.empty = figure != 0;
            break;
        case Kind::Key:
            if (const auto* key = std::get_if<std::string>(&value)) {
                rows_.byKey[*key].push_back(rows_.rows.size() - 1);
            }
            break;
        case Kind::Slot:
            put(rows_.values, figure);
            break;
        case Kind::Lowest:
            put(rows_.lowest, figure);
            break;
        case Kind::Highest:
            put(rows_.highest, figure);
            break;
        case Kind::Nothing:
            break;
        }
    }

    StoredRows& rows_;
    bool hasBands_;
    std::vector<Role> roles_;
};

bool readRows(SQLiteConnection& database, const std::string& sql, const SqlValues& args, const HistoryReadPlan& plan,
    StoredRows& rows)
{
    const auto columns = database.columns(sql);
    if (!columns) {
        return false;
    }
    RowReader reader(*columns, plan, rows);
    return database.forEachRow(sql, args, [&](std::span<const SqlValue> row) { reader.add(row); }).has_value();
}

/// Labels looked at to find where a table ends: more than any table of bounded length keeps.
constexpr std::int64_t labelsAtEnd = 1206;

/// The newest rows of a table, in the ascending order in which rings take them. What no identifier can be is passed over.
bool readNewest(SQLiteConnection& database, const std::string& table, std::int64_t count, const HistoryReadPlan& plan,
    StoredRows& rows)
{
    return readRows(database,
        fmt::format("SELECT * FROM (SELECT * FROM {} WHERE sample BETWEEN 0 AND ? ORDER BY sample DESC LIMIT ?) "
                    "ORDER BY sample ASC",
            table),
        {largestStoredIdentifier, count}, plan, rows);
}

/// Finds out where a table ends. A row without a time hides neither its identifier nor the times before it.
bool findEnd(SQLiteConnection& database, const std::string& table, const HistoryReadPlan& plan, StoredStorage& stored)
{
    StoredRows newest;
    if (!readNewest(database, table, labelsAtEnd, plan, newest)) {
        return false;
    }
    if (newest.rows.empty()) {
        return true;
    }
    double newestTime = 0;
    for (const StoredRows::Row& row : newest.rows) {
        newestTime = row.time > 0 ? row.time : newestTime;
        stored.latestTime = std::max(stored.latestTime, row.time);
    }
    if (!stored.hasNewest || newest.rows.back().sampleID > stored.newestID) {
        stored.newestID = newest.rows.back().sampleID;
        stored.newestTime = newestTime > 0 ? newestTime : stored.newestTime;
    }
    stored.hasNewest = true;
    return true;
}

/// The newest identifiers below one, newest first, each found by one step into the index: rows of other items under the
/// same identifier cost nothing. Arguments: the identifier, and how many.
constexpr std::string_view newestIdentifiers =
    "WITH RECURSIVE ids(id) AS (SELECT max(sample) FROM %@ WHERE sample < ? UNION ALL "
    "SELECT (SELECT max(sample) FROM %@ WHERE sample < ids.id) FROM ids WHERE id IS NOT NULL LIMIT ?) ";

bool readMeasured(
    SQLiteConnection& database, const HistoryReadPlan::Tables& tables, std::vector<std::uint64_t>& measured)
{
    if (!tables.isPruned || (tables.itemTable.empty() && !tables.marksEmpty)) {
        return true;
    }
    const std::string sql = tables.itemTable.empty()
        ? fmt::format("SELECT sample FROM {} WHERE sample < ? AND empty = 0 ORDER BY sample DESC LIMIT ?", tables.table)
        : sqlText(newestIdentifiers, tables.itemTable) + "SELECT id FROM ids WHERE id IS NOT NULL";
    const bool read = database
                          .forEachRow(sql, SqlValues{largestStoredIdentifier, static_cast<std::int64_t>(keptSamples)},
                              [&](std::span<const SqlValue> row) {
                                  measured.push_back(static_cast<std::uint64_t>(std::max(0.0, sqlNumber(row[0]))));
                              })
                          .has_value();
    std::reverse(measured.begin(), measured.end());
    return read;
}

} // namespace

bool readStorage(SQLiteConnection& database, const HistoryReadPlan& plan, StorageIndex index, StoredStorage& stored)
{
    const HistoryReadPlan::Tables& tables = plan.tables[position(index)];
    if (tables.table.empty()) {
        return true;
    }
    const auto slots = static_cast<std::int64_t>(tables.slots);
    if (!findEnd(database, tables.table, plan, stored)
        || (!tables.itemTable.empty() && !findEnd(database, tables.itemTable, plan, stored))
        || !readMeasured(database, tables, stored.measured)
        || !readNewest(database, tables.table, slots, plan, stored.samples)) {
        return false;
    }
    if (!stored.hasNewest || tables.itemTable.empty() || slots == 0) {
        return true;
    }
    std::string sql = fmt::format("SELECT * FROM {} WHERE sample > ? AND sample <= ?", tables.itemTable);
    const auto newest = static_cast<std::int64_t>(stored.newestID);
    SqlValues args{newest - slots, newest};
    if (plan.onlyKey) {
        sql += " AND uuid = ?";
        args.emplace_back(*plan.onlyKey);
    }
    return readRows(database, sql + " ORDER BY sample ASC", args, plan, stored.items);
}

namespace {

/// What a page looks at.
struct Window {
    std::size_t identifiers = 0;
    std::uint64_t oldest = 0; ///< identifier
    double newestTime = 0;    ///< s since 1970
};

SqlValues windowArguments(const HistoryPageQuestion& question)
{
    const double before = static_cast<double>(question.before.value_or(static_cast<std::uint64_t>(largestIdentifier)));
    return {
        static_cast<std::int64_t>(std::min(before, largestIdentifier)), static_cast<std::int64_t>(identifiersOnPage)};
}

std::optional<Window> findWindow(
    SQLiteConnection& database, const std::string& table, const HistoryPageQuestion& question)
{
    constexpr std::string_view extent =
        "SELECT count(id), min(id), max((SELECT time FROM %@ WHERE sample = ids.id LIMIT 1)) FROM ids";
    Window window;
    const auto found = database.forEachRow(sqlText(std::string(newestIdentifiers).append(extent), table),
        windowArguments(question), [&](std::span<const SqlValue> row) {
            window.identifiers = static_cast<std::size_t>(sqlNumber(row[0]));
            window.oldest = static_cast<std::uint64_t>(std::max(0.0, sqlNumber(row[1])));
            window.newestTime = sqlNumber(row[2]);
        });
    return found ? std::optional(window) : std::nullopt;
}

/// The WHERE of a page, its arguments added to those there are.
std::string pageCondition(const std::vector<std::string>& columns, const HistoryPageQuestion& question, SqlValues& args)
{
    const auto has = [&](std::string_view name) {
        return std::find(columns.begin(), columns.end(), name) != columns.end();
    };
    std::string condition = "sample = ids.id AND time >= ?";
    args.emplace_back(question.from);
    if (question.until) {
        condition += " AND time < ?";
        args.emplace_back(*question.until);
    }
    if (has("uuid")) {
        condition += " AND uuid = ?";
        args.emplace_back(question.key);
    }
    if (has("empty")) {
        condition += " AND empty = 0";
    }
    return condition;
}

void dropOldest(StoredRows& rows)
{
    rows.rows.erase(rows.rows.begin());
    for (std::vector<double>* figures : {&rows.values, &rows.lowest, &rows.highest}) {
        const std::size_t count = std::min(rows.valueCount, figures->size());
        figures->erase(figures->begin(), figures->begin() + static_cast<std::ptrdiff_t>(count));
    }
    rows.byKey.clear(); // its places are those of before
}

bool readWindow(SQLiteConnection& database, const std::string& table, const HistoryReadPlan& plan,
    const HistoryPageQuestion& question, StoredRows& rows)
{
    const auto columns = database.columns(fmt::format("SELECT * FROM {}", table));
    if (!columns) {
        return false;
    }
    SqlValues args = windowArguments(question);
    const std::string condition = pageCondition(*columns, question, args);
    args.emplace_back(static_cast<std::int64_t>(question.limit) + 1); // one more tells whether there are more
    // CROSS JOIN: the identifiers lead, whatever the planner thinks of it.
    const std::string found =
        fmt::format("SELECT {0}.* FROM ids CROSS JOIN {0} WHERE {1} ORDER BY ids.id DESC LIMIT ?", table, condition);
    return readRows(database,
        sqlText(newestIdentifiers, table) + fmt::format("SELECT * FROM ({}) ORDER BY sample ASC", found), args, plan,
        rows);
}

} // namespace

std::optional<HistoryPage> readPage(SQLiteConnection& database, const std::string& table, const HistoryReadPlan& plan,
    const HistoryPageQuestion& question)
{
    HistoryPage page;
    const auto exists = database.tableExists(table);
    if (!exists) {
        return std::nullopt;
    }
    if (!*exists) {
        return page;
    }
    const auto window = findWindow(database, table, question);
    if (!window) {
        return std::nullopt;
    }
    if (window->newestTime < question.from) {
        return page;
    }
    if (!readWindow(database, table, plan, question, page.samples)) {
        return std::nullopt;
    }
    if (page.samples.rows.size() > question.limit) {
        dropOldest(page.samples);
        page.more = true;
        page.next = page.samples.rows.front().sampleID;
    } else {
        page.more = window->identifiers == identifiersOnPage;
        page.next = window->oldest;
    }
    return page;
}

namespace {

constexpr std::int64_t mostRowsOfSpan = 50'000;

/// Identifiers whose rows may be of a span, and how far the table reaches.
struct Extent {
    double oldest = 0; ///< s since 1970
    double newest = 0;
    double first = 0; ///< identifiers
    double last = -1; ///< below `first`: none
};

/// The numbers of a statement's one row; 0 where it has none. Absent when it cannot be read.
template <std::size_t Count>
std::optional<std::array<double, Count>> numbersOf(
    SQLiteConnection& database, const std::string& sql, const SqlValues& args)
{
    std::array<double, Count> numbers = {};
    const auto read = database.forEachRow(sql, args, [&numbers](std::span<const SqlValue> row) {
        for (std::size_t place = 0; place < std::min(Count, row.size()); ++place) {
            numbers[place] = sqlNumber(row[place]);
        }
    });
    return read ? std::optional(numbers) : std::nullopt;
}

/// The smallest identifier from `low` on whose row is later than a moment, or `high`.
double firstLaterThan(SQLiteConnection& database, const std::string& table, double time, double low, double high)
{
    const std::string next = sqlText(
        "SELECT CASE WHEN time > ?2 THEN -1 ELSE sample END, 1 FROM %@ WHERE sample >= ?1 ORDER BY sample LIMIT 1",
        table);
    while (low < high) {
        const double middle = std::floor((low + high) / 2);
        const auto earlier = numbersOf<2>(database, next, SqlValues{static_cast<std::int64_t>(middle), time});
        if (!earlier || (*earlier)[1] == 0 || (*earlier)[0] < middle) {
            high = middle;
        } else {
            low = (*earlier)[0] + 1;
        }
    }
    return low;
}

std::optional<Extent> extentOf(
    SQLiteConnection& database, const std::string& table, StorageIndex index, const TimeSpan& span)
{
    const bool isLong = index == StorageIndex::LongTerm;
    constexpr std::string_view ends = "SELECT (SELECT time FROM %@ WHERE time > 0 ORDER BY sample LIMIT 1), "
                                      "(SELECT time FROM %@ WHERE time > 0 ORDER BY sample DESC LIMIT 1), ";
    constexpr std::string_view all = "(SELECT min(sample) FROM %@), (SELECT max(sample) FROM %@), 1";
    constexpr std::string_view ofSpan =
        "min(sample), max(sample), count(*) > 0 FROM %@ WHERE time > ? AND time <= ?"; // a look at 603 rows
    const auto found = numbersOf<5>(database, sqlText(std::string(ends).append(isLong ? all : ofSpan), table),
        isLong ? SqlValues{} : SqlValues{span.from, span.until});
    if (!found) {
        return std::nullopt;
    }
    const auto& [oldest, newest, first, last, isAny] = *found;
    Extent extent;
    extent.oldest = oldest;
    extent.newest = newest;
    if (isAny != 0 && newest > 0) {
        extent.first = isLong ? firstLaterThan(database, table, span.from, first, last + 1) : first;
        extent.last = isLong ? firstLaterThan(database, table, span.until, extent.first, last + 1) : last;
    }
    return extent;
}

} // namespace

bool readSpan(SQLiteConnection& database, const HistoryReadPlan& plan, StorageIndex index, const TimeSpan& span,
    RowsOfSpan& found)
{
    const HistoryReadPlan::Tables& tables = plan.tables[position(index)];
    const std::string& values = tables.itemTable.empty() ? tables.table : tables.itemTable;
    const auto exists = tables.table.empty() ? Result<bool>(false) : database.tableExists(values);
    if (!exists || !*exists) {
        return exists.has_value();
    }
    const auto extent = extentOf(database, tables.table, index, span);
    if (!extent) {
        return false;
    }
    found.oldest = extent->oldest;
    found.newest = extent->newest;
    if (extent->last < extent->first) {
        return true;
    }
    return readRows(database,
        fmt::format(
            "SELECT * FROM {} WHERE sample BETWEEN ? AND ? AND time > ? AND time <= ? ORDER BY sample LIMIT ?", values),
        {static_cast<std::int64_t>(extent->first), static_cast<std::int64_t>(extent->last), span.from, span.until,
            mostRowsOfSpan},
        plan, found.rows);
}

} // namespace meridal
