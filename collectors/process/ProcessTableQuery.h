// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Pattern.h"
#include "collectors/process/ProcessColumns.h"
#include "collectors/process/ProcessRanking.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What a text is to have in it: a part, large or small letters alike, or a pattern. Any text will do as long as it is empty.
class TextFilter {
public:
    TextFilter() = default;
    explicit TextFilter(std::string_view part);
    explicit TextFilter(Pattern pattern) : pattern_(std::move(pattern)) { }

    bool isEmpty() const { return !pattern_ && part_.empty(); }
    bool matches(std::string_view text) const;

private:
    std::string part_; ///< in small letters
    std::optional<Pattern> pattern_;
};

/// What a process must have to be in the table, all of it.
struct ProcessFilter {
    TextFilter any = {}; ///< in its name or its command line
    TextFilter name = {};
    TextFilter unit = {};
    TextFilter command = {};
    std::string user = {}; ///< the name or number of its user; empty: anybody's
    std::optional<std::int32_t> pid = {};

    bool isEmpty() const
    {
        return any.isEmpty() && name.isEmpty() && unit.isEmpty() && command.isEmpty() && user.empty() && !pid;
    }
};

/// What somebody wants to see of the processes.
struct ProcessTableQuery {
    std::vector<ProcessColumn> columns = {};
    ProcessColumn sort = ProcessColumn::Cpu;
    bool isReversed = false; ///< the smallest number, or Z, first
    ProcessFilter filter = {};
    bool grouped = false; ///< a row a group, in which anybody passes the filter, with the sums of all in it
    std::optional<std::int32_t> group = {}; ///< only the members of the group that this one heads
    std::size_t offset = 0;
    std::size_t limit = 50;
};

/// What of a process has to be asked for, each some microseconds at first: for rows that are shown, unless filter or sort are about
/// it. Valid UTF-8.
class ProcessTexts {
public:
    virtual ~ProcessTexts() = default;
    virtual std::string name(ProcessStatCollectorItem& item, bool grouped) = 0;
    virtual std::string_view command(const ProcessStatCollectorItem& item) = 0; ///< good until the next call
    virtual std::string unit(const ProcessStatCollectorItem& item) = 0;
    virtual std::string user(const ProcessStatCollectorItem& item) = 0; ///< the number while the name is not known
};

/// The rows of a table that somebody wants to see. The answer depends on what is given alone; an object is kept for its memory.
class ProcessSelection {
public:
    struct Row {
        ProcessStatCollectorItem* item = nullptr; ///< the head, where it stands for a group
        std::uint32_t number = 0;                 ///< of the group in the selection; of no meaning without groups
    };

    void select(const ProcessTable& table, const ProcessView& view, const ProcessTableQuery& query,
        const TableMoment& moment, ProcessTexts& texts);

    std::size_t total() const { return total_; } ///< rows there are, shown or not
    /// Those that are shown, in order. Good until the next call.
    std::span<const Row> rows() const { return shown_; }
    /// What a row has in a column of numbers. Good for the rows that are shown.
    std::optional<double> figure(const Row& row, ProcessColumn column) const;

private:
    /// By what numbers are sorted, close together.
    struct Key {
        double figure = 0;
        std::uint32_t place = 0;
        std::uint32_t row = 0;
    };
    struct TextKey {
        std::string text;
        std::uint32_t place = 0;
        std::uint32_t row = 0;
    };

    void findHeads(const ProcessTable& table, const ProcessView& view);
    void gather(
        const ProcessTable& table, const ProcessView& view, const ProcessTableQuery& query, ProcessTexts& texts);
    void gatherGroups(const ProcessTable& table, const ProcessTableQuery& query, ProcessTexts& texts);
    void sortByNumber(const ProcessTable& table, const ProcessTableQuery& query);
    void sortByText(const ProcessTableQuery& query, ProcessTexts& texts);
    template <typename Keys, typename IsBefore>
    void cut(Keys& keys, const ProcessTableQuery& query, IsBefore isBefore);
    void sumGroups(const ProcessTable& table, const ProcessTableQuery& query);

    TableMoment moment_;
    bool grouped_ = false;
    std::size_t total_ = 0;
    std::vector<Row> rows_;
    std::vector<Row> shown_;
    std::vector<ProcessStatCollectorItem*>
        heads_;                             ///< by place; null for those that are not shown; empty where nobody asks
    std::vector<std::uint32_t> rowByPlace_; ///< of heads
    std::vector<Key> keys_;
    std::vector<TextKey> textKeys_;
    std::vector<std::array<std::optional<double>, 22>> sums_; ///< of groups that are shown, by row of shown_
};

} // namespace meridal
