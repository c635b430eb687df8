// SPDX-License-Identifier: Apache-2.0
#include "database/Salvage.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t rowsAtOnce = 256;
constexpr int deepestHalf = 8;       // halves of halves that are looked at between damaged places
constexpr int smallestRow = 4;       // bytes: no sound file has more rows than this makes
constexpr std::uint64_t spare = 100; // rows, for tables that have not reached the file yet

std::string textOf(const SqlValue& value)
{
    const auto* words = std::get_if<std::string>(&value);
    return words ? *words : std::string();
}

std::string quoted(const std::string& name)
{
    std::string text = "\"";
    for (const char c : name) {
        text += c;
        if (c == '"') {
            text += c;
        }
    }
    return text += '"';
}

struct Entry {
    std::string name;
    std::string create;
};

/// Copies one table.
class TableCopy {
public:
    TableCopy(SQLiteConnection& from, SQLiteConnection& into, const std::string& table, std::uint64_t mostRows)
        : from_(from), into_(into), table_(quoted(table)), budget_(2 * mostRows)
    {
        readLayout();
    }

    /// Answers whether everything was read and written.
    bool run()
    {
        const bool whole = range({}, {}, 0);
        flush();
        return whole && ended_ == SqlFailure::None && rowsFailed_ == 0;
    }
    std::uint64_t rows() const { return rows_; }
    std::uint64_t rowsFailed() const { return rowsFailed_; }
    SqlFailure ended() const { return ended_; }

private:
    enum class Order { Up, Down };
    using Bound = std::optional<std::int64_t>;

    void readLayout()
    {
        std::vector<std::string> columns;
        std::string first; // of the primary key
        bool aliasesNumber = false;
        int keyColumns = 0;
        static_cast<void>(from_.forEachRow("PRAGMA table_info(" + table_ + ")", {}, [&](std::span<const SqlValue> row) {
            columns.push_back(quoted(textOf(row[1])));
            keyColumns += sqlNumber(row[5]) > 0 ? 1 : 0;
            if (sqlNumber(row[5]) == 1) {
                first = columns.back();
                std::string type = textOf(row[2]);
                std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::toupper(c); });
                aliasesNumber = type == "INTEGER";
            }
        }));
        const bool hasNumber = from_.columns("SELECT rowid FROM " + table_).has_value();
        from_.resetFailure();
        key_ = hasNumber ? "rowid" : first;
        if (hasNumber && !(aliasesNumber && keyColumns == 1)) {
            columns.insert(columns.begin(), "rowid");
        }
        columns_ = fmt::format("{}", fmt::join(columns, ", "));
        columnCount_ = columns.size();
        insert_ = fmt::format("INSERT OR IGNORE INTO {} ({}) VALUES ({})", table_, columns_,
            fmt::join(std::vector<std::string_view>(columnCount_, "?"), ", "));
    }

    /// Everything from one bound to the other, both included. False when something of it could not be read.
    bool range(Bound low, Bound high, int depth)
    {
        Bound up = low;
        Bound down = high;
        if (scan(Order::Up, low, high, up)) {
            return true;
        }
        static_cast<void>(scan(Order::Down, up, high, down));
        if (!up && down) {
            up = std::min<std::int64_t>(0, *down);
        }
        if (depth < deepestHalf && up && down && *down - *up > 1) {
            const std::int64_t middle = *up + (*down - *up) / 2;
            static_cast<void>(range(up, middle, depth + 1));
            static_cast<void>(range(middle, down, depth + 1));
        }
        return false;
    }

    /// Reads on until the end or until a page cannot be read, and leaves in `reached` the number of the last row, where the
    /// table has numbers. Answers whether it came to the end.
    bool scan(Order order, Bound low, Bound high, Bound& reached)
    {
        std::string sql = fmt::format("SELECT {}, {} FROM {}", key_, columns_, table_);
        SqlValues args;
        const auto bound = [&](const char* relation, Bound limit) {
            if (limit) {
                sql += fmt::format(" {} {} {} ?", args.empty() ? "WHERE" : "AND", key_, relation);
                args.emplace_back(*limit);
            }
        };
        bound(">=", low);
        bound("<=", high);
        sql += fmt::format(" ORDER BY {} {} LIMIT ?", key_, order == Order::Up ? "ASC" : "DESC");
        args.emplace_back(static_cast<std::int64_t>(std::exchange(budget_, 0)));
        auto left = static_cast<std::uint64_t>(std::get<std::int64_t>(args.back()));
        const auto done = from_.forEachRow(sql, args, [&](std::span<const SqlValue> row) {
            --left;
            if (const auto* number = std::get_if<std::int64_t>(&row[0])) {
                reached = *number;
            }
            waiting_.insert(waiting_.end(), row.begin() + 1, row.end());
            if (++waitingRows_ >= rowsAtOnce) {
                flush();
            }
        });
        from_.resetFailure();
        budget_ = left;
        return done.has_value() && left > 0;
    }

    void flush()
    {
        if (waitingRows_ > 0 && ended_ == SqlFailure::None) {
            const auto outcome = into_.executeMany(insert_, waitingRows_, [this, rows = std::span(waiting_)]() mutable {
                return std::exchange(rows, rows.subspan(columnCount_)).first(columnCount_);
            });
            rows_ += outcome.rows;
            rowsFailed_ += outcome.failed;
            ended_ = outcome.ended;
        }
        waiting_.clear();
        waitingRows_ = 0;
    }

    SQLiteConnection& from_;
    SQLiteConnection& into_;
    const std::string table_;
    std::uint64_t budget_; ///< rows that may still be read: damage can make a table look endless
    std::string key_;
    std::string columns_;
    std::string insert_;
    std::size_t columnCount_ = 0;
    SqlValues waiting_;
    std::size_t waitingRows_ = 0;
    std::uint64_t rows_ = 0;
    std::uint64_t rowsFailed_ = 0;
    SqlFailure ended_ = SqlFailure::None;
};

std::vector<Entry> entriesOf(SQLiteConnection& database, const char* type)
{
    std::vector<Entry> entries;
    const SqlValue kind = std::string(type);
    static_cast<void>(database.forEachRow("SELECT name, sql FROM sqlite_master WHERE type = ? AND sql IS NOT NULL AND "
                                          "name NOT LIKE 'sqlite\\_%' ESCAPE '\\'",
        {&kind, 1}, [&](std::span<const SqlValue> row) {
            entries.push_back({textOf(row[0]), textOf(row[1])});
        }));
    return entries;
}

/// As one transaction, so that a table is there as far as it could be read or not at all.
void copyTable(
    SQLiteConnection& from, SQLiteConnection& into, const Entry& entry, std::uint64_t mostRows, Salvaged& sum)
{
    bool good = into.execute("BEGIN IMMEDIATE").has_value();
    const auto exists = into.tableExists(entry.name);
    good = good && exists && (*exists || into.execute(entry.create));
    TableCopy copy(from, into, entry.name, mostRows);
    const bool whole = good && copy.run();
    good = good && copy.ended() == SqlFailure::None && into.execute("COMMIT");
    if (!good && into.inTransaction()) {
        static_cast<void>(into.execute("ROLLBACK"));
    }
    if (good) {
        sum.rows += copy.rows();
        sum.rowsFailed += copy.rowsFailed();
        ++sum.tables;
    }
    if (!good || !whole) {
        sum.incomplete.push_back(entry.name);
    }
}

/// What keeps the whole file from being written; a statement that is at fault by itself does not.
SqlFailure troubleOf(const SQLiteConnection& database)
{
    return database.failure() == SqlFailure::Statement ? SqlFailure::None : database.failure();
}

/// Numbers that were given out are not given out again.
void copySequences(SQLiteConnection& from, SQLiteConnection& into)
{
    static_cast<void>(from.forEachRow("SELECT name, seq FROM sqlite_sequence", {}, [&](std::span<const SqlValue> row) {
        const SqlValues args{row[1], row[0]};
        static_cast<void>(into.execute("UPDATE sqlite_sequence SET seq = max(seq, ?) WHERE name = ?", args));
        static_cast<void>(into.execute("INSERT INTO sqlite_sequence (seq, name) SELECT ?1, ?2 WHERE NOT EXISTS "
                                       "(SELECT 1 FROM sqlite_sequence WHERE name = ?2)",
            args));
    }));
}

/// What holds nothing: a log where it is empty, and the index, which is made anew from the log.
void removeLeftovers(const std::filesystem::path& database)
{
    std::error_code ignored;
    std::filesystem::remove(database.string() + "-shm", ignored);
    if (std::filesystem::is_empty(database.string() + "-wal", ignored)) {
        std::filesystem::remove(database.string() + "-wal", ignored);
    }
}

} // namespace

Salvaged salvage(const std::filesystem::path& damaged, SQLiteConnection::Options options, SQLiteConnection& into)
{
    Salvaged sum;
    SQLiteConnection from;
    options.readOnly = true;
    removeLeftovers(damaged); // which may be another user's
    if (!from.open(damaged, options)) {
        return sum;
    }
    // Lets a file be read that is shorter than its header says. Nothing can be written through this connection.
    static_cast<void>(from.execute("PRAGMA writable_schema = ON"));
    static_cast<void>(from.execute("PRAGMA cell_size_check = ON"));
    std::uint64_t bytes = 0;
    for (const char* part : {"", "-wal"}) {
        std::filesystem::path file = damaged;
        std::error_code failure;
        const auto size = std::filesystem::file_size(file += part, failure);
        bytes += failure ? 0 : size;
    }
    for (const Entry& entry : entriesOf(from, "table")) {
        copyTable(from, into, entry, bytes / smallestRow + spare, sum);
        if (sum.ended = troubleOf(into); sum.ended != SqlFailure::None) {
            return sum;
        }
    }
    copySequences(from, into);
    for (const Entry& entry : entriesOf(from, "index")) {
        static_cast<void>(into.execute(entry.create));
    }
    if (sum.ended = troubleOf(into); sum.ended != SqlFailure::None) {
        return sum;
    }
    static_cast<void>(into.execute("PRAGMA wal_checkpoint(TRUNCATE)"));
    into.resetFailure();
    from.close();
    removeLeftovers(damaged);
    return sum;
}

} // namespace meridal
