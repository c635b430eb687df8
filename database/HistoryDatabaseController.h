// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/HistoryDatabaseItem.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace meridal {

struct Context;

/// Hands out one HistoryDatabaseItem a file, by the file's last path component: whoever names the same file shares its
/// queue and its commits. Any thread may call it.
class HistoryDatabaseController {
public:
    explicit HistoryDatabaseController(Context& context, HistoryDatabaseItem::Limits limits = {});
    ~HistoryDatabaseController();
    HistoryDatabaseController(const HistoryDatabaseController&) = delete;
    HistoryDatabaseController& operator=(const HistoryDatabaseController&) = delete;

    /// The process-wide instance, on Context::shared().
    static HistoryDatabaseController& sharedHistoryDatabaseController();

    /// The item of the file, which is opened when it is new, on its own queue: nobody waits for the disk here, and whatever
    /// is asked of the item comes after that. Null for an empty path.
    std::shared_ptr<HistoryDatabaseItem> databaseWithPath(const std::filesystem::path& path);
    /// Writes what waits, closes the file and no longer lists it. Whoever uses or asks for its item opens it again: there
    /// is never a second connection, and the tables stay declared.
    void closeDatabase(const std::filesystem::path& path);
    /// Closes the file and removes it, with its write-ahead log.
    void deleteDatabase(const std::filesystem::path& path);
    /// Puts a copy of the backup in place of the file and opens it. A backup that is missing changes nothing; one that is
    /// not a database leaves no file behind. Answers whether the backup is in place.
    bool restoreBackup(const std::filesystem::path& backup, const std::filesystem::path& path);

    /// Writes what waits in every file, and waits for that: before shutdown.
    void commitAllSync();
    /// The same without waiting, before sleep; the task runs on the main queue when all of it is written, or has failed.
    void commitAll(Task written);
    /// Closes and forgets every file, with everything written: at the end of the process.
    void closeAll();
    /// Every open file and what it has been through.
    std::map<std::string, DatabaseStatistics> statistics() const;

private:
    std::shared_ptr<HistoryDatabaseItem> unregister(const std::filesystem::path& path);
    void replace(const std::filesystem::path& path, const Task& change);
    std::map<std::string, std::shared_ptr<HistoryDatabaseItem>> registered() const;

    Context& context_;
    const HistoryDatabaseItem::Limits limits_;
    mutable std::mutex mutex_; ///< guards the registry
    std::map<std::string, std::shared_ptr<HistoryDatabaseItem>> databases_;
    std::map<std::string, std::shared_ptr<HistoryDatabaseItem>> closed_; ///< in case they are wanted again
};

} // namespace meridal
