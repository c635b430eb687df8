// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/ApplicationReader.h"

#include "base/Value.h"
#include "collectors/applications/ApplicationTables.h"
#include "database/SQLiteConnection.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

namespace meridal {

namespace {

bool isShown(const Application& application, const WhoseApplications& whose)
{
    const auto isOf = [&application](const std::optional<std::uint32_t>& user) {
        return application.kind == GroupKind::Application && application.owner == std::int64_t{*user};
    };
    return (!whose.owner || isOf(whose.owner))
        && (!whose.viewer || application.kind == GroupKind::Kernel || isOf(whose.viewer));
}

using NamedApplications = std::unordered_map<std::int64_t, Application>; ///< by number

std::optional<NamedApplications> readNames(SQLiteConnection& connection, std::string_view where, const SqlValues& args)
{
    NamedApplications names;
    const auto done = connection.forEachRow(
        fmt::format("SELECT identifier, identity, owner, name, kind FROM {} WHERE {}", applicationMap, where), args,
        [&names](
            std::span<const SqlValue> row) { names.emplace(sqlInteger(row[0]), applicationFrom(row.subspan(1))); });
    return done ? std::optional(std::move(names)) : std::nullopt;
}

RecordedGroup groupFrom(const Application& application, const ApplicationCell& cell)
{
    RecordedGroup group;
    group.identity = application.identity;
    group.name = application.name;
    group.kind = application.kind;
    if (application.owner >= 0) {
        group.owner = static_cast<std::uint32_t>(application.owner);
    }
    group.sums = cell.sums.groupSums();
    group.levels.footprintBytes = static_cast<std::uint64_t>(cell.meanMemory());
    group.levels.residentBytes = group.levels.footprintBytes;
    if (application.kind != GroupKind::Other) {
        group.levels.processes = static_cast<std::uint32_t>(std::min<std::int64_t>(cell.processesPeak, INT32_MAX));
        group.memoryPeakBytes = static_cast<std::uint64_t>(cell.memoryPeak);
    }
    return group;
}

/// Rows of a step's periods that start from ?1 on and before ?2; with the minutes that it does not have yet, which start
/// from ?3 on and before ?5, and are of the period ?4.
std::string rowsAskedFor(RecordStep step)
{
    const std::string columns = cellColumns("rows");
    std::string sql = fmt::format(
        "SELECT rows.start, rows.application, {} FROM {} AS rows WHERE rows.start >= ?1 AND rows.start < ?2", columns,
        traitsOf(step).table);
    if (step != RecordStep::Minute) {
        sql += fmt::format(" UNION ALL SELECT ?4, rows.application, {} FROM {} AS rows WHERE rows.start >= ?3 AND "
                           "rows.start < ?5 AND ?4 >= ?1 AND ?4 < ?2",
            columns, traitsOf(RecordStep::Minute).table);
    }
    return sql;
}

using NumberedCells = std::unordered_map<std::int64_t, ApplicationCell>;

/// Added up here and not by SQLite, which would sort the rows for that. False when the file failed.
bool addUp(SQLiteConnection& connection, RecordStep step, double from, double until, const RunningPeriods& running,
    NumberedCells& cells)
{
    const RunningMinutes& minutes = running[position(step)];
    SqlValues args = {from, until};
    if (step != RecordStep::Minute) {
        args.insert(args.end(), {minutes.from, minutes.period, minutes.until});
    }
    return from >= until
        || connection
               .forEachRow(rowsAskedFor(step), args,
                   [&cells](std::span<const SqlValue> row) { cells[sqlInteger(row[1])] += cellFrom(row.subspan(2)); })
               .has_value();
}

/// Whether the periods of a table start where this machine's clock has them start now: not those of days in another time zone.
bool isOnGrid(SQLiteConnection& connection, RecordStep step, double from, double until)
{
    if (step < RecordStep::Day) {
        return true;
    }
    bool isSo = true;
    const auto looked = connection.forEachRow(
        fmt::format(
            "WITH RECURSIVE starts(start) AS (SELECT max(start) FROM {0} WHERE start < ?2 UNION ALL SELECT (SELECT "
            "max(start) FROM {0} WHERE start < starts.start) FROM starts WHERE starts.start >= ?1) SELECT start FROM "
            "starts WHERE start IS NOT NULL",
            traitsOf(step).table),
        SqlValues{from, until}, [&isSo, step](std::span<const SqlValue> row) {
            isSo = isSo && startOf(step, sqlNumber(row[0])) == sqlNumber(row[0]);
        });
    return looked && isSo;
}

/// The same with coarser periods where whole ones lie within: they hold the same sums in a tenth of the rows.
bool addUpMixed(SQLiteConnection& connection, RecordStep step, double from, double until, const RunningPeriods& running,
    NumberedCells& cells)
{
    if (step != RecordStep::Month) {
        const RecordStep coarser = recordSteps[position(step) + 1];
        const double before = startOf(coarser, from);
        const double first = before == from ? from : endOf(coarser, before);
        const double last = startOf(coarser, until);
        const bool nests = startOf(step, first) == first && startOf(step, last) == last;
        if (first < last && nests && isOnGrid(connection, coarser, first, last)) {
            return addUp(connection, step, from, first, running, cells)
                && addUpMixed(connection, coarser, first, last, running, cells)
                && addUp(connection, step, last, until, running, cells);
        }
    }
    return addUp(connection, step, from, until, running, cells);
}

struct AddedUp {
    double from = 0; ///< both 0: there is nothing
    double until = 0;
    NumberedCells cells;
};

/// All periods of the step that start in a range.
std::optional<AddedUp> addUpRange(
    SQLiteConnection& connection, RecordStep step, double from, double until, const RunningPeriods& running)
{
    AddedUp sums;
    const auto looked = connection.forEachRow(
        fmt::format(
            "SELECT (SELECT min(start) FROM {0} WHERE start >= ?1), (SELECT max(start) FROM {0} WHERE start < ?2)",
            traitsOf(step).table),
        SqlValues{from, until}, [&](std::span<const SqlValue> row) {
            sums.from = sqlNumber(row[0]);
            sums.until = sqlNumber(row[1]);
        });
    if (sums.from <= 0 || sums.from >= until || sums.until < from) {
        sums.from = sums.until = 0;
    }
    const RunningMinutes& minutes = running[position(step)];
    if (minutes.period > 0 && minutes.period >= from && minutes.period < until) {
        sums.from = sums.from > 0 ? std::min(sums.from, minutes.period) : minutes.period;
        sums.until = std::max(sums.until, minutes.period);
    }
    if (sums.from > 0) {
        sums.until = endOf(step, sums.until);
    }
    const bool isRead = looked && addUpMixed(connection, step, sums.from, sums.until, running, sums.cells);
    return isRead ? std::optional(std::move(sums)) : std::nullopt;
}

struct RankedRow {
    double rank = 0;
    std::int64_t number = 0;
    const Application* application = nullptr;
    const ApplicationCell* cell = nullptr;

    bool operator<(const RankedRow& other) const
    {
        return rank != other.rank ? rank > other.rank : number < other.number;
    }
};

/// All that are shown, the largest first; "other" and the kernel last.
std::vector<RankedRow> rankRows(
    const AddedUp& sums, const NamedApplications& names, const WhoseApplications& whose, RankedBy by)
{
    std::vector<RankedRow> rows;
    for (const auto& [number, cell] : sums.cells) {
        const auto named = names.find(number);
        if (named == names.end() || !isShown(named->second, whose)) {
            continue;
        }
        const double rank = named->second.kind == GroupKind::Application ? rankOf(cell.sums, cell.meanMemory(), by)
                                                                         : -static_cast<double>(named->second.kind);
        rows.push_back({rank, number, &named->second, &cell});
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

// Courses

using CoursePeriods = std::map<double, std::pair<ApplicationCell, double>>; ///< by start; what, and the s recorded

constexpr std::string_view wholeNumber =
    "(SELECT identifier FROM application_map WHERE identity = 'other' AND kind = 1)";

/// Steps from period to period, which takes a look or two each: reading all rows between would take a thousand times that.
std::string courseAskedFor(std::string_view table)
{
    return fmt::format(
        "WITH RECURSIVE starts(start) AS (SELECT min(start) FROM {0} WHERE start >= ?1 AND start < ?2 UNION ALL SELECT "
        "(SELECT min(start) FROM {0} WHERE start > starts.start AND start < ?2) FROM starts WHERE starts.start IS NOT "
        "NULL) "
        "SELECT rows.start, whole.seconds, {1} FROM starts CROSS JOIN json_each(?3) AS numbers CROSS JOIN {0} AS rows "
        "ON "
        "rows.start = starts.start AND rows.application = numbers.value LEFT JOIN {0} AS whole ON whole.start = "
        "starts.start "
        "AND whole.application = {2} ORDER BY rows.start LIMIT ?4",
        table, cellColumns("rows"), wholeNumber);
}

bool addPeriods(SQLiteConnection& connection, RecordStep step, const SqlValues& args,
    const std::optional<double>& asPeriod, CoursePeriods& periods)
{
    double latest = 0; // the same period comes once for each owner of the group
    return connection
        .forEachRow(courseAskedFor(traitsOf(step).table), args,
            [&](std::span<const SqlValue> row) {
                const double start = sqlNumber(row[0]);
                auto& [cell, seconds] = periods[asPeriod.value_or(start)];
                cell += cellFrom(row.subspan(2));
                if (start != std::exchange(latest, start)) {
                    seconds += sqlNumber(row[1]);
                }
            })
        .has_value();
}

std::optional<CoursePeriods> readPeriods(SQLiteConnection& connection, const CourseQuestion& question,
    const RunningPeriods& running, const std::string& numbers, std::size_t numberCount)
{
    CoursePeriods periods;
    const double aligned = startOf(question.step, question.from);
    const double from = question.after ? std::max(aligned, *question.after + 1) : aligned;
    const auto rows = static_cast<std::int64_t>((question.limit + 1) * numberCount);
    if (!addPeriods(connection, question.step, {from, question.until, numbers, rows}, std::nullopt, periods)) {
        return std::nullopt;
    }
    const RunningMinutes& minutes = running[position(question.step)];
    const bool isAsked =
        question.step != RecordStep::Minute && minutes.period >= from && minutes.period < question.until;
    if (isAsked
        && !addPeriods(connection, RecordStep::Minute, {minutes.from, minutes.until, numbers, std::int64_t{-1}},
            minutes.period, periods)) {
        return std::nullopt;
    }
    return periods;
}

// Moments

/// The period of a step that has a moment.
struct PeriodAt {
    bool reachesBack = false; ///< the table has something that is older
    double start = 0;         ///< 0: none
};

std::optional<PeriodAt> periodAt(SQLiteConnection& connection, RecordStep step, double time)
{
    PeriodAt found;
    const auto done =
        connection.forEachRow(fmt::format("SELECT max(start) FROM {} WHERE start <= ?", traitsOf(step).table),
            SqlValues{time}, [&found](std::span<const SqlValue> row) {
                found.start = sqlNumber(row[0]);
                found.reachesBack = found.start > 0;
            });
    if (found.start > 0 && endOf(step, found.start) <= time) {
        found.start = 0;
    }
    return done ? std::optional(found) : std::nullopt;
}

bool readProcesses(SQLiteConnection& connection, const MomentQuestion& question, RecordedMoment& moment)
{
    std::unordered_map<std::string, std::uint32_t> places;
    std::uint32_t other = 0;
    for (std::uint32_t place = 0; place < moment.groups.size(); ++place) {
        places.emplace(moment.groups[place].identity, place);
        other = moment.groups[place].kind == GroupKind::Other ? place : other;
    }
    const auto sql =
        fmt::format("SELECT map.identity, map.owner, map.name, map.kind, rows.pid, rows.started, rows.name, rows.cpu, "
                    "rows.memory, rows.disk, rows.network FROM {} AS rows LEFT JOIN {} AS map ON map.identifier = "
                    "rows.application WHERE rows.start = ? ORDER BY rows.place",
            applicationProcesses, applicationMap);
    return connection
        .forEachRow(sql, SqlValues{startOf(RecordStep::Minute, question.time)},
            [&](std::span<const SqlValue> row) {
                const Application application = applicationFrom(row);
                const bool isKnown = !application.identity.empty();
                if (question.whose.viewer && (!isKnown || !isShown(application, question.whose))) {
                    return;
                }
                RecordedProcess& process = moment.processes.emplace_back();
                process.identity = application.identity;
                process.groupName = application.name;
                const auto place = places.find(application.identity);
                process.group = place != places.end() ? place->second : other;
                process.pid = static_cast<std::int32_t>(sqlInteger(row[4]));
                process.startTime = sqlNumber(row[5]);
                process.name = sqlWords(row[6]);
                process.cpuSeconds = sqlNumber(row[7]) / 1000;
                process.memoryBytes = static_cast<std::uint64_t>(sqlInteger(row[8]));
                process.diskBytes = static_cast<std::uint64_t>(sqlInteger(row[9]));
                process.networkBytes = static_cast<std::uint64_t>(sqlInteger(row[10]));
            })
        .has_value();
}

} // namespace

RecordStep stepFor(double from, double until, double now, std::size_t periods, const RecordKeep& keep)
{
    for (const RecordStep step : recordSteps) {
        if (keep.reaches(step, from, now) && until - from <= static_cast<double>(periods) * traitsOf(step).seconds) {
            return step;
        }
    }
    return RecordStep::Month;
}

std::optional<RecordedTotals> readTotals(
    SQLiteConnection& connection, const TotalsQuestion& question, const RunningPeriods& running)
{
    const auto sums =
        addUpRange(connection, question.step, startOf(question.step, question.from), question.until, running);
    const auto names = sums ? readNames(connection, "1", {}) : std::nullopt;
    if (!names) {
        return std::nullopt;
    }
    RecordedTotals totals;
    totals.from = sums->from;
    totals.until = sums->until;
    const RankedRow after{
        .rank = question.after ? question.after->rank : 0, .number = question.after ? question.after->number : 0};
    RankedRow last;
    std::size_t count = 0;
    for (const RankedRow& row : rankRows(*sums, *names, question.whose, question.by)) {
        if (question.after && !(after < row)) {
            continue;
        }
        if (row.application->kind == GroupKind::Application && count++ == question.limit) {
            totals.next = TotalsCursor{last.rank, last.number};
            break;
        }
        last = row;
        totals.groups.push_back(groupFrom(*row.application, *row.cell));
    }
    return totals;
}

std::optional<RecordedCourse> readCourse(
    SQLiteConnection& connection, const CourseQuestion& question, const RunningPeriods& running)
{
    auto names = readNames(connection, "identity = ?", {question.identity});
    if (!names) {
        return std::nullopt;
    }
    std::erase_if(*names, [&](const auto& entry) { return !isShown(entry.second, question.whose); });
    RecordedCourse course;
    course.isKnown = !names->empty();
    if (!course.isKnown) {
        return course;
    }
    Application application = names->begin()->second;
    Value numbers = Value::array();
    for (const auto& [number, named] : *names) {
        numbers.push_back(number);
        application.owner = named.owner == application.owner ? named.owner : Application::nobody;
    }
    course.group = groupFrom(application, {});
    const auto periods = readPeriods(connection, question, running, serialise(numbers), numbers.size());
    if (!periods) {
        return std::nullopt;
    }
    for (const auto& [start, period] : *periods) {
        if (course.periods.size() == question.limit) {
            course.more = true;
            break;
        }
        course.periods.push_back({start, period.second, groupFrom(application, period.first)});
    }
    return course;
}

std::optional<RecordedMoment> readMoment(
    SQLiteConnection& connection, const MomentQuestion& question, const RunningPeriods& running)
{
    RecordedMoment moment;
    for (const RecordStep step : recordSteps) {
        const auto found = periodAt(connection, step, question.time);
        if (!found) {
            return std::nullopt;
        }
        // Where the finer table has nothing, a coarser one has it of other minutes.
        if (!found->reachesBack && !question.keep.reaches(step, question.time, question.now)) {
            continue;
        }
        if (found->start > 0) {
            const double end = endOf(step, found->start);
            auto totals = readTotals(connection,
                {.from = found->start,
                    .until = end,
                    .step = step,
                    .whose = question.whose,
                    .limit = 10'000,
                    .after = {}},
                running);
            if (!totals) {
                return std::nullopt;
            }
            moment.from = found->start;
            moment.until = end;
            moment.groups = std::move(totals->groups);
        }
        break;
    }
    return readProcesses(connection, question, moment) ? std::optional(std::move(moment)) : std::nullopt;
}

} // namespace meridal
