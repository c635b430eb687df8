// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/ApplicationRecorder.h"

#include "base/Log.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr double flushEvery = 30; // s; a power cut takes what is younger
constexpr double retryEvery = 30; // s between attempts to read what is stored
constexpr double minuteLength = 60;
constexpr double pruneEvery = 3600;
constexpr double forgetEvery = 86'400;
/// A clock that is set back by less leaves the minute at hand longer; by more, what comes is added to what those minutes
/// have already.
constexpr double smallestReturn = 300; // s
/// Applications in the sums of one period that is going on; beyond, the smallest become part of "other" ahead of time.
constexpr std::size_t mostInPeriod = 1000;
constexpr std::size_t keptOfTooMany = 100; // by each figure

std::int64_t memoryOf(const GroupLevels& levels)
{
    const std::uint64_t bytes = levels.footprintBytes > 0 ? levels.footprintBytes : levels.residentBytes;
    return static_cast<std::int64_t>(std::min<std::uint64_t>(bytes, std::uint64_t{1} << 60));
}

void addCells(ApplicationCells& into, const ApplicationCells& cells)
{
    for (const auto& [application, cell] : cells) {
        into[application] += cell;
    }
}

} // namespace

ApplicationRecorder::ApplicationRecorder(Context& context)
    : context_(context), lastSteady_(context.runtime.monotonicTime()), lastSlept_(context.runtime.sleptTime())
{
}

ApplicationRecorder::~ApplicationRecorder() = default;

// The start

bool ApplicationRecorder::opensFile()
{
    if (!tables_ && context_.databases) {
        tables_ = std::make_unique<ApplicationTables>(
            context_.databases->databaseWithPath(context_.paths.support / "applications.db"));
        tables_->declare();
    }
    return tables_ != nullptr;
}

/// Reads on the file's queue what is to be gone on from, and goes on when that has answered.
void ApplicationRecorder::load(std::optional<double> at)
{
    nextRead_ = context_.runtime.monotonicTime() + retryEvery;
    if (!opensFile()) {
        return;
    }
    phase_ = Phase::Loading;
    tables_->file()->commit();
    tables_->file()->queryDatabaseAsync(
        [at, &main = context_.runtime.mainQueue(), take = lifetime_.guard([this, at](const StoredApplications& stored) {
            adopt(stored, !at);
        })](SQLiteConnection& connection) {
            main.post([take, stored = ApplicationTables::read(connection, at)]() mutable { take(stored); });
        });
}

ApplicationCells ApplicationRecorder::cellsFrom(std::span<const StoredCell> rows)
{
    ApplicationCells cells;
    for (const auto& [start, known, cell] : rows) {
        cells[applications_.find(known.identity, known.owner, known.name, known.kind)] += cell;
    }
    return cells;
}

void ApplicationRecorder::adopt(const StoredApplications& stored, bool isStart)
{
    phase_ = Phase::NotStarted;
    if (!stored.readable) {
        return; // totals go on growing, so nothing is lost
    }
    minute_ = {};
    for (const RecordStep step : recordSteps) {
        const auto& found = stored.periods[position(step)];
        Period& period = periods_[position(step)];
        period = {.progress = stored.progress[position(step)], .cells = {}};
        if (found && step == RecordStep::Minute) {
            minute_ = {.start = found->start, .stored = cellsFrom(found->cells), .cells = {}};
        } else if (found) {
            period.start = found->start;
            period.through = period.written = found->through;
            period.isFolded = false;
            period.cells = cellsFrom(found->cells);
        }
    }
    clearUntil_ = stored.clearUntil;
    addMissing(stored.minutes);
    if (isStart) {
        wallClock_.begin(minute_.start, context_.runtime.monotonicTime());
    }
    phase_ = Phase::Running;
}

/// Minutes that were recorded after the periods that add them up had been written for the last time.
void ApplicationRecorder::addMissing(std::span<const StoredCell> rows)
{
    while (!rows.empty()) {
        const double start = rows.front().start;
        const auto end =
            std::find_if(rows.begin(), rows.end(), [start](const StoredCell& row) { return row.start != start; });
        const auto count = static_cast<std::size_t>(end - rows.begin());
        const ApplicationCells cells = cellsFrom(rows.first(count));
        for (const RecordStep step : coarseSteps) {
            if (periods_[position(step)].through <= start) {
                addMinute(step, start, cells);
            }
        }
        rows = rows.subspan(count);
    }
}

// Totals in

/// Seconds awake since the last call that took totals up. Of the clocks that never step one counts sleep on some systems.
double ApplicationRecorder::awakeSinceLast() const
{
    const double passed = std::max(0.0, context_.runtime.monotonicTime() - lastSteady_);
    const double asleep = context_.runtime.sleptTime() - lastSlept_;
    return asleep > 1 && passed >= asleep ? passed - asleep : passed;
}

bool ApplicationRecorder::believesWallClock(double wallTime)
{
    const bool wasBelieved = wallClock_.ahead() == 0;
    const bool isBelieved =
        wallClock_.believes(wallTime, context_.runtime.monotonicTime(), [this] { return clockIsKept(); });
    if (!isBelieved && wasBelieved) {
        context_.log.warning(
            fmt::format("The clock is {:.0f} s ahead; what applications use is recorded when that has proved true",
                wallClock_.ahead()));
    }
    return isBelieved;
}

bool ApplicationRecorder::clockIsKept() const
{
    return context_.host.clockSource && context_.host.clockSource->isSynchronised();
}

void ApplicationRecorder::record(double wallTime, std::span<const GroupTotals> totals)
{
    if (phase_ == Phase::NotStarted && context_.runtime.monotonicTime() >= nextRead_) {
        load(std::nullopt);
    }
    // Totals only grow: what is not taken up now is in the next ones.
    if (phase_ != Phase::Running || !std::isfinite(wallTime) || wallTime <= 0 || !believesWallClock(wallTime)) {
        return;
    }
    const double seconds = awakeSinceLast();
    if (!enterMinute(std::max(1.0, wallTime - seconds / 2))) {
        return;
    }
    for (const GroupDifferences::Part& part : takeDifferences(totals)) {
        const std::int64_t memory = memoryOf(part.levels);
        minute_.cells[part.application] += {.sums = part.sums,
            .byteSeconds = static_cast<double>(memory) * seconds,
            .seconds = seconds,
            .memoryPeak = memory,
            .processesPeak = part.levels.processes};
    }
    minute_.isWritten = false;
}

void ApplicationRecorder::skip(std::span<const GroupTotals> totals) { takeDifferences(totals); }

const std::vector<GroupDifferences::Part>& ApplicationRecorder::takeDifferences(std::span<const GroupTotals> totals)
{
    lastSteady_ = context_.runtime.monotonicTime();
    lastSlept_ = context_.runtime.sleptTime();
    return differences_.take(totals);
}

void ApplicationRecorder::recordMinute(double wallTime, std::vector<ProcessMinute> processes)
{
    if (phase_ != Phase::Running || !std::isfinite(wallTime) || wallTime <= minuteLength || wallClock_.ahead() > 0) {
        return;
    }
    double start = startOf(RecordStep::Minute, wallTime - minuteLength / 2);
    if (start == lastProcesses_ && start + minuteLength <= wallTime) { // two calls a little less than a minute apart
        start += minuteLength;
    }
    lastProcesses_ = start;
    std::vector<ApplicationTables::Process> rows;
    for (const ProcessMinute& process : processes) {
        rows.push_back({&process, differences_.ofNumber(process.group)});
    }
    tables_->writeProcesses(start, rows);
}

// Periods

/// Makes the minute of that moment the one at hand. False when the file must say first what it has of it.
bool ApplicationRecorder::enterMinute(double time)
{
    const double start = startOf(RecordStep::Minute, time);
    const bool isEarlier = start < minute_.start;
    if (start == minute_.start || (isEarlier && minute_.start - start <= smallestReturn)) {
        return true;
    }
    const bool needsFile = isEarlier || start >= clearUntil_;
    if (minute_.start > 0) {
        closeMinute(start);
    }
    if (needsFile) {
        queuePeriods();
    }
    minute_ = {.start = start, .stored = {}, .cells = {}};
    if (needsFile) {
        load(start);
        return false;
    }
    prune();
    return true;
}

/// What the minute at hand has used becomes part of the periods that add minutes up, whole.
void ApplicationRecorder::settleMinute()
{
    for (const RecordStep step : coarseSteps) {
        if (periods_[position(step)].through <= minute_.start) { // it lacks what the file had of the minute, too
            addMinute(step, minute_.start, minute_.stored);
        }
        addMinute(step, minute_.start, minute_.cells);
    }
    addCells(minute_.stored, minute_.cells);
    minute_.cells.clear();
}

void ApplicationRecorder::closeMinute(double next)
{
    writeMinute();
    const bool mustWrite =
        isPartlySettled() || startOf(RecordStep::Quarter, next) != startOf(RecordStep::Quarter, minute_.start);
    settleMinute();
    if (!mustWrite) {
        return;
    }
    for (const RecordStep step : coarseSteps) {
        Period& period = periods_[position(step)];
        if (startOf(step, next) > period.start) {
            fold(period);
        }
        writePeriod(step);
    }
}

void ApplicationRecorder::fold(Period& period)
{
    foldSmall(period.cells, largest, applications_.other());
    period.isFolded = true;
}

void ApplicationRecorder::addMinute(RecordStep step, double start, const ApplicationCells& cells)
{
    Period& period = periods_[position(step)];
    // One that began earlier goes on: a clock that is moved to another zone may have a day begin anew.
    if (const double of = startOf(step, start); period.start == 0 || of > period.start) {
        if (period.start > 0 && !period.isFolded) {
            fold(period);
            writePeriod(step);
        }
        period = {.start = of, .through = start, .written = start, .progress = period.progress, .cells = {}};
    }
    addCells(period.cells, cells);
    period.through = std::max(period.through, start + minuteLength);
    period.isFolded = false;
    period.isWritten = false;
    if (period.cells.size() > mostInPeriod) {
        foldSmall(period.cells, keptOfTooMany, applications_.other());
    }
}

void ApplicationRecorder::writeMinute()
{
    if (minute_.isWritten) {
        return;
    }
    ApplicationCells rows = minute_.stored;
    addCells(rows, minute_.cells);
    foldSmall(rows, largest, applications_.other());
    tables_->writePeriod(RecordStep::Minute, minute_.start, rows);
    minute_.isWritten = true;
}

void ApplicationRecorder::writePeriod(RecordStep step)
{
    Period& period = periods_[position(step)];
    if (period.start == 0) {
        return;
    }
    tables_->writePeriod(step, period.start, period.cells);
    period.written = period.through;
    period.isWritten = true;
    if (period.start >= period.progress) { // not of one that a clock was set back to
        period.progress = period.start;
        tables_->writeProgress(step, period.start, period.through);
    }
}

/// Whether the file's coarser periods have a part of the minute at hand: readers and the next start take it to be all.
bool ApplicationRecorder::isPartlySettled() const
{
    return periods_[position(RecordStep::Quarter)].written > minute_.start;
}

/// Queues as little as will do.
void ApplicationRecorder::queueMinute()
{
    if (phase_ != Phase::Running) {
        return;
    }
    // Behind what is stored already, nothing would be added up after a restart: that goes by the newest minute.
    if (isPartlySettled() || std::isfinite(clearUntil_)) {
        queuePeriods();
    } else {
        writeMinute();
    }
}

/// Queues everything, whole. After a restart nothing has to be added up anew.
void ApplicationRecorder::queuePeriods()
{
    if (minute_.start == 0) {
        return;
    }
    writeMinute();
    if (!minute_.cells.empty()) {
        settleMinute();
    }
    for (const RecordStep step : coarseSteps) {
        if (!periods_[position(step)].isWritten) {
            writePeriod(step);
        }
    }
}

// The file

void ApplicationRecorder::prune()
{
    const double now = minute_.start;
    if (std::abs(now - pruned_) < pruneEvery || !wallClock_.isSettled(context_.runtime.monotonicTime())) {
        return;
    }
    pruned_ = now;
    tables_->prune(now, clockIsKept(), keep_);
    if (std::abs(now - namesForgotten_) >= forgetEvery) {
        namesForgotten_ = now;
        tables_->forgetNames();
    }
}

void ApplicationRecorder::updateHistory()
{
    const double steady = context_.runtime.monotonicTime();
    if (!tables_ || steady < nextFlush_) {
        return;
    }
    nextFlush_ = steady + flushEvery;
    queueMinute();
    tables_->file()->commit();
}

void ApplicationRecorder::runDatabaseQueue()
{
    if (phase_ == Phase::Running) {
        queuePeriods();
    }
    if (tables_) {
        tables_->file()->commit();
    }
}

// Questions

RunningPeriods ApplicationRecorder::runningPeriods() const
{
    RunningPeriods running;
    if (phase_ != Phase::Running || minute_.start == 0) {
        return running;
    }
    for (const RecordStep step : coarseSteps) {
        const double period = startOf(step, minute_.start);
        running[position(step)] = {
            .from = std::max(periods_[position(step)].written, period), .until = clearUntil_, .period = period};
    }
    return running;
}

template <typename Question, typename Answer>
void ApplicationRecorder::ask(const Question& question,
    std::optional<Answer> (*read)(SQLiteConnection&, const Question&, const RunningPeriods&),
    std::function<void(const std::optional<Answer>&)> reply)
{
    Queue& main = context_.runtime.mainQueue();
    if (!opensFile()) {
        main.post([reply = std::move(reply)] { reply(std::nullopt); });
        return;
    }
    queueMinute();
    tables_->file()->commit();
    tables_->file()->queryDatabaseAsync(
        [question, read, reply = std::move(reply), running = runningPeriods(), &main](SQLiteConnection& connection) {
            main.post([answer = read(connection, question, running), reply] { reply(answer); });
            connection.releaseMemory(); // a year's pages are no use until the next question
        });
}

void ApplicationRecorder::readTotals(
    const TotalsQuestion& question, std::function<void(const std::optional<RecordedTotals>&)> reply)
{
    ask(question, meridal::readTotals, std::move(reply));
}

void ApplicationRecorder::readCourse(
    const CourseQuestion& question, std::function<void(const std::optional<RecordedCourse>&)> reply)
{
    ask(question, meridal::readCourse, std::move(reply));
}

void ApplicationRecorder::readMoment(
    double time, std::optional<std::uint32_t> viewer, std::function<void(const std::optional<RecordedMoment>&)> reply)
{
    const MomentQuestion question{
        .time = time, .now = context_.runtime.wallTime(), .whose = {.viewer = viewer, .owner = {}}, .keep = keep_};
    ask(question, meridal::readMoment, std::move(reply));
}

} // namespace meridal
