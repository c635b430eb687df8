// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/DatabaseStatistics.h"
#include "database/SQLiteConnection.h"
#include "database/StatementBatch.h"
#include "database/TableSchema.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

struct Context;

/// The file behind a HistoryDatabaseItem: opens it, keeps its tables, writes batches, and deals with everything that can
/// be wrong with a file. Confined to the item's queue.
class HistoryDatabaseFile {
public:
    struct Options {
        std::uintmax_t walBytes = 0; ///< beyond this, nothing is written until readers let go
        SQLiteConnection::Options connection;
    };

    HistoryDatabaseFile(Context& context, std::filesystem::path path, Options options);

    /// Opens the file unless it is open and still the one at its path. Answers whether it can be used.
    bool open();
    void close();
    /// Makes sure of a table, now and in every fresh file.
    void declareTable(TableSchema schema);
    /// The same for a view. Its tables may be declared later.
    void declareView(ViewSchema schema);
    /// Writes a batch in one transaction. False when nothing of it was written: try again later.
    bool write(const StatementBatch& batch);
    /// For queries; afterUse() must follow.
    SQLiteConnection& connection() { return connection_; }
    /// Draws the conclusions from what a query met: a transaction left open, a damaged file.
    void afterUse();

    /// The file's part of the figures.
    const DatabaseStatistics& statistics();

private:
    bool openFresh();
    bool isUnusable() const;
    bool prepareConnection();
    bool isSound();
    bool salvageIsDone();
    bool hasMadeTable(const TableSchema& schema);
    void makeTables();
    void makeTable(const TableSchema& schema);
    void makeView(const ViewSchema& schema);
    bool tablesWereLost();
    bool tablesAreMade();
    void addColumns(const TableSchema& schema);
    bool hasOtherColumns(const TableSchema& schema);
    bool walIsInBounds();
    /// What becomes of a batch that misses a table: tried again once the table is there, or written without its statements.
    enum class Lost { MadeAgain, LeftOut };
    bool writeOnce(const StatementBatch& batch, Lost lost);
    bool recover();
    bool clearTheWay();
    bool moveAside(const std::filesystem::path& target, std::string_view part);
    bool setAside(std::string_view why);
    int keptAside() const;
    std::filesystem::path salvageSource() const;
    bool finishMoving();
    bool isRidOfForeignLog();
    void complain(SqlFailure kind, std::string_view what);
    std::string dated(std::string_view name) const;
    std::filesystem::path besides(std::string_view suffix) const;
    std::filesystem::path freeName(std::string_view why) const;

    Context& context_;
    std::filesystem::path path_;
    Options options_;
    SQLiteConnection connection_;
    std::vector<TableSchema> tables_;
    std::vector<ViewSchema> views_;
    DatabaseStatistics statistics_;
    bool tablesMade_ = true;          ///< every declared table is there, as far as it can be: batches are lost without
    bool hasLog_ = false;             ///< the write-ahead log has been seen beside the open file
    bool failing_ = false;            ///< the latest attempt to write failed
    bool logIsForeign_ = false;       ///< the log at the path belongs to a file that is no longer there
    bool checked_ = false;            ///< the file has been looked through since the start
    std::uint64_t tablesMissing_ = 0; ///< declared tables that were not there when they were looked for
    std::string damage_;              ///< what the look through the file found
    double nextSalvage_ = 0;          ///< monotonic s; before that no rows are read out of a file that was set aside
    double nextAside_ = 0;            ///< monotonic s; before that no further file is set aside
    double asidePause_ = 60;          ///< s; doubles each time, so that a failing disk is not filled with broken files
    std::array<double, 9> nextComplaint_ = {}; ///< monotonic s, by kind of failure
};

} // namespace meridal
