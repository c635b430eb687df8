#pragma once

#include "base/Runtime.h"
#include "database/DatabaseStatistics.h"
#include "database/SQLiteConnection.h"
#include "database/SqlValue.h"
#include "database/StatementBatch.h"

#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

struct Context;

/// A table that a file must have. Made when missing. A table of that name with other columns, left by an older version,
/// is kept under a dated name.
struct TableSchema {
    std::string table;  ///< a constant of ours
    std::string create; ///< CREATE statement with "%@" for the table
};

/// One database file: its connection, its serial queue and the statements that wait for the next commit.
///
/// A commit is one transaction. With write-ahead logging it is, after a crash or power loss, there as a whole or not at
/// all; readers never wait for it, and it never waits for them. What cannot be written now (full disk, another program's
/// lock, a failing disk) is kept, in order, and tried again at every commit; beyond a limit the oldest goes. A file that
/// turns out not to be a database is moved aside and a fresh one takes its place.
///
/// Any thread may call it. Hold it by a shared_ptr: work on its queue keeps it alive.
class HistoryDatabaseItem : public std::enable_shared_from_this<HistoryDatabaseItem> {
public:
    using QueryBlock = std::function<void(SQLiteConnection&)>;

    /// What tests change; the defaults are what the daemon runs with.
    struct Limits {
        std::size_t batchStatements = 8'192;        ///< more than this waiting are written without being told to
        std::size_t keptStatements = 65'536;        ///< kept while they cannot be written; about 15 MB
        std::uintmax_t walBytes = 64 * 1024 * 1024; ///< beyond this, nothing is written until readers let go
        std::string vfs = {};                       ///< SQLite file system; empty for the system's own
    };

    /// Names the file; openIfNeeded() opens it.
    HistoryDatabaseItem(Context& context, std::filesystem::path path);
    HistoryDatabaseItem(Context& context, std::filesystem::path path, Limits limits);
    ~HistoryDatabaseItem();
    HistoryDatabaseItem(const HistoryDatabaseItem&) = delete;
    HistoryDatabaseItem& operator=(const HistoryDatabaseItem&) = delete;

    const std::filesystem::path& path() const { return path_; }
    const std::shared_ptr<Queue>& queue() const { return queue_; }
    /// A commit is under way.
    bool busy() const;
    /// When the file was last used, seconds since 1970.
    double lastUse() const;

    /// Opens the file on its queue, and waits for that. Failure is logged and tried again with every use.
    void openIfNeeded();
    /// Writes what waits, then closes the file. A later use opens it again.
    void close();
    /// Makes sure of a table, now and whenever a fresh file is started. Answers on the queue's own time: later statements
    /// and queries find the table.
    void declareTable(TableSchema schema);

    /// Adds a statement to the next commit.
    void addItem(const PendingStatement& statement);
    /// The same for many rows of one statement.
    void addItem(const std::shared_ptr<const StatementText>& text, SqlValues args);
    /// Writes everything added so far, later.
    void commit();
    /// Writes everything added so far and returns when that is done, or has failed. For start-up, shutdown and sleep.
    void commitSync();

    /// Runs the block on the queue, after everything asked for before, and waits for it. For what is small.
    void queryDatabase(const QueryBlock& block);
    void queryDatabaseAsync(QueryBlock block);

    DatabaseStatistics statistics() const;

private:
    void onQueue(const Task& task);
    void openOnQueue();
    std::filesystem::path path_;
    std::shared_ptr<Queue> queue_;
};

} // namespace meridal
