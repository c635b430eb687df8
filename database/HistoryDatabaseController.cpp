#include "database/HistoryDatabaseController.h"

#include "platform/Context.h"

#include <system_error>
#include <utility>

namespace meridal {

namespace {

void removeFiles(const std::filesystem::path& path)
{
    for (const char* part : {"", "-wal", "-shm"}) {
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
        auto& registered = databases_[path.filename().string()];
        if (registered) {
            return registered;
        }
        item = registered = std::make_shared<HistoryDatabaseItem>(context_, path, limits_);
    }
    item->openIfNeeded();
    return item;
}

std::shared_ptr<HistoryDatabaseItem> HistoryDatabaseController::forget(const std::filesystem::path& path)
{
    const std::lock_guard lock(mutex_);
    auto entry = databases_.extract(path.filename().string());
    return entry.empty() ? nullptr : entry.mapped();
}

void HistoryDatabaseController::closeDatabase(const std::filesystem::path& path)
{
    if (const auto item = forget(path)) {
        item->close();
    }
}

void HistoryDatabaseController::deleteDatabase(const std::filesystem::path& path)
{
    closeDatabase(path);
    removeFiles(path);
}

bool HistoryDatabaseController::restoreBackup(const std::filesystem::path& backup, const std::filesystem::path& path)
{
    if (!std::filesystem::exists(backup)) {
        return false;
    }
    deleteDatabase(path);
    std::error_code failure;
    std::filesystem::copy_file(backup, path, failure);
    if (failure || !isDatabase(path)) {
        removeFiles(path);
        return false;
    }
    databaseWithPath(path);
    return true;
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

std::map<std::string, DatabaseStatistics> HistoryDatabaseController::statistics() const
{
    std::map<std::string, DatabaseStatistics> figures;
    for (const auto& [name, item] : registered()) {
        figures.emplace(name, item->statistics());
    }
    return figures;
}

} // namespace meridal
