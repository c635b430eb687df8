// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessRanking.h"

#include "base/Prefetch.h"
#include "collectors/process/ProcessStatCollectorItem.h"

#include <algorithm>
#include <limits>

namespace meridal {

namespace {

constexpr auto noRow = std::numeric_limits<std::uint32_t>::max();

bool isShown(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    return !view.shown || (!item.temporary && view.shown->contains(item.pid));
}

} // namespace

void ProcessRanking::sum(const ProcessTable& table, const ProcessView& view, std::span<const ProcessFigure> figures)
{
    figureCount_ = std::min(figures.size(), figures_.size());
    std::copy_n(figures.begin(), figureCount_, figures_.begin());
    rows_.resize(table.processes.size() + table.ended.size());
    rowCount_ = 0;
    if (view.grouped) {
        rowByPlace_.assign(table.processes.size() + table.ended.size(), noRow);
    }
    for (std::size_t i = 0; i < table.processes.size(); ++i) {
        if (i + prefetchDistance < table.processes.size()) {
            prefetch(table.processes[i + prefetchDistance]->figures);
            prefetch(table.processes[i + prefetchDistance]->place);
        }
        add(*table.processes[i], view);
    }
    if (figures_[0].ofEnded) {
        for (ProcessStatCollectorItem* item : table.ended) {
            add(*item, view);
        }
    }
}

void ProcessRanking::add(ProcessStatCollectorItem& item, const ProcessView& view)
{
    if (!isShown(item, view)) {
        return;
    }
    Row& row = view.grouped ? rows_[rowOf(item, view)] : addRow(item);
    for (std::size_t i = 0; i < figureCount_; ++i) {
        const auto& value = item.figures.*figures_[i].value;
        row.totals[i] += value.value_or(0);
        row.known[i] |= value.has_value();
    }
}

ProcessRanking::Row& ProcessRanking::addRow(ProcessStatCollectorItem& item)
{
    Row& row = rows_[rowCount_++];
    row = {.item = &item, .place = item.place};
    return row;
}

/// The row of the one that heads its group, as far as groups are seen. Each way up is walked once: a line of parents may be as
/// long as any user likes.
std::uint32_t ProcessRanking::rowOf(ProcessStatCollectorItem& item, const ProcessView& view)
{
    ProcessStatCollectorItem* top = &item;
    while (rowByPlace_[top->place] == noRow && top->controller && isShown(*top->controller, view)) {
        top = top->controller;
    }
    std::uint32_t& row = rowByPlace_[top->place];
    if (row == noRow) {
        row = static_cast<std::uint32_t>(rowCount_);
        addRow(*top);
    }
    for (ProcessStatCollectorItem* below = &item; below != top; below = below->controller) {
        rowByPlace_[below->place] = row;
    }
    return row;
}

bool ProcessRanking::knows(std::size_t figure) const
{
    return std::any_of(rows_.begin(), rows_.begin() + static_cast<std::ptrdiff_t>(rowCount_),
        [figure](const Row& row) { return row.known[figure]; });
}

/// Most processes are idle, and few are asked for: only those that are active are compared by what they use, and idle ones are
/// looked at where there is room for them.
std::span<const ProcessRanking::Row* const> ProcessRanking::first(std::size_t figure, std::int32_t limit)
{
    const auto most = static_cast<std::size_t>(std::max(limit, 0));
    first_.clear();
    first_.reserve(std::min(most, rowCount_));
    keys_.resize(rowCount_);
    takeActive(figure);
    takeFirst(most);
    if (first_.size() < most) {
        takeIdle(figure, most);
    }
    return first_;
}

void ProcessRanking::addKey(double value, std::uint32_t row) { keys_[keyCount_++] = {value, rows_[row].place, row}; }

void ProcessRanking::takeActive(std::size_t figure)
{
    keyCount_ = 0;
    for (std::uint32_t row = 0; row < rowCount_; ++row) {
        if (rows_[row].totals[figure] > 0) {
            addKey(rows_[row].totals[figure], row);
        }
    }
}

/// Those that use nothing, and those of whom nothing is known behind them.
void ProcessRanking::takeIdle(std::size_t figure, std::size_t limit)
{
    const auto lastActive = figures_[figure].lastActive;
    for (const bool isKnown : {true, false}) {
        keyCount_ = 0;
        for (std::uint32_t row = 0; row < rowCount_ && first_.size() < limit; ++row) {
            const Row& each = rows_[row];
            if (!(each.totals[figure] > 0) && each.known[figure] == isKnown) {
                addKey(lastActive ? each.item->activity.*lastActive : 0, row);
            }
        }
        takeFirst(limit);
    }
}

/// Appends the first of the keys, up to so many in all.
void ProcessRanking::takeFirst(std::size_t limit)
{
    const auto isBefore = [](const Key& a, const Key& b) {
        return a.value != b.value ? a.value > b.value : a.place < b.place;
    };
    const auto end = keys_.begin() + static_cast<std::ptrdiff_t>(keyCount_);
    const auto count = std::min(keyCount_, limit - first_.size());
    if (count < keyCount_) {
        std::partial_sort(keys_.begin(), keys_.begin() + static_cast<std::ptrdiff_t>(count), end, isBefore);
    } else if (!std::is_sorted(keys_.begin(), end, isBefore)) { // as idle ones of the table are
        std::sort(keys_.begin(), end, isBefore);
    }
    for (std::size_t place = 0; place < count; ++place) {
        first_.push_back(&rows_[keys_[place].row]);
    }
}

} // namespace meridal
