// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "collectors/applications/ApplicationReader.h"
#include "collectors/applications/ApplicationTables.h"
#include "collectors/applications/GroupDifferences.h"
#include "collectors/applications/RecordStep.h"
#include "history/WallClockGuard.h"

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
struct Context;

/// Keeps what every application has used, in applications.db: sums by minute for two days, by quarter of an hour for two
/// weeks, by hour for a hundred days, by day for five years, by month for ever. Of each period the 30 largest by each figure;
/// what the others used is "other", so that the sums of a period are those of all. Main queue only; waits for no file.
class ApplicationRecorder {
public:
    explicit ApplicationRecorder(Context& context);
    ~ApplicationRecorder();
    ApplicationRecorder(const ApplicationRecorder&) = delete;
    ApplicationRecorder& operator=(const ApplicationRecorder&) = delete;

    /// How long periods stay, from the next pruning on, which comes every hour.
    void setKeep(const RecordKeep& keep) { keep_ = keep; }
    const RecordKeep& keep() const { return keep_; }

    /// Takes totals up; to be called after each pass that has made them. Their growth belongs to the minute in which half of
    /// the time since the last call was over. The first call opens the file.
    void record(double wallTime, std::span<const GroupTotals> totals);
    /// The same, but what has come since the last call is nobody's: after a time in which nothing was to be recorded.
    void skip(std::span<const GroupTotals> totals);
    /// The largest processes of the minute that has just ended.
    void recordMinute(double wallTime, std::vector<ProcessMinute> processes);
    /// To be called about once a second: reads what is stored, and commits twice a minute.
    void updateHistory();
    /// Queues all that is not in the file yet and has it committed: before sleep and at the end.
    void runDatabaseQueue();

    /// Each reply comes on the main queue, absent when the file cannot be read. What waits to be written is in it.
    void readTotals(const TotalsQuestion& question, std::function<void(const std::optional<RecordedTotals>&)> reply);
    void readCourse(const CourseQuestion& question, std::function<void(const std::optional<RecordedCourse>&)> reply);
    /// The finest period that has the moment, as long as its table reaches back so far.
    void readMoment(double time, std::function<void(const std::optional<RecordedMoment>&)> reply)
    {
        readMoment(time, std::nullopt, std::move(reply));
    }
    /// The same as this user may see it.
    void readMoment(double time, std::optional<std::uint32_t> viewer,
        std::function<void(const std::optional<RecordedMoment>&)> reply);

    /// Kept of a finished period by each figure.
    static constexpr std::size_t largest = 30;

private:
    enum class Phase { NotStarted, Loading, Running };
    /// A period that adds minutes up.
    struct Period {
        double start = 0;    ///< s since 1970; 0: none
        double through = 0;  ///< minutes that started before this are in it
        double written = 0;  ///< `through` of what is in the file
        double progress = 0; ///< start of the latest one of which the file says how far it has come
        bool isFolded = true;
        bool isWritten = true;
        ApplicationCells cells;
    };
    struct Minute {
        double start = 0;        ///< s since 1970; 0: none
        ApplicationCells stored; ///< what the file had of it
        ApplicationCells cells;  ///< what has come since
        bool isWritten = true;
    };

    bool opensFile();
    void load(std::optional<double> at);
    void adopt(const StoredApplications& stored, bool isStart);
    void addMissing(std::span<const StoredCell> rows);
    ApplicationCells cellsFrom(std::span<const StoredCell> rows);
    double awakeSinceLast() const;
    bool believesWallClock(double wallTime);
    bool clockIsKept() const;
    const std::vector<GroupDifferences::Part>& takeDifferences(std::span<const GroupTotals> totals);
    bool enterMinute(double time);
    void settleMinute();
    void closeMinute(double next);
    void fold(Period& period);
    void addMinute(RecordStep step, double start, const ApplicationCells& cells);
    void writeMinute();
    void writePeriod(RecordStep step);
    bool isPartlySettled() const;
    void queueMinute();
    void queuePeriods();
    void prune();
    RunningPeriods runningPeriods() const;
    template <typename Question, typename Answer>
    void ask(const Question& question,
        std::optional<Answer> (*read)(SQLiteConnection&, const Question&, const RunningPeriods&),
        std::function<void(const std::optional<Answer>&)> reply);

    Context& context_;
    RecordKeep keep_;
    Applications applications_;
    GroupDifferences differences_{applications_};
    std::unique_ptr<ApplicationTables> tables_; ///< null without a file
    Phase phase_ = Phase::NotStarted;
    Minute minute_;
    std::array<Period, recordSteps.size()> periods_; ///< the minute's is not used
    WallClockGuard wallClock_;
    // s since 1970
    double clearUntil_ =
        std::numeric_limits<double>::infinity(); ///< the file has nothing between the minute at hand and this
    double lastProcesses_ = 0;                   ///< start of the latest minute that has a list of processes
    double pruned_ = 0;
    double namesForgotten_ = 0;
    // Monotonic s
    double nextRead_ = 0;
    double nextFlush_ = 0;
    double lastSteady_; ///< when totals were last taken up
    double lastSlept_;  ///< s of sleep until then
    Lifetime lifetime_;
};

} // namespace meridal
