// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/ApplicationTables.h"

#include "collectors/process/GroupSums.h"
#include "database/HistoryDatabaseItem.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr std::string_view progressTable = "application_progress";
constexpr std::array<std::string_view, 4> heldColumns = {"seconds", "memory", "memorypeak", "processespeak"};
constexpr std::string_view mapCreate = "CREATE TABLE %@ (identifier INTEGER PRIMARY KEY, identity TEXT NOT NULL, owner "
                                       "INTEGER NOT NULL, name TEXT NOT NULL, "
                                       "kind INTEGER NOT NULL, UNIQUE (identity, owner))";
constexpr std::string_view progressCreate =
    "CREATE TABLE %@ (step TEXT PRIMARY KEY NOT NULL, start INTEGER NOT NULL, through INTEGER NOT NULL) WITHOUT ROWID";
constexpr std::string_view processesCreate =
    "CREATE TABLE %@ (start INTEGER NOT NULL, place INTEGER NOT NULL, pid INTEGER NOT NULL, started REAL, name TEXT, "
    "application INTEGER, cpu INTEGER, memory INTEGER, disk INTEGER, network INTEGER, PRIMARY KEY (start, place)) "
    "WITHOUT ROWID";
/// The number of an application, by what it is known by.
constexpr std::string_view numberOf = "(SELECT identifier FROM application_map WHERE identity = ? AND owner = ?)";
/// Rows that are older than ?, as long as ? is not 0, or than the newest periods, ? of them.
constexpr std::string_view pruneFormat = "DELETE FROM %@ WHERE start < ?1 AND (?2 OR start < (WITH RECURSIVE "
                                         "newest(start, place) AS (SELECT max(start), 1 FROM "
                                         "%@ UNION ALL SELECT (SELECT max(start) FROM %@ WHERE start < newest.start), "
                                         "place + 1 FROM newest WHERE newest.start "
                                         "IS NOT NULL AND place < ?3) SELECT start FROM newest WHERE place = ?3))";
constexpr std::string_view removeFormat = "DELETE FROM %@ WHERE start = ?";

std::string createText()
{
    std::string text = "CREATE TABLE %@ (start INTEGER NOT NULL, application INTEGER NOT NULL";
    for (const std::string_view column : sumColumns) {
        text += fmt::format(", {} INTEGER", column);
    }
    for (const std::string_view column : heldColumns) {
        text += fmt::format(", {} INTEGER", column);
    }
    return text + ", PRIMARY KEY (start, application)) WITHOUT ROWID";
}

/// For people: times in words, names for numbers, seconds for milliseconds.
ViewSchema namedView(std::string_view table)
{
    return {.view = fmt::format("{}_named", table),
        .create =
            fmt::format("CREATE VIEW %@ AS SELECT datetime(rows.start, 'unixepoch', 'localtime') AS started, map.name, "
                        "map.identity, nullif(map.owner, -1) AS owner, (rows.cpuuser + rows.cpusystem) / 1000.0 AS "
                        "cpuseconds, {}, rows.application, rows.start FROM {} AS rows JOIN {} AS map ON "
                        "map.identifier = rows.application",
                cellColumns("rows"), table, applicationMap)};
}

ViewSchema processesView()
{
    return {.view = fmt::format("{}_named", applicationProcesses),
        .create =
            fmt::format("CREATE VIEW %@ AS SELECT datetime(rows.start, 'unixepoch', 'localtime') AS minute, rows.pid, "
                        "rows.name, map.name AS application, rows.cpu / 1000.0 AS cpuseconds, rows.memory, rows.disk, "
                        "rows.network, datetime(rows.started, 'unixepoch', 'localtime') AS started, rows.start FROM {} "
                        "AS rows LEFT JOIN {} AS map ON map.identifier = rows.application",
                applicationProcesses, applicationMap)};
}

std::int64_t stamp(double time) { return static_cast<std::int64_t>(time); }

/// What a file holds that another program wrote may be less than nothing.
std::int64_t storedCount(const SqlValue& value) { return std::max<std::int64_t>(0, sqlInteger(value)); }

SqlValues rowOf(double start, const Application& application, const ApplicationCell& cell)
{
    SqlValues row = {stamp(start), application.identity, application.owner};
    for (std::size_t column = 0; column < cell.sums.figures.size(); ++column) {
        const bool isAbsent = column == static_cast<std::size_t>(SumColumn::Millijoules) && !cell.sums.knowsJoules;
        row.push_back(isAbsent ? SqlValue() : SqlValue(cell.sums.figures[column]));
    }
    row.emplace_back(static_cast<std::int64_t>(std::llround(cell.seconds)));
    row.emplace_back(static_cast<std::int64_t>(std::llround(cell.meanMemory())));
    if (application.kind == GroupKind::Other) { // nobody knows
        row.insert(row.end(), 2, SqlValue());
    } else {
        row.emplace_back(cell.memoryPeak);
        row.emplace_back(cell.processesPeak);
    }
    return row;
}

bool readCells(SQLiteConnection& connection, RecordStep step, std::string_view where, const SqlValues& args,
    std::vector<StoredCell>& cells)
{
    const auto sql =
        fmt::format("SELECT rows.start, map.identity, map.owner, map.name, map.kind, {} FROM {} AS rows JOIN {} AS "
                    "map ON map.identifier = rows.application WHERE {} ORDER BY rows.start, rows.application",
            cellColumns("rows"), traitsOf(step).table, applicationMap, where);
    return connection
        .forEachRow(sql, args,
            [&cells](std::span<const SqlValue> row) {
                StoredCell& stored = cells.emplace_back();
                stored.start = sqlNumber(row[0]);
                stored.application = applicationFrom(row.subspan(1));
                stored.cell = cellFrom(row.subspan(5));
            })
        .has_value();
}

/// A start in a table, or an infinite one or 0 where there is none.
std::optional<double> readStart(
    SQLiteConnection& connection, RecordStep step, std::string_view format, const SqlValues& args, double none)
{
    double start = none;
    const auto done =
        connection.forEachRow(sqlText(format, traitsOf(step).table), args, [&start](std::span<const SqlValue> row) {
            start = std::holds_alternative<std::monostate>(row[0]) ? start : sqlNumber(row[0]);
        });
    return done ? std::optional(start) : std::nullopt;
}

struct NotedProgress {
    double start = 0; ///< 0: nothing is noted
    double through = 0;
};

std::optional<NotedProgress> readProgress(SQLiteConnection& connection, RecordStep step)
{
    NotedProgress noted;
    const auto done = connection.forEachRow(fmt::format("SELECT start, through FROM {} WHERE step = ?", progressTable),
        SqlValues{std::string(traitsOf(step).name)}, [&noted](std::span<const SqlValue> row) {
            noted = {sqlNumber(row[0]), sqlNumber(row[1])};
        });
    return done ? std::optional(noted) : std::nullopt;
}

/// The period of a step that has a moment. At the start it is that which was noted, as it may lack its last minutes; the
/// moment is then the newest minute's.
bool readPeriod(SQLiteConnection& connection, RecordStep step, double at, bool isStart, StoredApplications& stored)
{
    const auto noted = readProgress(connection, step);
    const auto newest = readStart(connection, step, "SELECT max(start) FROM %@ WHERE start <= ?", {at}, 0);
    if (!noted || !newest) {
        return false;
    }
    stored.progress[position(step)] = noted->start;
    StoredPeriod period{.start = *newest, .through = endOf(step, *newest), .cells = {}};
    if (isStart && noted->start > 0 && noted->start <= at) {
        period.start = noted->start;
    }
    if (period.start == noted->start && noted->start > 0) {
        period.through = noted->through;
    } else if (isStart) { // nobody knows what it lacks
        period.through = std::max(period.through, at + traitsOf(RecordStep::Minute).seconds);
    }
    if (period.start <= 0 || (!isStart && endOf(step, period.start) <= at)) {
        return true;
    }
    if (!readCells(connection, step, "rows.start = ?", {period.start}, period.cells)) {
        return false;
    }
    stored.periods[position(step)] = std::move(period);
    return true;
}

} // namespace

std::string cellColumns(std::string_view alias)
{
    std::vector<std::string> columns;
    for (const std::string_view column : sumColumns) {
        columns.push_back(fmt::format("{}.{}", alias, column));
    }
    for (const std::string_view column : heldColumns) {
        columns.push_back(fmt::format("{}.{}", alias, column));
    }
    return fmt::format("{}", fmt::join(columns, ", "));
}

Application applicationFrom(std::span<const SqlValue> columns)
{
    return {.identity = sqlWords(columns[0]),
        .owner = sqlInteger(columns[1]),
        .name = sqlWords(columns[2]),
        .kind = static_cast<GroupKind>(std::clamp<std::int64_t>(sqlInteger(columns[3]), 0, 2))};
}

ApplicationCell cellFrom(std::span<const SqlValue> columns)
{
    ApplicationCell cell;
    for (std::size_t column = 0; column < sumColumns.size(); ++column) {
        cell.sums.figures[column] = storedCount(columns[column]);
    }
    cell.sums.knowsJoules =
        !std::holds_alternative<std::monostate>(columns[static_cast<std::size_t>(SumColumn::Millijoules)]);
    const auto held = columns.subspan(sumColumns.size());
    cell.seconds = static_cast<double>(storedCount(held[0]));
    cell.byteSeconds = static_cast<double>(storedCount(held[1])) * cell.seconds;
    cell.memoryPeak = storedCount(held[2]);
    cell.processesPeak = storedCount(held[3]);
    return cell;
}

ApplicationTables::ApplicationTables(std::shared_ptr<HistoryDatabaseItem> file) : file_(std::move(file))
{
    const auto text = [](std::string_view table, std::string_view format) {
        return std::make_shared<const StatementText>(table, format);
    };
    const std::vector<std::string_view> places(sumColumns.size() + heldColumns.size(), "?");
    const auto insert = fmt::format("INSERT INTO %@ VALUES (?, {}, {})", numberOf, fmt::join(places, ", "));
    for (const RecordStep step : recordSteps) {
        const std::string_view table = traitsOf(step).table;
        steps_[position(step)] = {
            .remove = text(table, removeFormat), .insert = text(table, insert), .prune = text(table, pruneFormat)};
    }
    processes_ = {.remove = text(applicationProcesses, removeFormat),
        .insert =
            text(applicationProcesses, fmt::format("INSERT INTO %@ VALUES (?, ?, ?, ?, ?, {}, ?, ?, ?, ?)", numberOf)),
        .prune = text(applicationProcesses, pruneFormat)};
    name_ = text(applicationMap,
        "INSERT INTO %@ (identity, owner, name, kind) VALUES (?, ?, ?, ?) ON CONFLICT (identity, owner) DO UPDATE SET "
        "name = "
        "excluded.name WHERE name <> excluded.name");
    progress_ = text(progressTable, "INSERT OR REPLACE INTO %@ (step, start, through) VALUES (?, ?, ?)");
    std::string used = fmt::format("SELECT application FROM {} WHERE application IS NOT NULL", applicationProcesses);
    for (const RecordStepTraits& traits : recordStepTraits) {
        used += fmt::format(" UNION SELECT application FROM {}", traits.table);
    }
    forget_ = text(applicationMap, fmt::format("DELETE FROM %@ WHERE identifier NOT IN ({})", used));
}

void ApplicationTables::declare()
{
    file_->declareTable({.table = std::string(applicationMap), .create = std::string(mapCreate)});
    file_->declareTable({.table = std::string(progressTable), .create = std::string(progressCreate)});
    file_->declareTable({.table = std::string(applicationProcesses), .create = std::string(processesCreate)});
    for (const RecordStepTraits& traits : recordStepTraits) {
        file_->declareTable({.table = std::string(traits.table), .create = createText()});
        file_->declareView(namedView(traits.table));
    }
    file_->declareView(processesView());
}

void ApplicationTables::queue(const Text& text, SqlValues args) { file_->addItem(text, args); }

/// Repeated with each period, so that rows find their names in a fresh file as well.
void ApplicationTables::writeName(const Application& application)
{
    queue(name_,
        {application.identity, application.owner, application.name, std::int64_t{static_cast<int>(application.kind)}});
}

void ApplicationTables::writePeriod(RecordStep step, double start, const ApplicationCells& cells)
{
    const StepTexts& texts = steps_[position(step)];
    for (const auto& [application, cell] : cells) {
        writeName(*application);
    }
    queue(texts.remove, {stamp(start)});
    for (const auto& [application, cell] : cells) {
        queue(texts.insert, rowOf(start, *application, cell));
    }
}

void ApplicationTables::writeProgress(RecordStep step, double start, double through)
{
    queue(progress_, {std::string(traitsOf(step).name), stamp(start), stamp(through)});
}

void ApplicationTables::writeProcesses(double start, std::span<const Process> processes)
{
    for (const Process& process : processes) {
        if (process.application) {
            writeName(*process.application);
        }
    }
    queue(processes_.remove, {stamp(start)});
    std::int64_t place = 0;
    for (const auto& [figures, application] : processes) {
        queue(processes_.insert,
            {stamp(start), place++, std::int64_t{figures->pid}, figures->startTime, figures->name,
                application ? SqlValue(application->identity) : SqlValue(),
                application ? application->owner : Application::nobody,
                static_cast<std::int64_t>(std::llround(figures->cpuSeconds * 1000)),
                static_cast<std::int64_t>(figures->memoryBytes), static_cast<std::int64_t>(figures->diskBytes),
                static_cast<std::int64_t>(figures->networkBytes)});
    }
}

void ApplicationTables::prune(double now, bool clockIsKept, const RecordKeep& keep)
{
    const auto drop = [&](const Text& statement, RecordStep step) {
        if (keep.of(step) > 0) {
            queue(statement,
                {stamp(now - keep.of(step)), std::int64_t{clockIsKept ? 1 : 0},
                    static_cast<std::int64_t>(std::ceil(keep.of(step) / traitsOf(step).seconds))});
        }
    };
    for (const RecordStep step : recordSteps) {
        drop(steps_[position(step)].prune, step);
    }
    drop(processes_.prune, RecordStep::Minute);
}

void ApplicationTables::forgetNames() { queue(forget_, {}); }

StoredApplications ApplicationTables::read(SQLiteConnection& connection, std::optional<double> at)
{
    constexpr double never = std::numeric_limits<double>::infinity();
    StoredApplications stored;
    const auto newest = readStart(connection, RecordStep::Minute, "SELECT max(start) FROM %@", {}, 0);
    const double moment = at.value_or(newest.value_or(0));
    stored.readable = newest.has_value();
    stored.clearUntil = never;
    double missing = moment;
    for (const RecordStep step : recordSteps) {
        const auto next = readStart(connection, step, "SELECT min(start) FROM %@ WHERE start > ?", {moment}, never);
        stored.readable = stored.readable && next && readPeriod(connection, step, moment, !at, stored);
        stored.clearUntil = std::min(stored.clearUntil, next.value_or(never));
        const auto& period = stored.periods[position(step)];
        missing = step == RecordStep::Minute ? missing : std::min(missing, period ? period->through : 0);
    }
    if (!stored.readable || at) { // of a moment, everything has been written
        return stored;
    }
    constexpr double longest = 7200; // s; they are written every quarter of an hour
    stored.readable = readCells(connection, RecordStep::Minute, "rows.start >= ? AND rows.start < ?",
        {std::max(missing, moment - longest), moment}, stored.minutes);
    return stored;
}

} // namespace meridal
