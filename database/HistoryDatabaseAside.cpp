// SPDX-License-Identifier: Apache-2.0
// The part of HistoryDatabaseFile that deals with what lies in the file's place and cannot be used: it is renamed, and its
// rows are read into a fresh file.
//
// A process may be killed, and the power may fail, between any two of these steps. A link beside the file, NAME.salvage,
// names the file whose rows are still to be read. It is made before that file is renamed, and goes when every row is in
// the fresh one: until then nothing else is written there, and a copy that was cut short is taken up where it stopped.

#include "base/Log.h"
#include "base/Runtime.h"
#include "database/FileObstacle.h"
#include "database/HistoryDatabaseFile.h"
#include "database/Salvage.h"
#include "platform/Context.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <fstream>
#include <system_error>

namespace meridal {

namespace {

constexpr double longestAsidePause = 86'400; // s
constexpr double fullDiskPause = 60;         // s until rows are read again for which there was no room
constexpr std::uintmax_t pageBytes = 4096;
constexpr int mostAside = 5; // files of one name: they are as large as the history, and nobody may ever look

} // namespace

/// A dated name beside the file that neither a database nor a log has yet.
std::filesystem::path HistoryDatabaseFile::freeName(std::string_view why) const
{
    const std::string base = dated(fmt::format("{}{}", path_.string(), why));
    std::string name = base;
    for (int number = 2; std::filesystem::exists(name) || std::filesystem::exists(name + "-wal"); ++number) {
        name = fmt::format("{}-{}", base, number);
    }
    return name;
}

/// When another file has taken the place of the open one, the write-ahead log beside it still belongs to the one that is
/// gone: SQLite leaves it there, and would copy its pages into whatever is opened next.
bool HistoryDatabaseFile::isRidOfForeignLog()
{
    if (!logIsForeign_) {
        return true;
    }
    const std::filesystem::path target = freeName(".replaced");
    for (const std::string_view part : {"-wal", "-shm"}) {
        std::filesystem::path kept = target;
        std::error_code failure;
        std::filesystem::rename(besides(part), kept += part, failure);
        if (failure && failure != std::errc::no_such_file_or_directory) {
            complain(SqlFailure::CannotOpen, "the log of the file that was here cannot be moved: " + failure.message());
            return false;
        }
        if (!failure) {
            context_.log.warning(
                fmt::format("{}: {} is of a file that is gone; kept as {}", path_.string(), part, kept.string()));
        }
    }
    logIsForeign_ = false;
    return true;
}

/// Renames what lies in the file's place and can never be it: recording must not end there for good.
bool HistoryDatabaseFile::clearTheWay()
{
    if (!finishMoving()) {
        return false;
    }
    std::string obstacle = obstacleAt(path_, Links::Followed);
    std::error_code failure;
    if (obstacle.empty() && sizeOf(path_) == 0) {
        const bool isThere = std::filesystem::exists(path_, failure);
        if (sizeOf(besides("-wal")) > 0) { // which SQLite would delete
            obstacle = isThere ? "an empty file beside a log that is not" : "gone, and its log is not";
            std::ofstream(path_, std::ios::app).close(); // what is not there cannot be renamed
        } else if (isThere && !checked_) {
            context_.log.warning(fmt::format("{}: is an empty file; its history starts anew", path_.string()));
        }
    }
    if (!obstacle.empty()) {
        return setAside("is " + obstacle);
    }
    for (const std::string_view part : {"-wal", "-shm"}) {
        obstacle = obstacleAt(besides(part), Links::Refused);
        const std::filesystem::path target = freeName(".damaged");
        if (!obstacle.empty() && moveAside(target, part)) {
            context_.log.error(
                fmt::format("{}: is {}; kept as {}{}", besides(part).string(), obstacle, target.string(), part));
        }
    }
    return true;
}

/// Renames one of the three files of a database, where it is there.
bool HistoryDatabaseFile::moveAside(const std::filesystem::path& target, std::string_view part)
{
    std::filesystem::path kept = target;
    std::error_code failure;
    std::filesystem::rename(besides(part), kept += part, failure);
    if (failure && failure != std::errc::no_such_file_or_directory) {
        complain(SqlFailure::Damaged,
            fmt::format("{} cannot be used, nor moved aside: {}", besides(part).string(), failure.message()));
        return false;
    }
    return true;
}

/// How many files of this name are kept already.
int HistoryDatabaseFile::keptAside() const
{
    const std::string begin = path_.filename().string() + ".damaged-";
    int count = 0;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(path_.parent_path(), failure)) {
        const std::string name = entry.path().filename().string();
        count += name.starts_with(begin) && !name.ends_with("-wal") && !name.ends_with("-shm") ? 1 : 0;
    }
    return count;
}

bool HistoryDatabaseFile::setAside(std::string_view why)
{
    if (connection_.hasMoved()) { // what is damaged is not what lies there now
        close();
        return isRidOfForeignLog();
    }
    close();
    const double now = context_.runtime.monotonicTime();
    if (now < nextAside_) {
        return false;
    }
    if (keptAside() >= mostAside) {
        complain(SqlFailure::None, // the damage itself has been told just now
            fmt::format(
                "{}; {} such files are kept already, and recording waits until one is taken away", why, mostAside));
        return false;
    }
    const std::filesystem::path target = freeName(".damaged");
    // One that breaks while rows are read into it has nothing but those: they are read again, from where they are.
    const bool holdsCopies = !salvageSource().empty();
    std::error_code failure;
    if (!holdsCopies && std::filesystem::is_regular_file(path_, failure)) {
        std::filesystem::create_symlink(target.filename(), besides(".salvage"), failure);
        if (failure) {
            complain(SqlFailure::CannotOpen, "cannot be set aside: " + failure.message());
            return false;
        }
    }
    // The file first, as long as finishMoving() can tell whose log is left; a log of copies must never seem to be another's.
    if ((holdsCopies && !moveAside(target, "-wal")) || !moveAside(target, "")) {
        return false;
    }
    nextAside_ = now + asidePause_;
    asidePause_ = std::min(asidePause_ * 2, longestAsidePause);
    ++statistics_.filesSetAside;
    context_.log.error(fmt::format("{}: {}; kept as {}, a fresh one is started", path_.string(), why, target.string()));
    return moveAside(target, "-wal") && moveAside(target, "-shm") && finishMoving();
}

/// The file whose rows are still to be read into the one at the path; empty when there is none.
std::filesystem::path HistoryDatabaseFile::salvageSource() const
{
    const std::filesystem::path note = besides(".salvage");
    std::error_code failure;
    if (!std::filesystem::is_symlink(std::filesystem::symlink_status(note, failure))) {
        return {};
    }
    const std::filesystem::path name = std::filesystem::read_symlink(note, failure).filename(); // never elsewhere
    const std::filesystem::path source = path_.parent_path() / name;
    if (name.string().starts_with(path_.filename().string() + ".damaged-")
        && std::filesystem::is_regular_file(source, failure)) {
        return source;
    }
    std::filesystem::remove(note, failure); // the file has not been renamed, or somebody has taken it away
    return {};
}

/// Goes on with a file that is being set aside where that was cut short. False when it cannot be finished now.
bool HistoryDatabaseFile::finishMoving()
{
    const std::filesystem::path source = salvageSource();
    if (source.empty()) {
        return true;
    }
    std::error_code failure;
    if (!std::filesystem::exists(path_, failure) && sizeOf(besides("-wal")) > 0 && sizeOf(source.string() + "-wal") == 0
        && !moveAside(source, "-wal")) {
        return false;
    }
    if (sizeOf(source) == 0) { // or SQLite would delete its log rather than read it
        std::filesystem::resize_file(source, pageBytes, failure);
    }
    return context_.runtime.monotonicTime() >= nextSalvage_;
}

/// Reads the rows of the file that was set aside into the open one. False when that has to be tried again.
bool HistoryDatabaseFile::salvageIsDone()
{
    const std::filesystem::path damaged = salvageSource();
    if (damaged.empty()) {
        return true;
    }
    const Salvaged sum = salvage(damaged, options_.connection, connection_);
    if (sum.ended != SqlFailure::None) {
        nextSalvage_ = sum.ended == SqlFailure::Full ? context_.runtime.monotonicTime() + fullDiskPause : 0;
        return false;
    }
    std::string lost = sum.incomplete.empty() ? "" : fmt::format("; not all of {}", fmt::join(sum.incomplete, ", "));
    lost += sum.rowsFailed == 0 ? "" : fmt::format("; {} rows could not be written", sum.rowsFailed);
    context_.log.warning(sum.tables == 0
            ? fmt::format("{}: nothing could be read out of {}", path_.string(), damaged.string())
            : fmt::format("{}: {} rows of {} tables were read out of {}{}", path_.string(), sum.rows, sum.tables,
                damaged.string(), lost));
    std::error_code failure;
    std::filesystem::remove(besides(".salvage"), failure);
    return true;
}

} // namespace meridal
