#include "database/HistoryDatabaseFile.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <system_error>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

constexpr double complaintInterval = 60;     // s between two lines about the same trouble
constexpr double longestAsidePause = 86'400; // s

/// NORMAL: a commit is a few writes into the log without waiting for the disk; only a checkpoint waits. A power loss may
/// take the latest commits, never half of one. The log starts over at 1000 pages (4 MiB) unless a reader pins it, and a
/// log that has grown is cut back to 4 MiB when it starts over.
constexpr std::array settings{"PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL",
    "PRAGMA wal_autocheckpoint = 1000", "PRAGMA journal_size_limit = 4194304", "PRAGMA cache_size = -1024",
    "PRAGMA temp_store = MEMORY"};

constexpr std::array<std::string_view, 3> partsOfDatabase{"", "-wal", "-shm"};

std::uint64_t sizeOf(const std::filesystem::path& file)
{
    std::error_code failure;
    const auto size = std::filesystem::file_size(file, failure);
    return failure ? 0 : size;
}

/// Name, type in small letters and place in the primary key of each column.
std::vector<std::tuple<std::string, std::string, double>> columnsOf(
    SQLiteConnection& database, const std::string& table)
{
    std::vector<std::tuple<std::string, std::string, double>> columns;
    const auto text = [](const SqlValue& value) {
        const auto* words = std::get_if<std::string>(&value);
        return words ? *words : std::string();
    };
    static_cast<void>(
        database.forEachRow(fmt::format("PRAGMA table_info(\"{}\")", table), {}, [&](std::span<const SqlValue> row) {
            std::string type = text(row[2]); // SQLite keeps it as written
            std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
            columns.emplace_back(text(row[1]), std::move(type), sqlNumber(row[5]));
        }));
    return columns;
}

} // namespace

HistoryDatabaseFile::HistoryDatabaseFile(Context& context, std::filesystem::path path, Options options)
    : context_(context), path_(std::move(path)), options_(std::move(options))
{
}

std::filesystem::path HistoryDatabaseFile::besides(std::string_view suffix) const
{
    std::filesystem::path file = path_;
    return file += suffix;
}

/// "name-20240131-235959": the wall clock's UTC.
std::string HistoryDatabaseFile::dated(std::string_view name) const
{
    const auto now = static_cast<std::time_t>(context_.runtime.wallTime());
    return fmt::format("{}-{:%Y%m%d-%H%M%S}", name, fmt::gmtime(now));
}

void HistoryDatabaseFile::complain(SqlFailure kind, std::string_view what)
{
    double& next = nextComplaint_[static_cast<std::size_t>(kind)];
    const double now = context_.runtime.monotonicTime();
    if (now >= next) {
        next = now + complaintInterval;
        context_.log.warning(fmt::format("{}: {}", path_.string(), what));
    }
}

// Opening

bool HistoryDatabaseFile::open()
{
    if (connection_.isOpen()) {
        const bool logIsGone = hasLog_ && !std::filesystem::exists(besides("-wal"));
        if (!connection_.hasMoved() && !logIsGone) {
            return true;
        }
        complain(SqlFailure::None, "vanished while open; going on with a new file");
        close();
    }
    return openFresh() || (connection_.failure() == SqlFailure::Damaged && setAside() && openFresh());
}

bool HistoryDatabaseFile::openFresh()
{
    std::error_code failure;
    std::filesystem::create_directories(path_.parent_path(), failure);
    connection_.resetFailure();
    if (connection_.open(path_, options_.connection)) {
        // Before the first table: the write-ahead log and its index take the file's mode and group over.
        using std::filesystem::perms;
        std::filesystem::permissions(path_, perms::owner_read | perms::owner_write | perms::group_read, failure);
        if (context_.host.userRights) {
            context_.host.userRights->shareWithAdministrators(path_.string());
        }
        if (prepareConnection()) {
            return true;
        }
    }
    const SqlFailure kind = connection_.failure();
    complain(kind, "Could not open db. " + connection_.failureText());
    close();
    return false;
}

bool HistoryDatabaseFile::prepareConnection()
{
    for (const char* setting : settings) {
        if (!connection_.execute(setting)) {
            return false;
        }
    }
    // The first look at the content: a file that is no database, or is shorter than its header says, fails here.
    if (!connection_.tableExists("sqlite_master")) {
        return false;
    }
    hasLog_ = false;
    makeTables();
    return connection_.failure() != SqlFailure::Damaged;
}

void HistoryDatabaseFile::makeTables()
{
    tablesMade_ = true;
    for (const TableSchema& schema : tables_) {
        makeTable(schema);
        // A statement that is wrong by itself will not get better; everything else may.
        const SqlFailure failure = connection_.failure();
        tablesMade_ = tablesMade_ && (failure == SqlFailure::None || failure == SqlFailure::Statement);
    }
}

void HistoryDatabaseFile::close()
{
    connection_.close();
    hasLog_ = false;
}

void HistoryDatabaseFile::declareTable(TableSchema schema)
{
    const auto known = std::find_if(
        tables_.begin(), tables_.end(), [&](const TableSchema& other) { return other.table == schema.table; });
    if (known != tables_.end() && known->create == schema.create) {
        return;
    }
    if (known != tables_.end()) {
        *known = schema;
    } else {
        tables_.push_back(schema);
    }
    tablesMade_ = false;
    if (open() && !tablesMade_) {
        makeTables();
        afterUse();
    }
}

void HistoryDatabaseFile::makeTable(const TableSchema& schema)
{
    const auto exists = connection_.tableExists(schema.table);
    if (!exists) {
        complain(connection_.failure(), exists.error().message);
        return;
    }
    if (*exists) {
        addColumns(schema);
        if (!hasOtherColumns(schema)) {
            return;
        }
    }
    if (*exists) {
        const std::string kept = dated(schema.table);
        if (!connection_.execute(fmt::format("ALTER TABLE \"{}\" RENAME TO \"{}\"", schema.table, kept))) {
            complain(connection_.failure(), connection_.failureText());
            return;
        }
        ++statistics_.filesSetAside;
        context_.log.warning(
            fmt::format("{}: table {} is of another layout; kept as {}", path_.string(), schema.table, kept));
    }
    const auto made = connection_.execute(sqlText(schema.create, schema.table));
    if (!made) {
        complain(connection_.failure(), made.error().message);
    }
}

void HistoryDatabaseFile::addColumns(const TableSchema& schema)
{
    const auto present = columnsOf(connection_, schema.table);
    for (const AddedColumn& added : schema.added) {
        const bool missing = std::none_of(
            present.begin(), present.end(), [&](const auto& column) { return std::get<0>(column) == added.column; });
        if (missing && !connection_.execute(sqlText(added.alter, schema.table))) {
            complain(connection_.failure(), connection_.failureText());
        }
    }
}

bool HistoryDatabaseFile::hasOtherColumns(const TableSchema& schema)
{
    SQLiteConnection reference;
    if (!reference.openInMemory() || !reference.execute(sqlText(schema.create, schema.table))) {
        return false; // the statement itself is at fault; running it on the file says so
    }
    auto present = columnsOf(connection_, schema.table);
    auto wanted = columnsOf(reference, schema.table);
    if (!schema.added.empty()) {
        std::sort(present.begin(), present.end());
        std::sort(wanted.begin(), wanted.end());
    }
    // A file that could not be read has no columns, and tells nothing about its tables.
    return !present.empty() && present != wanted;
}

// Writing

bool HistoryDatabaseFile::write(const StatementBatch& batch)
{
    connection_.resetFailure();
    bool written = false;
    if (open() && tablesAreMade() && walIsInBounds()) {
        written = writeOnce(batch) || (recover() && writeOnce(batch));
    }
    if (written && failing_) {
        context_.log.info(fmt::format("{}: can be written again", path_.string()));
        nextComplaint_ = {};
    }
    if (!written) {
        ++statistics_.batchesFailed;
    }
    failing_ = !written;
    return written;
}

/// Tables that could not be made when they were declared, or when the file was opened, are made before anything is
/// written that needs them.
bool HistoryDatabaseFile::tablesAreMade()
{
    if (!tablesMade_) {
        makeTables();
        recover();
    }
    return tablesMade_ && connection_.isOpen();
}

bool HistoryDatabaseFile::writeOnce(const StatementBatch& batch)
{
    connection_.resetFailure();
    std::uint64_t rows = 0;
    std::uint64_t failedStatements = 0;
    bool good = connection_.execute("BEGIN IMMEDIATE").has_value();
    std::span<const SqlValue> args = batch.args();
    for (auto run = batch.runs().begin(); good && run != batch.runs().end(); ++run) {
        const auto outcome = connection_.executeMany(run->text->sql(), args, run->argsPerStatement, run->statements);
        args = args.subspan(run->statements * run->argsPerStatement);
        rows += outcome.rows;
        failedStatements += outcome.failed;
        good = outcome.ended == SqlFailure::None;
    }
    const std::string statementFault = failedStatements > 0 ? connection_.failureText() : std::string();
    good = good && connection_.execute("COMMIT");
    if (!good) {
        complain(connection_.failure(), "not written, kept for later: " + connection_.failureText());
        if (connection_.inTransaction()) {
            static_cast<void>(connection_.execute("ROLLBACK"));
        }
        return false;
    }
    if (failedStatements > 0) {
        complain(SqlFailure::Statement, fmt::format("{} statements failed: {}", failedStatements, statementFault));
    }
    statistics_.rowsWritten += rows;
    statistics_.statementsFailed += failedStatements;
    ++statistics_.batchesWritten;
    hasLog_ = hasLog_ || std::filesystem::exists(besides("-wal"));
    return true;
}

/// A reader that holds its transaction pins the log: what is written meanwhile makes it longer and longer. Beyond the
/// limit nothing is written until a checkpoint gets through and the log can start over.
bool HistoryDatabaseFile::walIsInBounds()
{
    if (sizeOf(besides("-wal")) <= options_.walBytes) {
        return true;
    }
    static_cast<void>(connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)"));
    if (sizeOf(besides("-wal")) <= options_.walBytes) {
        return true;
    }
    complain(SqlFailure::Busy, "a reader has held its transaction for too long; history waits in memory until it ends");
    return false;
}

// Trouble

void HistoryDatabaseFile::afterUse()
{
    if (connection_.inTransaction()) {
        static_cast<void>(connection_.execute("ROLLBACK"));
    }
    if (connection_.failure() != SqlFailure::None) {
        recover();
    }
    connection_.resetFailure();
}

/// Gets ready for the next attempt. True when that may succeed at once: a fresh file has taken a damaged one's place, or
/// copying the log back has made room.
bool HistoryDatabaseFile::recover()
{
    const SqlFailure kind = connection_.failure();
    if (connection_.inTransaction()) {
        static_cast<void>(connection_.execute("ROLLBACK"));
    }
    switch (kind) {
    case SqlFailure::Damaged:
        return setAside() && openFresh();
    case SqlFailure::Full: {
        const std::uint64_t before = sizeOf(besides("-wal"));
        static_cast<void>(connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)"));
        return sizeOf(besides("-wal")) < before;
    }
    case SqlFailure::InputOutput:
    case SqlFailure::ReadOnly:
    case SqlFailure::CannotOpen:
        close(); // what it remembers of the file may be wrong; the next use opens it anew
        return false;
    default:
        return false;
    }
}

bool HistoryDatabaseFile::setAside()
{
    close();
    const double now = context_.runtime.monotonicTime();
    if (now < nextAside_) {
        return false;
    }
    const std::filesystem::path base = path_.parent_path() / dated(path_.filename().string() + ".damaged");
    std::filesystem::path target = base;
    for (int number = 2; std::filesystem::exists(target); ++number) {
        target = base;
        target += fmt::format("-{}", number);
    }
    for (const std::string_view part : partsOfDatabase) {
        std::filesystem::path kept = target;
        std::error_code failure;
        std::filesystem::rename(besides(part), kept += part, failure);
        if (part.empty() && failure) {
            complain(SqlFailure::Damaged, "is damaged and cannot be moved aside: " + failure.message());
            return false;
        }
    }
    nextAside_ = now + asidePause_;
    asidePause_ = std::min(asidePause_ * 2, longestAsidePause);
    ++statistics_.filesSetAside;
    context_.log.error(fmt::format(
        "{}: is not a sound database; kept as {}, a fresh one is started", path_.string(), target.string()));
    return true;
}

const DatabaseStatistics& HistoryDatabaseFile::statistics()
{
    statistics_.open = connection_.isOpen();
    statistics_.bytes = sizeOf(path_) + sizeOf(besides("-wal"));
    return statistics_;
}

} // namespace meridal
