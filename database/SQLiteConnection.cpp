// SPDX-License-Identifier: Apache-2.0
#include "database/SQLiteConnection.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace meridal {

namespace {

/// Compiled statements kept. The daemon has a few a table; ad-hoc ones must not pile up.
constexpr std::size_t keptStatements = 128;

SqlFailure kindOf(int code)
{
    switch (code & 0xff) { // the primary code
    case SQLITE_OK:
        return SqlFailure::None;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return SqlFailure::Busy;
    case SQLITE_FULL:
        return SqlFailure::Full;
    case SQLITE_IOERR:
    case SQLITE_NOMEM:
        return SqlFailure::InputOutput;
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return SqlFailure::ReadOnly;
    case SQLITE_CANTOPEN:
        return SqlFailure::CannotOpen;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return SqlFailure::Damaged;
    default:
        return SqlFailure::Statement;
    }
}

ErrorCode errorCodeOf(SqlFailure failure)
{
    switch (failure) {
    case SqlFailure::Statement:
        return ErrorCode::InvalidArgument;
    case SqlFailure::ReadOnly:
        return ErrorCode::NotPermitted;
    default:
        return ErrorCode::Unavailable;
    }
}

/// What SQLite says of a call that failed. Never leaves this file.
struct SqlError {
    SqlError(sqlite3* database, int result) : code(result), text(sqlite3_errmsg(database)) { }

    int code;
    std::string text;
};

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

/// SQLite takes room for twenty pages for every file at once. Most files of ours have a few pages, and none keeps them.
void takePagesSingly()
{
    [[maybe_unused]] static const int configured = sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
}

Database openDatabase(const std::string& path, int flags, const SQLiteConnection::Options& options)
{
    takePagesSingly();
    sqlite3* opened = nullptr;
    const char* vfs = options.vfs.empty() ? nullptr : options.vfs.c_str();
    const int result = sqlite3_open_v2(path.c_str(), &opened, flags, vfs);
    Database database(opened); // there is one even when it failed, which says why
    if (result != SQLITE_OK) {
        throw SqlError(opened, result);
    }
    sqlite3_busy_timeout(opened, options.busyTimeout);
    return database;
}

/// A compiled statement.
class Statement {
public:
    Statement(sqlite3* database, std::string_view sql) : database_(database)
    {
        sqlite3_stmt* compiled = nullptr;
        const int result = sqlite3_prepare_v3(
            database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &compiled, nullptr);
        statement_.reset(compiled);
        if (result != SQLITE_OK) {
            throw SqlError(database, result);
        }
    }

    /// What SQLite answers: SQLITE_ROW, SQLITE_DONE, or what went wrong.
    int tryStep() { return sqlite3_step(statement_.get()); }
    /// Whether there is a row.
    bool step()
    {
        const int result = tryStep();
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            throw SqlError(database_, result);
        }
        return result == SQLITE_ROW;
    }
    void reset() { sqlite3_reset(statement_.get()); }

    /// Texts are not copied: the arguments must live until the statement is reset. Those that are missing are NULL.
    void bind(std::span<const SqlValue> args)
    {
        const int count = sqlite3_bind_parameter_count(statement_.get());
        for (int index = 0; index < count; ++index) {
            const auto place = static_cast<std::size_t>(index);
            const int result =
                place < args.size() ? bind(index + 1, args[place]) : sqlite3_bind_null(statement_.get(), index + 1);
            if (result != SQLITE_OK) {
                throw SqlError(database_, result);
            }
        }
    }

    int columnCount() const { return sqlite3_column_count(statement_.get()); }
    /// Empty where the table had more columns when the statement was compiled.
    std::string columnName(int index) const
    {
        const char* name = sqlite3_column_name(statement_.get(), index);
        return name != nullptr ? name : "";
    }
    SqlValue column(int index) const
    {
        sqlite3_stmt* statement = statement_.get();
        switch (sqlite3_column_type(statement, index)) {
        case SQLITE_INTEGER:
            return std::int64_t{sqlite3_column_int64(statement, index)};
        case SQLITE_FLOAT:
            return sqlite3_column_double(statement, index);
        case SQLITE_NULL:
            return {};
        default: // in this order: the call for the bytes settles how many there are
            const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, index));
            const int size = sqlite3_column_bytes(statement, index);
            return bytes != nullptr ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
        }
    }

private:
    struct Finalise {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    int bind(int position, const SqlValue& value)
    {
        sqlite3_stmt* statement = statement_.get();
        if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            return sqlite3_bind_int64(statement, position, *whole);
        }
        if (const auto* figure = std::get_if<double>(&value)) {
            return sqlite3_bind_double(statement, position, *figure);
        }
        if (const auto* words = std::get_if<std::string>(&value)) {
            return sqlite3_bind_text(
                statement, position, words->data(), static_cast<int>(words->size()), SQLITE_STATIC);
        }
        return sqlite3_bind_null(statement, position);
    }

    sqlite3* database_;
    std::unique_ptr<sqlite3_stmt, Finalise> statement_;
};

/// Resets a statement when its use ends: one that is left in the middle of its rows would pin the write-ahead log.
class StatementUse {
public:
    StatementUse(Statement& statement, std::span<const SqlValue> args) : statement_(statement)
    {
        statement_.bind(args);
    }
    ~StatementUse() { statement_.reset(); }
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

private:
    Statement& statement_;
};

/// Whether a statement changes what tables look like.
bool changesTables(std::string_view sql)
{
    constexpr std::array<std::string_view, 3> verbs{"ALTER", "DROP", "CREATE"};
    return std::any_of(verbs.begin(), verbs.end(), [sql](std::string_view verb) {
        return sql.size() > verb.size() && std::equal(verb.begin(), verb.end(), sql.begin(), [](char upper, char c) {
            return upper == std::toupper(static_cast<unsigned char>(c));
        });
    });
}

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

} // namespace

struct SQLiteConnection::State {
    State(const std::string& path, int flags, const Options& options) : database(openDatabase(path, flags, options)) { }

    Statement& statement(std::string_view sql)
    {
        if (std::exchange(changed, false)) {
            statements.clear(); // they still count the columns of before
        }
        const auto found = statements.find(sql);
        if (found != statements.end()) {
            found->second.round = round;
            return found->second.statement;
        }
        if (statements.size() >= keptStatements) {
            statements.clear();
        }
        return statements.emplace(std::string(sql), Kept{Statement(database.get(), sql), round})
            .first->second.statement;
    }

    /// Compiled anew, with the tables as they are now: another program may have changed them, which SQLite sees when a
    /// statement steps, and not before.
    Statement& freshStatement(std::string_view sql)
    {
        {
            Statement& look = statement("SELECT 1 FROM sqlite_master LIMIT 1");
            const StatementUse use(look, {}); // ends before others are compiled, which may take its statement away
            look.step();
        }
        if (const auto old = statements.find(sql); old != statements.end()) {
            statements.erase(old);
        }
        return statement(sql);
    }

    /// A compiled statement of a table with thirty columns takes 20 KB; most are run every few minutes or hours only.
    void forgetUnused()
    {
        std::erase_if(statements, [this](const auto& entry) { return entry.second.round != round; });
        ++round;
    }

    struct Kept {
        Statement statement;
        std::uint32_t round = 0; ///< in which it ran last
    };

    Database database;
    std::unordered_map<std::string, Kept, TextHash, std::equal_to<>> statements;
    std::uint32_t round = 0; ///< ends with each releaseMemory()
    bool changed = false;    ///< tables are others than when the statements were compiled
};

SQLiteConnection::SQLiteConnection() = default;
SQLiteConnection::~SQLiteConnection() = default;

Result<void> SQLiteConnection::failed(int code, std::string message)
{
    const SqlFailure kind = kindOf(code);
    if (failure_ == SqlFailure::None || failure_ == SqlFailure::Statement) {
        failure_ = kind;
        failureText_ = message;
    }
    return unexpected(errorCodeOf(kind), std::move(message));
}

void SQLiteConnection::resetFailure()
{
    failure_ = SqlFailure::None;
    failureText_.clear();
}

template <typename Function>
Result<void> SQLiteConnection::attempt(Function function)
{
    if (!state_) {
        return failed(SQLITE_CANTOPEN, "the database is not open");
    }
    try {
        function();
        return {};
    } catch (const SqlError& error) {
        return failed(error.code, error.text);
    } catch (const std::exception& error) { // of a caller's block, too: no figure is worth the daemon
        return failed(SQLITE_ERROR, error.what());
    }
}

Result<void> SQLiteConnection::open(const std::filesystem::path& path, const Options& options)
{
    close();
    try {
        // One queue at a time uses the connection: SQLite need not lock it.
        const int access = options.readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
        state_ = std::make_unique<State>(path.string(), access | SQLITE_OPEN_NOMUTEX, options);
        int keepLog = options.readOnly ? 0 : 1;
        sqlite3_file_control(state_->database.get(), "main", SQLITE_FCNTL_PERSIST_WAL, &keepLog);
        return {};
    } catch (const SqlError& error) {
        return failed(error.code, error.text);
    }
}

Result<void> SQLiteConnection::openInMemory() { return open(":memory:", {}); }

void SQLiteConnection::close()
{
    if (state_) {
        state_->statements.clear();
        state_.reset();
    }
}

bool SQLiteConnection::isOpen() const { return state_ != nullptr; }

bool SQLiteConnection::isReadOnly() const { return state_ && sqlite3_db_readonly(state_->database.get(), "main") == 1; }

bool SQLiteConnection::hasMoved() const
{
    int moved = 0;
    return state_ && sqlite3_file_control(state_->database.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK
        && moved != 0;
}

bool SQLiteConnection::inTransaction() const { return state_ && sqlite3_get_autocommit(state_->database.get()) == 0; }

void SQLiteConnection::releaseMemory()
{
    if (state_) {
        state_->forgetUnused();
        sqlite3_db_release_memory(state_->database.get());
    }
}

Result<void> SQLiteConnection::execute(std::string_view sql, std::span<const SqlValue> args)
{
    return attempt([&] {
        Statement& statement = state_->statement(sql);
        const StatementUse use(statement, args);
        while (statement.step()) { }
        if (changesTables(sql)) {
            state_->changed = true;
        }
    });
}

SQLiteConnection::ManyOutcome SQLiteConnection::executeMany(
    std::string_view sql, std::size_t statements, const NextArguments& next)
{
    ManyOutcome outcome;
    std::size_t done = 0;
    const auto ranAll = attempt([&] {
        Statement& statement = state_->statement(sql);
        sqlite3* handle = state_->database.get();
        for (; done < statements; ++done) {
            const StatementUse use(statement, next());
            const int code = statement.tryStep();
            if (code == SQLITE_DONE || code == SQLITE_ROW) {
                outcome.rows += static_cast<std::uint64_t>(sqlite3_changes(handle));
                continue;
            }
            static_cast<void>(failed(code, sqlite3_errmsg(handle)));
            if (kindOf(code) != SqlFailure::Statement) {
                outcome.ended = kindOf(code);
                return;
            }
            ++outcome.failed;
        }
    });
    if (!ranAll) { // it does not compile: a fault of the statement's, or of the whole file
        outcome.failed += statements - done;
        outcome.ended = failure_ == SqlFailure::Statement ? SqlFailure::None : failure_;
    }
    return outcome;
}

Result<std::vector<Dictionary>> SQLiteConnection::rows(std::string_view sql, std::span<const SqlValue> args)
{
    std::vector<Dictionary> result;
    const auto done = attempt([&] {
        Statement& statement = state_->statement(sql);
        const StatementUse use(statement, args);
        while (statement.step()) {
            Dictionary row = Dictionary::object();
            for (int index = 0; index < statement.columnCount(); ++index) {
                row[statement.columnName(index)] = valueOf(statement.column(index));
            }
            result.push_back(std::move(row));
        }
    });
    if (!done) {
        return Unexpected{done.error()};
    }
    return result;
}

Result<void> SQLiteConnection::forEachRow(std::string_view sql, std::span<const SqlValue> args, const RowBlock& block)
{
    return attempt([&] {
        Statement& statement = state_->statement(sql);
        const StatementUse use(statement, args);
        SqlValues row(static_cast<std::size_t>(statement.columnCount()));
        while (statement.step()) {
            for (std::size_t index = 0; index < row.size(); ++index) {
                row[index] = statement.column(static_cast<int>(index));
            }
            block(row);
        }
    });
}

Result<std::vector<std::string>> SQLiteConnection::columns(std::string_view sql)
{
    std::vector<std::string> names;
    const auto done = attempt([&] {
        Statement& statement = state_->freshStatement(sql);
        for (int index = 0; index < statement.columnCount(); ++index) {
            names.push_back(statement.columnName(index));
        }
    });
    if (!done) {
        return Unexpected{done.error()};
    }
    return names;
}

Result<bool> SQLiteConnection::tableExists(std::string_view table)
{
    const SqlValue name = std::string(table);
    bool exists = false;
    const auto done = forEachRow("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?", {&name, 1},
        [&](std::span<const SqlValue>) { exists = true; });
    if (!done) {
        return Unexpected{done.error()};
    }
    return exists;
}

} // namespace meridal
