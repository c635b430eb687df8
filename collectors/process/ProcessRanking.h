// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/ProcessFigures.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_set>
#include <vector>

namespace meridal {

class ProcessStatCollectorItem;

/// Who there is to be ranked.
struct ProcessTable {
    std::span<ProcessStatCollectorItem* const> processes; ///< in order of first sight
    std::span<ProcessStatCollectorItem* const> ended;     ///< who has ended, and has traffic all the same
};

/// Who looks, and how.
struct ProcessView {
    bool grouped = false; ///< processes count for the head of their group
    /// No figure of another process goes in, and who is grouped under one of those stands alone. Of one that has ended
    /// nobody can say any more who may see it: only those who see all. Null: all.
    const std::unordered_set<std::int32_t>* shown = nullptr;
};

/// Who uses the most. The answer depends on table, view and figures alone; an object is kept for its memory.
class ProcessRanking {
public:
    /// A process, or the head of a group, with what it or all of the group use.
    struct Row {
        ProcessStatCollectorItem* item = nullptr;
        std::array<OptionalDouble, 2> totals = {}; ///< by figure, in the order in which they were asked for
    };

    /// Adds up one or two figures, which are of those who have ended both or neither. The table stays until the last call of
    /// the next ones.
    void sum(const ProcessTable& table, const ProcessView& view, std::span<const ProcessFigure> figures);
    /// Whether anybody's figure is known: where nobody's is, zeros would say that nobody does anything.
    bool knows(std::size_t figure) const;
    /// The first of those that were added up, by one of the figures: the largest first, then whoever was active last, those
    /// that are not known behind; equal ones in table order. Good until the next call.
    std::span<const Row> first(std::size_t figure, std::int32_t limit);

private:
    using Item = ProcessStatCollectorItem;
    /// What is compared, close together: a figure, or when one that is idle was active last.
    struct Key {
        double value = 0;
        std::uint32_t row = 0;
    };

    void add(const Item& item, const ProcessView& view);
    std::uint32_t topOf(const Item& item, const ProcessView& view);
    void keepRows();
    Item& itemOf(std::uint32_t row) const;
    void takeActive(std::size_t figure);
    void takeIdle(std::size_t figure, std::size_t limit);
    void takeSorted(std::size_t limit);
    void takeRow(std::uint32_t row);

    ProcessTable table_;
    std::array<ProcessFigure, 2> figures_ = {};
    std::size_t figureCount_ = 0;
    /// Of each figure by row, so that nobody's item is looked at twice: no number while it is not known.
    std::array<std::vector<double>, 2> totals_;
    std::vector<std::uint32_t> places_; ///< of the rows in the table, ascending
    std::vector<std::uint32_t> tops_;   ///< by place, whom an item counts for, where groups are shown
    std::vector<Key> keys_;
    std::vector<Row> first_;
};

} // namespace meridal
