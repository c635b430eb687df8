// SPDX-License-Identifier: Apache-2.0
#include "database/HistoryDatabaseFile.h"

#include "base/LocalTime.h"
#include "base/Log.h"
#include "base/Runtime.h"
#include "base/Text.h"
#include "database/FileObstacle.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

constexpr double complaintInterval = 60; // s between two lines about the same trouble
constexpr std::uint64_t checkedBytes =
    16'777'216; // larger files are not looked through at the start: that takes a second
constexpr std::string_view unsound = "is not a sound database";

/// FULL: a commit waits until the disk has the log, so that a power loss takes nothing of it. Without that wait the log
/// would reach the disk with the next checkpoint only, hours of samples later. Commits are two a minute and run on the
/// file's own queue. On a Mac a plain sync ends at the drive's cache; "fullfsync" goes through it, and means nothing
/// elsewhere. The log starts over at 1000 pages (4 MiB) unless a reader pins it, and a log that has grown is cut back to
/// 4 MiB when it starts over. Renaming a table leaves views alone: they name the one that takes its place.
constexpr std::array settings{"PRAGMA synchronous = FULL", "PRAGMA fullfsync = ON", "PRAGMA journal_mode = WAL",
    "PRAGMA wal_autocheckpoint = 1000", "PRAGMA journal_size_limit = 4194304", "PRAGMA cache_size = -1024",
    "PRAGMA temp_store = MEMORY", "PRAGMA legacy_alter_table = ON"};

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
            columns.emplace_back(text(row[1]), lowercase(text(row[2])), sqlNumber(row[5])); // types are as written
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

/// "name-20240131-235959", in local time like the lines of the log.
std::string HistoryDatabaseFile::dated(std::string_view name) const
{
    return fmt::format("{}-{:%Y%m%d-%H%M%S}", name, localTime(context_.runtime.wallTime()));
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
        complain(SqlFailure::None, "vanished while open; going on with what is there now");
        checked_ = false;
        close();
    }
    if (!isRidOfForeignLog() || !clearTheWay()) {
        return false;
    }
    return openFresh() || (isUnusable() && setAside(unsound) && openFresh());
}

/// Whether the file that could not be opened will never be of use, whatever changes around it: it is damaged, of a format
/// that this SQLite does not know, or of one that it reads only. On a disk that is read-only it cannot be moved either.
bool HistoryDatabaseFile::isUnusable() const
{
    const SqlFailure kind = connection_.failure();
    return !damage_.empty() || kind == SqlFailure::Damaged || kind == SqlFailure::Statement
        || kind == SqlFailure::ReadOnly;
}

bool HistoryDatabaseFile::openFresh()
{
    std::error_code failure;
    std::filesystem::create_directories(path_.parent_path(), failure);
    connection_.resetFailure();
    damage_.clear();
    if (connection_.open(path_, options_.connection)) {
        // Before the first table: the write-ahead log and its index take the file's mode and group over.
        using std::filesystem::perms;
        std::filesystem::permissions(path_, perms::owner_read | perms::owner_write | perms::group_read, failure);
        if (context_.host.userRights) { // where it fails, it failed for the folder, of which the log tells
            static_cast<void>(context_.host.userRights->shareWithReaders(path_.string()));
        }
        if (prepareConnection()) {
            return true;
        }
    }
    const std::string reason = damage_.empty() ? connection_.failureText() : damage_;
    complain(connection_.failure(), "Could not open db. " + reason);
    connection_.close();
    hasLog_ = false;
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
    if (!connection_.tableExists("sqlite_master") || !isSound()) {
        return false;
    }
    if (connection_.isReadOnly() && canBeWritten(path_)) { // not so a disk that is read-only
        damage_ = "is of a version that can only be read";
        return false;
    }
    hasLog_ = false;
    if (!salvageIsDone()) { // before anything else is written: what is stored goes on from these rows
        return false;
    }
    makeTables();
    connection_.releaseMemory(); // the whole file may have been looked through, and hours may pass before it is written
    return connection_.failure() != SqlFailure::Damaged;
}

/// Looks through every page, once after the start: damage that is only met weeks later, where it was read last, has been
/// copied into every backup by then.
bool HistoryDatabaseFile::isSound()
{
    if (std::exchange(checked_, true) || sizeOf(path_) + sizeOf(besides("-wal")) > checkedBytes) {
        return true;
    }
    const auto looked = connection_.forEachRow("PRAGMA quick_check(1)", {}, [&](std::span<const SqlValue> row) {
        const auto* words = std::get_if<std::string>(&row[0]);
        damage_ = words && *words != "ok" ? words->substr(words->rfind('\n') + 1) : ""; // below a heading
    });
    return looked ? damage_.empty() : connection_.failure() != SqlFailure::Damaged;
}

/// A statement that is wrong by itself will not get better; everything else may.
bool HistoryDatabaseFile::hasMadeTable(const TableSchema& schema)
{
    makeTable(schema);
    const SqlFailure failure = connection_.failure();
    return failure == SqlFailure::None || failure == SqlFailure::Statement;
}

void HistoryDatabaseFile::makeTables()
{
    tablesMade_ = true;
    for (const TableSchema& schema : tables_) {
        tablesMade_ = hasMadeTable(schema) && tablesMade_;
    }
    for (const ViewSchema& schema : views_) {
        makeView(schema);
    }
}

void HistoryDatabaseFile::close()
{
    logIsForeign_ = logIsForeign_ || connection_.hasMoved();
    connection_.close();
    hasLog_ = false;
    static_cast<void>(isRidOfForeignLog()); // now: the next to open the file may be another process
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
    const bool othersAreMade = std::exchange(tablesMade_, false);
    if (open() && !tablesMade_) {
        if (othersAreMade) { // and need not be looked at again: a file has a hundred tables, declared one by one
            tablesMade_ = hasMadeTable(schema);
        } else {
            makeTables();
        }
        afterUse();
    }
}

void HistoryDatabaseFile::declareView(ViewSchema schema)
{
    const auto known =
        std::find_if(views_.begin(), views_.end(), [&](const ViewSchema& other) { return other.view == schema.view; });
    if (known != views_.end() && known->create == schema.create) {
        return;
    }
    if (known != views_.end()) {
        *known = schema;
    } else {
        views_.push_back(schema);
    }
    if (open()) {
        makeView(schema);
        afterUse();
    }
}

/// One that cannot be made is nobody's loss but a reader's.
void HistoryDatabaseFile::makeView(const ViewSchema& schema)
{
    const SqlValue name = schema.view;
    const std::string wanted = sqlText(schema.create, schema.view);
    std::string present;
    bool isTable = false;
    const auto looked = connection_.forEachRow(
        "SELECT sql, type = 'table' FROM sqlite_master WHERE name = ?", {&name, 1}, [&](std::span<const SqlValue> row) {
            const auto* words = std::get_if<std::string>(&row[0]);
            present = words ? *words : "";
            isTable = sqlNumber(row[1]) != 0;
        });
    if (!looked || present == wanted) {
        return;
    }
    std::vector<std::string> steps = isTable ? schema.takeOver : std::vector<std::string>();
    steps.push_back(fmt::format("DROP {} IF EXISTS \"{}\"", isTable ? "TABLE" : "VIEW", schema.view));
    steps.push_back(wanted);
    const bool isMade = connection_.execute("BEGIN IMMEDIATE")
        && std::all_of(
            steps.begin(), steps.end(), [&](const std::string& sql) { return connection_.execute(sql).has_value(); })
        && connection_.execute("COMMIT");
    if (!isMade) {
        complain(connection_.failure(), connection_.failureText());
        if (connection_.inTransaction()) {
            static_cast<void>(connection_.execute("ROLLBACK"));
        }
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
    ++tablesMissing_;
    const auto made = connection_.execute(sqlText(schema.create, schema.table));
    if (!made) {
        complain(connection_.failure(), made.error().message);
    }
}

/// Whether another program has dropped or changed a table of ours beside us; it is there again then.
bool HistoryDatabaseFile::tablesWereLost()
{
    const std::uint64_t before = tablesMissing_;
    makeTables();
    if (tablesMissing_ == before) {
        return false;
    }
    complain(SqlFailure::None, "a table was gone, or had become another one; made again");
    return true;
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
        written = writeOnce(batch, Lost::MadeAgain) || (recover() && tablesMade_ && writeOnce(batch, Lost::MadeAgain));
    }
    if (written && failing_) {
        context_.log.info(fmt::format("{}: can be written again", path_.string()));
        nextComplaint_ = {};
    }
    if (!written) {
        ++statistics_.batchesFailed;
    }
    failing_ = !written;
    // Half a minute lies between two batches: what the next one needs of the file is read again in less than a
    // millisecond, out of the system's cache, while a dozen files would hold a MiB each for ever.
    connection_.releaseMemory();
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

bool HistoryDatabaseFile::writeOnce(const StatementBatch& batch, Lost lost)
{
    connection_.resetFailure();
    std::uint64_t rows = 0;
    std::uint64_t failedStatements = 0;
    bool good = connection_.execute("BEGIN IMMEDIATE").has_value();
    for (auto run = batch.runs().begin(); good && run != batch.runs().end(); ++run) {
        StatementBatch::Arguments args(batch, *run);
        const auto outcome =
            connection_.executeMany(run->text->sql(), run->statements, [&args] { return args.next(); });
        rows += outcome.rows;
        failedStatements += outcome.failed;
        good = outcome.ended == SqlFailure::None;
    }
    const std::string statementFault = failedStatements > 0 ? connection_.failureText() : std::string();
    if (good && failedStatements > 0 && lost == Lost::MadeAgain) {
        static_cast<void>(connection_.execute("ROLLBACK"));
        connection_.resetFailure();
        static_cast<void>(tablesWereLost());
        return writeOnce(batch, Lost::LeftOut);
    }
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
    connection_.resetFailure();
    static_cast<void>(connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)"));
    const SqlFailure failure = connection_.failure();
    if (failure != SqlFailure::None && failure != SqlFailure::Busy) {
        complain(failure, "the log cannot be copied back: " + connection_.failureText());
        return recover() && tablesMade_ && sizeOf(besides("-wal")) <= options_.walBytes;
    }
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
    const SqlFailure kind = connection_.failure();
    if (kind != SqlFailure::None && kind != SqlFailure::Damaged && connection_.isOpen()) {
        complain(kind, "not read or not written: " + connection_.failureText());
    }
    if (kind == SqlFailure::Statement && connection_.isOpen()) {
        tablesWereLost();
    } else if (kind != SqlFailure::None) {
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
        return setAside(unsound) && openFresh();
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

const DatabaseStatistics& HistoryDatabaseFile::statistics()
{
    statistics_.open = connection_.isOpen();
    statistics_.bytes = sizeOf(path_) + sizeOf(besides("-wal"));
    return statistics_;
}

} // namespace meridal
