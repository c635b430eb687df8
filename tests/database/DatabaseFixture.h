// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/HistoryDatabaseController.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

namespace meridal::test {

/// Another program's look at a database file, through SQLite itself.
class OtherProgram {
public:
    explicit OtherProgram(const std::filesystem::path& path)
    {
        EXPECT_EQ(sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK) << path;
        sqlite3_busy_timeout(handle_, 1000);
    }
    ~OtherProgram() { sqlite3_close(handle_); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    int run(const char* sql) { return sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr); }
    /// The first column of every row; an error's text when there is one.
    std::vector<std::string> column(const std::string& sql)
    {
        std::vector<std::string> values;
        const auto take = [](void* list, int, char** texts, char**) {
            static_cast<std::vector<std::string>*>(list)->emplace_back(texts[0] ? texts[0] : "NULL");
            return 0;
        };
        if (sqlite3_exec(handle_, sql.c_str(), take, &values, nullptr) != SQLITE_OK) {
            return {sqlite3_errmsg(handle_)};
        }
        return values;
    }
    std::string value(const std::string& sql)
    {
        const auto values = column(sql);
        return values.empty() ? "nothing" : values.front();
    }

private:
    sqlite3* handle_ = nullptr;
};

/// Real files in a folder of their own, virtual time, and a log that is kept.
class DatabaseTest : public testing::Test {
protected:
    DatabaseTest()
    {
        machine_.log.addListener([this](LogLevel, std::string_view line) { lines_.emplace_back(line); });
    }

    static constexpr const char* create_ = "CREATE TABLE %@ (batch INTEGER, row INTEGER, PRIMARY KEY (batch, row))";
    static constexpr const char* insert_ = "INSERT INTO %@ VALUES (?, ?)";

    std::filesystem::path path() const { return folder_.root() / "history.db"; }

    std::shared_ptr<HistoryDatabaseItem> openItem(HistoryDatabaseItem::Limits limits = {})
    {
        auto item = std::make_shared<HistoryDatabaseItem>(machine_.context, path(), limits);
        item->declareTable({.table = "rows", .create = create_});
        item->openIfNeeded();
        return item;
    }
    static void addBatch(HistoryDatabaseItem& item, std::int64_t batch, std::int64_t rows = 10)
    {
        for (std::int64_t row = 0; row < rows; ++row) {
            item.addItem({.table = "rows", .format = insert_, .args = {batch, row}});
        }
    }
    static void writeBatch(HistoryDatabaseItem& item, std::int64_t batch, std::int64_t rows = 10)
    {
        addBatch(item, batch, rows);
        item.commitSync();
    }
    std::string rowCount() const { return OtherProgram(path()).value("SELECT count(*) FROM rows"); }
    std::size_t linesWith(std::string_view words) const
    {
        return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(),
            [&](const std::string& line) { return line.find(words) != std::string::npos; }));
    }
    /// Files of the folder whose name holds the words.
    std::vector<std::filesystem::path> filesWith(std::string_view words) const
    {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.root())) {
            if (entry.path().filename().string().find(words) != std::string::npos) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    /// The file, what belongs to it and what was set aside.
    void removeAll() const
    {
        for (const auto& file : filesWith("history.db")) {
            std::filesystem::remove_all(file);
        }
    }

    TemporaryTree folder_{TemporaryTree::Place::Memory};
    FakeMachine machine_;
    std::vector<std::string> lines_;
};

} // namespace meridal::test
