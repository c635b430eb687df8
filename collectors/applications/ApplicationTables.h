// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/applications/ApplicationCells.h"
#include "collectors/applications/RecordStep.h"
#include "database/SqlValue.h"
#include "database/StatementBatch.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
class SQLiteConnection;
struct ProcessMinute;

/// A row of a period, as it was stored.
struct StoredCell {
    double start = 0;
    Application application;
    ApplicationCell cell;
};

/// A period that was going on when its table was last written.
struct StoredPeriod {
    double start = 0;   ///< s since 1970
    double through = 0; ///< minutes that started before this are in it
    std::vector<StoredCell> cells;
};

/// What recording goes on from.
struct StoredApplications {
    bool readable = true;
    /// At the start those that were going on when they were last written, else those of the moment asked for.
    std::array<std::optional<StoredPeriod>, recordSteps.size()> periods;
    std::array<double, recordSteps.size()> progress = {}; ///< start of the latest one of each step that was noted
    std::vector<StoredCell> minutes; ///< by time, before that in `periods`: those that a period lacks
    double clearUntil = 0;           ///< from the minute on nothing is stored that starts before this, s since 1970
};

/// The tables of applications.db: what they look like, how periods become rows, which rows go. Rows are queued and reach
/// the file with its next commit. An application's number is given out by the file, when the first row of it comes.
class ApplicationTables {
public:
    explicit ApplicationTables(std::shared_ptr<HistoryDatabaseItem> file);

    void declare();
    /// Puts these in place of all rows of the period.
    void writePeriod(RecordStep step, double start, const ApplicationCells& cells);
    /// Notes which minutes the period in progress has.
    void writeProgress(RecordStep step, double start, double through);
    struct Process {
        const ProcessMinute* figures = nullptr;
        ApplicationPtr application; ///< null: not known
    };
    /// Puts these in place of the minute's processes.
    void writeProcesses(double start, std::span<const Process> processes);
    /// Removes what is older than it should be. As long as nobody vouches for the clock, the newest periods stay whatever
    /// their age: so many as there would be in the time for which the table keeps them.
    void prune(double now, bool clockIsKept, const RecordKeep& keep);
    /// Forgets what numbers stand for that are in no table any more.
    void forgetNames();

    /// On the file's queue. What there is of a moment, or what was going on when the record was last written.
    static StoredApplications read(SQLiteConnection& connection, std::optional<double> at);

    const std::shared_ptr<HistoryDatabaseItem>& file() const { return file_; }

private:
    using Text = std::shared_ptr<const StatementText>;
    struct StepTexts {
        Text remove;
        Text insert;
        Text prune;
    };
    void queue(const Text& text, SqlValues args);
    void writeName(const Application& application);

    std::shared_ptr<HistoryDatabaseItem> file_;
    std::array<StepTexts, recordSteps.size()> steps_;
    Text name_;
    Text progress_;
    StepTexts processes_;
    Text forget_;
};

/// The columns of a period's row after those that say whose and when it is, in the order of their table; of a table that
/// has been given this alias.
std::string cellColumns(std::string_view alias);
/// A cell out of those columns.
ApplicationCell cellFrom(std::span<const SqlValue> columns);
/// Who it is, out of the map's columns identity, owner, name and kind.
Application applicationFrom(std::span<const SqlValue> columns);

constexpr std::string_view applicationMap = "application_map";
constexpr std::string_view applicationProcesses = "application_processes";

} // namespace meridal
