// SPDX-License-Identifier: Apache-2.0
#include "database/HistoryDatabaseController.h"

#include "base/Runtime.h"
#include "platform/Context.h"

#include <atomic>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

void removeFiles(const std::filesystem::path& path)
{
    for (const char* part : {".salvage", "", "-wal", "-shm"}) {
        std::filesystem::path file = path;
        std::error_code ignored;
        std::filesystem::remove(file += part, ignored);
    }
}

bool isDatabase(const std::filesystem::path& path)
{
    SQLiteConnection connection;
    bool sound = false;
    if (connection.open(path, {})) {
        static_cast<void>(connection.forEachRow("PRAGMA quick_check(1)", {},
            [&](std::span<const SqlValue> row) { sound = row[0] == SqlValue(std::string("ok")); }));
    }
    return sound;
}

} // namespace

HistoryDatabaseController::HistoryDatabaseController(Context& context, HistoryDatabaseItem::Limits limits)
    : context_(context), limits_(std::move(limits))
{
}

HistoryDatabaseController::~HistoryDatabaseController() = default;

HistoryDatabaseController& HistoryDatabaseController::sharedHistoryDatabaseController()
{
    static HistoryDatabaseController shared(Context::shared());
    return shared;
}

std::shared_ptr<HistoryDatabaseItem> HistoryDatabaseController::databaseWithPath(const std::filesystem::path& path)
{
    if (path.empty()) {
        return nullptr;
    }
    std::shared_ptr<HistoryDatabaseItem> item;
    {
        const std::lock_guard lock(mutex_);
        const std::string name = path.filename().string();
        auto& registered = databases_[name];
        if (registered) {
            return registered;
        }
        const auto closed = closed_.extract(name);
        const bool known = !closed.empty() && closed.mapped()->path() == path;
        registered = known ? closed.mapped() : std::make_shared<HistoryDatabaseItem>(context_, path, limits_);
        item = registered;
    }
    item->openLater();
    return item;
}

/// The item of the file, moved to those that are closed; null when there has never been one.
std::shared_ptr<HistoryDatabaseItem> HistoryDatabaseController::unregister(const std::filesystem::path& path)
{
    const std::lock_guard lock(mutex_);
    const std::string name = path.filename().string();
    if (const auto entry = databases_.extract(name); !entry.empty()) {
        closed_.insert_or_assign(name, entry.mapped());
    }
    const auto closed = closed_.find(name);
    return closed == closed_.end() ? nullptr : closed->second;
}

/// Changes the file itself while nobody can have it open.
void HistoryDatabaseController::replace(const std::filesystem::path& path, const Task& change)
{
    if (const auto item = unregister(path)) {
        item->whileClosed(change);
    } else {
        change();
    }
}

void HistoryDatabaseController::closeDatabase(const std::filesystem::path& path)
{
    replace(path, [] {});
}

void HistoryDatabaseController::deleteDatabase(const std::filesystem::path& path)
{
    replace(path, [&] { removeFiles(path); });
}

bool HistoryDatabaseController::restoreBackup(const std::filesystem::path& backup, const std::filesystem::path& path)
{
    if (!std::filesystem::exists(backup)) {
        return false;
    }
    bool restored = false;
    replace(path, [&] {
        removeFiles(path);
        std::error_code failure;
        restored = std::filesystem::copy_file(backup, path, failure) && isDatabase(path);
        if (!restored) {
            removeFiles(path);
        }
    });
    if (restored) {
        databaseWithPath(path);
    }
    return restored;
}

std::map<std::string, std::shared_ptr<HistoryDatabaseItem>> HistoryDatabaseController::registered() const
{
    const std::lock_guard lock(mutex_);
    return databases_;
}

void HistoryDatabaseController::commitAllSync()
{
    for (const auto& [name, item] : registered()) {
        item->commitSync();
    }
}

void HistoryDatabaseController::commitAll(Task written)
{
    const auto files = registered();
    Queue& main = context_.runtime.mainQueue();
    const auto open = std::make_shared<std::atomic<std::size_t>>(files.size() + 1);
    const Task finish = [open, written = std::move(written), &main] {
        if (--*open == 0) {
            main.post(written);
        }
    };
    for (const auto& [name, item] : files) {
        item->commit();
        item->queryDatabaseAsync([finish](SQLiteConnection&) { finish(); });
    }
    finish(); // also where there is no file
}

void HistoryDatabaseController::closeAll()
{
    for (const auto& [name, item] : registered()) {
        closeDatabase(item->path());
    }
    decltype(closed_) last; // goes outside the lock
    const std::lock_guard lock(mutex_);
    last.swap(closed_);
}

std::map<std::string, DatabaseStatistics> HistoryDatabaseController::statistics() const
{
    std::map<std::string, DatabaseStatistics> figures;
    for (const auto& [name, item] : registered()) {
        figures.emplace(name, item->statistics());
    }
    return figures;
}

} // namespace meridal
