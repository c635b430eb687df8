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

/// Statements in the order in which they were added, packed: rows of one statement that follow each other share its text, and
/// an argument takes a byte for its kind and those that it has (a text 8 more for its length), where a value takes 40. Half a minute's rows wait here, of thousands of
/// figures, most of which are NULL or a number.
class StatementBatch {
public:
    /// Runs of one text: so many statements with so many arguments each.
    struct Run {
        std::shared_ptr<const StatementText> text;
        std::size_t argsPerStatement = 0;
        std::size_t statements = 0;
        std::size_t firstArgument = 0; ///< where it lies among the packed ones
    };
    /// Gives the arguments of a run out again, those of one statement at each call. The batch must outlive it unchanged.
    class Arguments {
    public:
        Arguments(const StatementBatch& batch, const Run& run);
        /// Not more often than the run has statements. Good until the next call.
        std::span<const SqlValue> next();

    private:
        const char* next_;
        SqlValues row_;
    };

    void add(const std::shared_ptr<const StatementText>& text, std::span<const SqlValue> args);
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const std::vector<Run>& runs() const { return runs_; }

private:
    std::vector<Run> runs_;
    void append(std::span<const SqlValue> args);

    std::vector<char> packed_; ///< of each argument its kind, and what it holds
    std::size_t size_ = 0;
};

} // namespace meridal
