// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "database/DatabaseStatistics.h"
#include "database/SQLiteConnection.h"
#include "database/SqlValue.h"
#include "database/StatementBatch.h"
#include "database/TableSchema.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace meridal {

class HistoryDatabaseFile;
struct Context;

/// One database file: its connection, its serial queue and the statements that wait for the next commit.
///
/// A commit is one transaction. With write-ahead logging it is, after a crash or power loss, there as a whole or not at
/// all; readers never wait for it, and it never waits for them. What cannot be written now (full disk, another program's
/// lock, a failing disk) is kept, in order, and tried again at every commit; beyond a limit the oldest goes. A file that
/// turns out not to be a sound database, or cannot be used for good, is moved aside; a fresh one takes its place, with all
/// that could still be read out of it.
///
/// Any thread may call it. Hold it by a shared_ptr: work on its queue keeps it alive.
class HistoryDatabaseItem : public std::enable_shared_from_this<HistoryDatabaseItem> {
public:
    using QueryBlock = std::function<void(SQLiteConnection&)>;

    /// What tests change; the defaults are what the daemon runs with.
    struct Limits {
        std::size_t batchStatements = 16'384; ///< when so many wait, they are written without being told to
        /// Kept while they cannot be written, about 15 MB; twice as many while a write takes its time.
        std::size_t keptStatements = 65'536;
        std::uintmax_t walBytes = 64 * 1024 * 1024; ///< beyond this, nothing is written until readers let go
        int busyTimeout = 250;                      ///< ms to wait for another program's lock
        std::string vfs = {};                       ///< SQLite file system; empty for the system's own
    };

    /// Names the file; openIfNeeded() opens it.
    HistoryDatabaseItem(Context& context, std::filesystem::path path, const Limits& limits);
    ~HistoryDatabaseItem();
    HistoryDatabaseItem(const HistoryDatabaseItem&) = delete;
    HistoryDatabaseItem& operator=(const HistoryDatabaseItem&) = delete;

    const std::filesystem::path& path() const { return path_; }
    const std::shared_ptr<Queue>& queue() const { return queue_; }
    /// A commit is under way.
    bool busy() const;
    /// When the file was last used, seconds since 1970.
    double lastUse() const;

    /// Opens the file on its queue, and waits for that. Answers whether it is open; failure is logged, and every later
    /// use tries again.
    bool openIfNeeded();
    /// The same without waiting: looking through a file, and reading what can be read of a damaged one, takes its time.
    void openLater();
    /// Writes what waits, then closes the file. A later use opens it again.
    void close();
    /// The same, and runs the task before anything can open the file again: for what replaces or removes it.
    void whileClosed(const Task& task);
    /// Makes sure of a table, on the queue: now, and whenever a fresh file is started. Later statements and queries find
    /// it.
    void declareTable(TableSchema schema);
    /// The same for a view. Its tables may be declared later.
    void declareView(ViewSchema schema);

    /// Adds a statement to the next commit.
    void addItem(PendingStatement statement);
    /// The same for statements that differ in nothing but their arguments.
    void addItem(const std::shared_ptr<const StatementText>& text, std::span<const SqlValue> args);
    /// Writes everything added so far, later, in one transaction.
    void commit();
    /// Writes everything added so far and returns when that is done, or has failed. For start-up, shutdown and sleep.
    void commitSync();

    /// Runs the block on the queue, after everything asked for before, and waits for it. For what is small. The block
    /// may come to a connection that is not open.
    void queryDatabase(const QueryBlock& block);
    void queryDatabaseAsync(QueryBlock block);

    DatabaseStatistics statistics() const;

private:
    void onQueue(const Task& task);
    void post(Task task);
    void seal();
    void dropBeyond(std::size_t statements);
    void writeSealed();
    void query(const QueryBlock& block);
    void publish();

    Context& context_;
    const std::filesystem::path path_;
    const Limits limits_;
    const std::shared_ptr<Queue> queue_;
    const std::unique_ptr<HistoryDatabaseFile> file_; ///< touched on the queue only

    mutable std::mutex mutex_;          ///< guards all below
    StatementBatch queries_;            ///< waits for the next commit
    std::deque<StatementBatch> sealed_; ///< batches on their way to the file, oldest first
    std::size_t sealedStatements_ = 0;
    bool failing_ = false;     ///< the latest attempt to write failed
    bool writePosted_ = false; ///< a task that will write what is sealed waits on the queue
    bool busy_ = false;
    double lastUse_ = 0;
    std::uint64_t statementsDropped_ = 0;
    DatabaseStatistics statistics_; ///< the file's part
};

} // namespace meridal
