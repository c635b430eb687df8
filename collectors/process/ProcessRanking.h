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
        std::array<double, 2> totals = {}; ///< by figure, in the order in which they were asked for; 0 while not known
        std::array<bool, 2> known = {};    ///< of anybody in the group
        std::uint32_t place = 0;           ///< in the table: what decides between equals
    };

    /// Adds up one or two figures, which are of those who have ended both or neither.
    void sum(const ProcessTable& table, const ProcessView& view, std::span<const ProcessFigure> figures);
    /// Whether anybody's figure is known: where nobody's is, zeros would say that nobody does anything.
    bool knows(std::size_t figure) const;
    /// The first of those that were added up, by one of the figures: the largest first, then whoever was active last, those
    /// that are not known behind; equal ones in table order. Good until the next call.
    std::span<const Row* const> first(std::size_t figure, std::int32_t limit);

private:
    /// What is compared, close together: a figure, or when one that is idle was active last.
    struct Key {
        double value = 0;
        std::uint32_t place = 0;
        std::uint32_t row = 0;
    };

    Row& addRow(ProcessStatCollectorItem& item);
    void addKey(double value, std::uint32_t row);
    void takeActive(std::size_t figure);
    void takeIdle(std::size_t figure, std::size_t limit);
    void takeFirst(std::size_t limit);
    void add(ProcessStatCollectorItem& item, const ProcessView& view);
    std::uint32_t rowOf(ProcessStatCollectorItem& item, const ProcessView& view);

    std::array<ProcessFigure, 2> figures_ = {};
    std::size_t figureCount_ = 0;
    std::vector<Row> rows_; ///< the first so many of them: refilled each time, and not made anew
    std::size_t rowCount_ = 0;
    std::vector<std::uint32_t> rowByPlace_; ///< that an item counts for, where groups are shown
    std::vector<Key> keys_;                 ///< likewise
    std::size_t keyCount_ = 0;
    std::vector<const Row*> first_;
};

} // namespace meridal
