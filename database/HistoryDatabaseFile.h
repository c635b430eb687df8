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
    bool prepareConnection();
    void makeTables();
    void makeTable(const TableSchema& schema);
    bool tablesAreMade();
    void addColumns(const TableSchema& schema);
    bool hasOtherColumns(const TableSchema& schema);
    bool walIsInBounds();
    bool writeOnce(const StatementBatch& batch);
    bool recover();
    bool setAside();
    void complain(SqlFailure kind, std::string_view what);
    std::string dated(std::string_view name) const;
    std::filesystem::path besides(std::string_view suffix) const;

    Context& context_;
    std::filesystem::path path_;
    Options options_;
    SQLiteConnection connection_;
    std::vector<TableSchema> tables_;
    DatabaseStatistics statistics_;
    bool tablesMade_ = true; ///< every declared table is there, as far as it can be
    bool hasLog_ = false;    ///< the write-ahead log has been seen beside the open file
    bool failing_ = false;   ///< the latest attempt to write failed
    double nextAside_ = 0;   ///< monotonic s; before that no further file is set aside
    double asidePause_ = 60; ///< s; doubles each time, so that a failing disk is not filled with broken files
    std::array<double, 9> nextComplaint_ = {}; ///< monotonic s, by kind of failure
};

} // namespace meridal
