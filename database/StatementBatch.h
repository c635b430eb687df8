// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/SqlValue.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// The SQL of a statement that is run many times: made once, shared by all its rows.
class StatementText {
public:
    StatementText(std::string_view table, std::string_view format) : sql_(sqlText(format, table)) { }
    const std::string& sql() const { return sql_; }

private:
    std::string sql_;
};

/// Statements in the order in which they were added, packed: rows of one statement that follow each other share its text,
/// and all arguments lie in one array.
class StatementBatch {
public:
    /// Runs of one text: so many statements with so many arguments each.
    struct Run {
        std::shared_ptr<const StatementText> text;
        std::size_t argsPerStatement = 0;
        std::size_t statements = 0;
    };

    void add(const std::shared_ptr<const StatementText>& text, std::span<SqlValue> args);
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const std::vector<Run>& runs() const { return runs_; }
    const SqlValues& args() const { return args_; }

private:
    std::vector<Run> runs_;
    SqlValues args_;
    std::size_t size_ = 0;
};

} // namespace meridal
