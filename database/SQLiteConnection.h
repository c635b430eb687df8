// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"
#include "database/SqlValue.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What went wrong with a statement, as far as it matters to what happens next.
enum class SqlFailure {
    None,
    Statement,   ///< this statement is at fault: syntax, a missing table, a constraint. Others may well succeed
    Busy,        ///< another program holds the file
    Full,        ///< no room on the disk
    InputOutput, ///< the disk failed; the connection is not to be trusted any further
    ReadOnly,
    CannotOpen,
    Damaged, ///< the file is not a database, or no longer one
};

/// A connection to one SQLite file: the only place that sees the SQLite libraries. Statements are compiled once and
/// kept. A connection that is not open answers every call with a failure. Confined to one queue.
class SQLiteConnection {
public:
    struct Options {
        int busyTimeout = 250; ///< ms to wait for another program's lock
        std::string vfs;       ///< name of a registered SQLite file system; empty for the system's own
        bool readOnly = false;
    };
    using RowBlock = std::function<void(std::span<const SqlValue>)>;

    /// What became of many runs of one statement.
    struct ManyOutcome {
        std::uint64_t rows = 0;              ///< inserted, updated or deleted
        std::uint64_t failed = 0;            ///< runs that failed by themselves; the others went on
        SqlFailure ended = SqlFailure::None; ///< what ended it before all had run
    };

    SQLiteConnection();
    ~SQLiteConnection();
    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;

    /// Opens the file, which is made when missing. Its content is not looked at yet. Closing leaves an empty write-ahead
    /// log and its index there: a reader who may not write in the folder could not make them, and not open the file.
    Result<void> open(const std::filesystem::path& path, const Options& options);
    /// Nothing but memory.
    Result<void> openInMemory();
    void close();
    bool isOpen() const;
    /// Whether nothing can be written, for whatever reason. Known once something has been read.
    bool isReadOnly() const;
    /// Whether the open file is no longer the one at its path.
    bool hasMoved() const;

    /// Runs one statement, with "?" for each argument; arguments that are missing are NULL.
    Result<void> execute(std::string_view sql, std::span<const SqlValue> args = {});
    /// Gives the arguments of one statement after another; they stay until the next call.
    using NextArguments = std::function<std::span<const SqlValue>()>;
    /// Runs one statement many times. A failure of the statement's own does not stop the rest.
    ManyOutcome executeMany(std::string_view sql, std::size_t statements, const NextArguments& next);
    /// The rows of one statement as dictionaries: column → value.
    Result<std::vector<Dictionary>> rows(std::string_view sql, std::span<const SqlValue> args = {});
    /// The rows of one statement, one after another, columns in the statement's order.
    Result<void> forEachRow(std::string_view sql, std::span<const SqlValue> args, const RowBlock& block);
    /// What the columns of a statement's rows are called.
    Result<std::vector<std::string>> columns(std::string_view sql);
    Result<bool> tableExists(std::string_view table);
    /// Gives back what it keeps for speed alone: pages of the file, and statements that have not run since the call before.
    /// Not to be called from within a row's block.
    void releaseMemory();
    /// Whether a BEGIN waits for its COMMIT; some failures roll back by themselves.
    bool inTransaction() const;

    /// The worst thing that has happened since the latest resetFailure().
    SqlFailure failure() const { return failure_; }
    /// What that was, for the log.
    const std::string& failureText() const { return failureText_; }
    void resetFailure();

private:
    struct State;
    template <typename Function>
    Result<void> attempt(Function function);
    Result<void> failed(int code, std::string message);

    std::unique_ptr<State> state_;
    SqlFailure failure_ = SqlFailure::None;
    std::string failureText_;
};

} // namespace meridal
