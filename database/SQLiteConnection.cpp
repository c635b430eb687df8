#include "database/SQLiteConnection.h"

#include <SQLiteCpp/Column.h>
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Exception.h>
#include <SQLiteCpp/Statement.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <functional>
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

/// Resets a statement when its use ends: one that is left in the middle of its rows would pin the write-ahead log.
class StatementUse {
public:
    explicit StatementUse(SQLite::Statement& statement) : statement_(statement) { }
    ~StatementUse() { statement_.tryReset(); }
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

    void step() { statement_.executeStep(); }
    /// Texts are not copied: the arguments must live as long as this use.
    void bind(std::span<const SqlValue> args)
    {
        const auto count = static_cast<std::size_t>(statement_.getBindParameterCount());
        for (std::size_t index = 0; index < count; ++index) {
            if (index < args.size()) {
                bindOne(static_cast<int>(index) + 1, args[index]);
            } else {
                statement_.bind(static_cast<int>(index) + 1);
            }
        }
    }

private:
    void bindOne(int position, const SqlValue& value)
    {
        if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            statement_.bind(position, static_cast<int64_t>(*whole));
        } else if (const auto* figure = std::get_if<double>(&value)) {
            statement_.bind(position, *figure);
        } else if (const auto* words = std::get_if<std::string>(&value)) {
            statement_.bindNoCopy(position, *words);
        } else {
            statement_.bind(position);
        }
    }

    SQLite::Statement& statement_;
};

SqlValue columnValue(const SQLite::Column& column)
{
    if (column.isInteger()) {
        return std::int64_t{column.getInt64()};
    }
    if (column.isFloat()) {
        return column.getDouble();
    }
    if (column.isNull()) {
        return {};
    }
    return column.getString();
}

/// A statement that was compiled when its table had more columns has no name for those that are gone.
std::string nameOf(const SQLite::Statement& statement, int index)
{
    const char* name = statement.getColumnName(index);
    return name != nullptr ? name : "";
}

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
    State(const std::string& path, int flags, const Options& options)
        : database(path, flags, options.busyTimeout, options.vfs)
    {
    }

    SQLite::Statement& statement(std::string_view sql)
    {
        if (std::exchange(changed, false)) {
            statements.clear(); // they still count the columns of before
        }
        const auto found = statements.find(sql);
        if (found != statements.end()) {
            return found->second;
        }
        if (statements.size() >= keptStatements) {
            statements.clear();
        }
        std::string text(sql);
        SQLite::Statement compiled(database, text);
        return statements.emplace(std::move(text), std::move(compiled)).first->second;
    }

    /// Compiled anew, with the tables as they are now: another program may have changed them, which SQLite sees when a
    /// statement steps, and not before.
    SQLite::Statement& freshStatement(std::string_view sql)
    {
        SQLite::Statement& look = statement("SELECT 1 FROM sqlite_master LIMIT 1");
        StatementUse(look).step();
        if (const auto old = statements.find(sql); old != statements.end()) {
            statements.erase(old);
        }
        return statement(sql);
    }

    SQLite::Database database;
    std::unordered_map<std::string, SQLite::Statement, TextHash, std::equal_to<>> statements;
    bool changed = false; ///< tables are others than when the statements were compiled
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
    } catch (const SQLite::Exception& error) {
        return failed(error.getErrorCode(), error.what());
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
        sqlite3_file_control(state_->database.getHandle(), "main", SQLITE_FCNTL_PERSIST_WAL, &keepLog);
        return {};
    } catch (const SQLite::Exception& error) {
        return failed(error.getErrorCode(), error.what());
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

bool SQLiteConnection::isReadOnly() const
{
    return state_ && sqlite3_db_readonly(state_->database.getHandle(), "main") == 1;
}

bool SQLiteConnection::hasMoved() const
{
    int moved = 0;
    return state_
        && sqlite3_file_control(state_->database.getHandle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK
        && moved != 0;
}

bool SQLiteConnection::inTransaction() const
{
    return state_ && sqlite3_get_autocommit(state_->database.getHandle()) == 0;
}

Result<void> SQLiteConnection::execute(std::string_view sql, std::span<const SqlValue> args)
{
    return attempt([&] {
        SQLite::Statement& statement = state_->statement(sql);
        StatementUse use(statement);
        use.bind(args);
        while (statement.executeStep()) { }
        if (changesTables(sql)) {
            state_->changed = true;
        }
    });
}

SQLiteConnection::ManyOutcome SQLiteConnection::executeMany(
    std::string_view sql, std::span<const SqlValue> args, std::size_t argsPerStatement, std::size_t statements)
{
    ManyOutcome outcome;
    std::size_t next = 0;
    const auto ranAll = attempt([&] {
        SQLite::Statement& statement = state_->statement(sql);
        sqlite3* handle = state_->database.getHandle();
        for (; next < statements; ++next) {
            StatementUse use(statement);
            use.bind(args.subspan(next * argsPerStatement, argsPerStatement));
            const int code = statement.tryExecuteStep();
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
        outcome.failed += statements - next;
        outcome.ended = failure_ == SqlFailure::Statement ? SqlFailure::None : failure_;
    }
    return outcome;
}

Result<std::vector<Dictionary>> SQLiteConnection::rows(std::string_view sql, std::span<const SqlValue> args)
{
    std::vector<Dictionary> result;
    const auto done = attempt([&] {
        SQLite::Statement& statement = state_->statement(sql);
        StatementUse use(statement);
        use.bind(args);
        while (statement.executeStep()) {
            Dictionary row = Dictionary::object();
            for (int index = 0; index < statement.getColumnCount(); ++index) {
                row[nameOf(statement, index)] = valueOf(columnValue(statement.getColumn(index)));
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
        SQLite::Statement& statement = state_->statement(sql);
        StatementUse use(statement);
        use.bind(args);
        SqlValues row(static_cast<std::size_t>(statement.getColumnCount()));
        while (statement.executeStep()) {
            for (std::size_t index = 0; index < row.size(); ++index) {
                row[index] = columnValue(statement.getColumn(static_cast<int>(index)));
            }
            block(row);
        }
    });
}

Result<std::vector<std::string>> SQLiteConnection::columns(std::string_view sql)
{
    std::vector<std::string> names;
    const auto done = attempt([&] {
        SQLite::Statement& statement = state_->freshStatement(sql);
        for (int index = 0; index < statement.getColumnCount(); ++index) {
            names.push_back(nameOf(statement, index));
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
